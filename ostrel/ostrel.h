#ifndef OSTREL_OSTREL_H
#define OSTREL_OSTREL_H

// Includes every public header of the library.

#include "ostrel/charset/util_toUTF8.h"
#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/config/cm_ini_reader.h"
#include "ostrel/config/line_tokens.h"
#include "ostrel/core/acc_buffer.h"
#include "ostrel/core/auto_ptr.h"
#include "ostrel/core/cm_guid.h"
#include "ostrel/core/convert.h"
#include "ostrel/core/critical_section.h"
#include "ostrel/core/crypt_random.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/handles.h"
#include "ostrel/core/x_string.h"
#include "ostrel/file/Std_Utils_File.h"
#include "ostrel/file/browse_directory.h"
#include "ostrel/file/class.h"
#include "ostrel/regex/validators.h"
#include "ostrel/registry/reg_key.h"
#include "ostrel/registry/reg_monitor.h"
#include "ostrel/registry/reg_monitor_ex.h"
#include "ostrel/service/ProcessUtility.h"
#include "ostrel/service/ServiceManager.h"
#include "ostrel/text/string_utils.h"
#include "ostrel/text/token_list.h"
#include "ostrel/time/tc_datetime_utility.h"
#include "ostrel/time/time_ex.h"

#endif  // OSTREL_OSTREL_H
