# ostrel_version_resource(TARGET FILE_VERSION a.b.c.d
#   [PRODUCT_VERSION a.b.c.d] [LANGUAGE number] [CODE_PAGE number] [STRINGS name text ...])
#
# Gives a program or a shared library a version block, which the calls of ostrel/platform/version.h
# and getModuleVersion read from the file.
#
#   ostrel_version_resource(engine FILE_VERSION 5.1.2600.1106 LANGUAGE 0x0411
#     STRINGS CompanyName "Example" FileDescription "The engine")
#
#   FILE_VERSION     one to four numbers up to 65535; those that are missing are 0
#   PRODUCT_VERSION  the same for the product; FILE_VERSION by default
#   LANGUAGE         the language of the texts, decimal or 0x..., up to 65535; US English (0x0409)
#                    by default
#   CODE_PAGE        the code page of the texts in their block's name, likewise; UTF-16 (1200) by
#                    default, in which they are stored whatever the number is
#   STRINGS          names and texts in UTF-8. FileVersion and ProductVersion are the versions as they
#                    are written, unless a text is given here.
#
# The block is a note of the ELF file (section .note.ostrel.version), made from a C++ source in the
# build folder. Linkers keep the note with --gc-sections and strip. For Windows the function does
# nothing: a product has its resource script there.

# Sets OUT to the bytes of a number in little-endian order, as hexadecimal digits.
function(_ostrel_number out number bytes)
  set(hex "")
  foreach(i RANGE 1 ${bytes})
    math(EXPR byte "(${number}) & 255 | 256" OUTPUT_FORMAT HEXADECIMAL)  # 0x1..: two digits
    string(SUBSTRING "${byte}" 3 2 byte)
    string(APPEND hex "${byte}")
    math(EXPR number "(${number}) >> 8")
  endforeach()
  set(${out} "${hex}" PARENT_SCOPE)
endfunction()

# Sets OUT to a text in UTF-16 with its NUL.
function(_ostrel_text out text)
  string(HEX "${text}" utf8)
  string(REGEX MATCHALL ".." bytes "${utf8}")
  set(hex "")
  set(character 0)
  set(missing 0)  # bytes of the character
  foreach(byte IN LISTS bytes)
    math(EXPR byte "0x${byte}")
    if(byte LESS 128)
      set(character ${byte})
      set(missing 0)
    elseif(byte LESS 192)
      math(EXPR character "${character} << 6 | ${byte} & 63")
      math(EXPR missing "${missing} - 1")
    elseif(byte LESS 224)
      math(EXPR character "${byte} & 31")
      set(missing 1)
    elseif(byte LESS 240)
      math(EXPR character "${byte} & 15")
      set(missing 2)
    else()
      math(EXPR character "${byte} & 7")
      set(missing 3)
    endif()
    if(missing EQUAL 0)
      if(character GREATER 65535)
        math(EXPR high "0xD800 + ((${character} - 0x10000) >> 10)")
        math(EXPR character "0xDC00 + ((${character} - 0x10000) & 1023)")
        _ostrel_number(unit ${high} 2)
        string(APPEND hex "${unit}")
      endif()
      _ostrel_number(unit ${character} 2)
      string(APPEND hex "${unit}")
    endif()
  endforeach()
  set(${out} "${hex}0000" PARENT_SCOPE)
endfunction()

# Pads bytes in VARIABLE to a multiple of 4.
function(_ostrel_pad variable)
  string(LENGTH "${${variable}}" digits)
  math(EXPR missing "(8 - ${digits} % 8) % 8")
  string(REPEAT "0" ${missing} padding)
  set(${variable} "${${variable}}${padding}" PARENT_SCOPE)
endfunction()

# Sets OUT to a node: its value (VALUE, VALUE_LENGTH in the unit of the TYPE) and its children, each
# of which is padded already.
function(_ostrel_node out name type value value_length children)
  _ostrel_text(name_bytes "${name}")
  set(node "000000000000${name_bytes}")  # 6 bytes of lengths and type come last
  if(NOT "${value}${children}" STREQUAL "")
    _ostrel_pad(node)
  endif()
  string(APPEND node "${value}")
  if(NOT "${children}" STREQUAL "")
    _ostrel_pad(node)
    string(APPEND node "${children}")
  endif()
  string(LENGTH "${node}" digits)
  math(EXPR length "${digits} / 2")
  if(length GREATER 65535)
    message(FATAL_ERROR "ostrel_version_resource: the texts are too long for a version block")
  endif()
  _ostrel_number(length ${length} 2)
  _ostrel_number(value_length ${value_length} 2)
  _ostrel_number(type ${type} 2)
  string(SUBSTRING "${node}" 12 -1 rest)
  set(${out} "${length}${value_length}${type}${rest}" PARENT_SCOPE)
endfunction()

# Sets OUT to the node of a text, padded.
function(_ostrel_string out name text)
  _ostrel_text(value "${text}")
  string(LENGTH "${value}" digits)
  math(EXPR units "${digits} / 4")
  _ostrel_node(node "${name}" 1 "${value}" ${units} "")
  _ostrel_pad(node)
  set(${out} "${node}" PARENT_SCOPE)
endfunction()

# Sets OUT to the 8 bytes of a version.
function(_ostrel_version out version)
  if(NOT version MATCHES "^[0-9]+(\\.[0-9]+)?(\\.[0-9]+)?(\\.[0-9]+)?$")
    message(FATAL_ERROR "ostrel_version_resource: no version of one to four numbers: \"${version}\"")
  endif()
  string(REPLACE "." ";" numbers "${version}.0.0.0")
  set(hex "")
  foreach(i IN ITEMS 1 0 3 2)  # the low word of a number of 32 bits comes first
    list(GET numbers ${i} number)
    string(LENGTH "${number}" digits)
    if(digits GREATER 5 OR number GREATER 65535)
      message(FATAL_ERROR "ostrel_version_resource: a number of \"${version}\" is above 65535")
    endif()
    _ostrel_number(number ${number} 2)
    string(APPEND hex "${number}")
  endforeach()
  set(${out} "${hex}" PARENT_SCOPE)
endfunction()

function(ostrel_version_resource target)
  # Not by cmake_parse_arguments: a text may hold any character, also those of CMake's lists.
  set(FILE_VERSION "")
  set(PRODUCT_VERSION "")
  set(LANGUAGE 0x0409)
  set(CODE_PAGE 1200)
  set(strings "")  # the nodes of the texts
  set(names "")
  set(in_strings FALSE)
  set(i 1)
  while(i LESS ARGC)
    set(argument "${ARGV${i}}")
    math(EXPR next "${i} + 1")
    if(argument STREQUAL "STRINGS")
      set(in_strings TRUE)
      set(i ${next})
      continue()
    endif()
    if(next EQUAL ARGC)
      message(FATAL_ERROR "ostrel_version_resource: nothing follows \"${argument}\"")
    endif()
    set(value "${ARGV${next}}")
    if(argument MATCHES "^(FILE_VERSION|PRODUCT_VERSION|LANGUAGE|CODE_PAGE)$")
      set(${argument} "${value}")
      set(in_strings FALSE)
    elseif(in_strings)
      _ostrel_string(node "${argument}" "${value}")
      string(APPEND strings "${node}")
      list(APPEND names "${argument}")
    else()
      message(FATAL_ERROR "ostrel_version_resource: unknown argument \"${argument}\"")
    endif()
    math(EXPR i "${i} + 2")
  endwhile()
  foreach(name IN ITEMS LANGUAGE CODE_PAGE)
    if(NOT "${${name}}" MATCHES "^(0x0*[0-9A-Fa-f]?[0-9A-Fa-f]?[0-9A-Fa-f]?[0-9A-Fa-f]|[0-9]+)$"
        OR "${${name}}" GREATER 65535)
      message(FATAL_ERROR
        "ostrel_version_resource: ${name} is no number up to 65535: \"${${name}}\"")
    endif()
  endforeach()
  if(PRODUCT_VERSION STREQUAL "")
    set(PRODUCT_VERSION "${FILE_VERSION}")
  endif()
  _ostrel_version(file_version "${FILE_VERSION}")
  _ostrel_version(product_version "${PRODUCT_VERSION}")
  get_target_property(type ${target} TYPE)
  if(NOT type MATCHES "^(EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY)$")
    message(FATAL_ERROR "ostrel_version_resource: ${target} is no program or shared library")
  endif()
  get_target_property(has_version ${target} OSTREL_HAS_VERSION_RESOURCE)
  if(has_version)
    message(FATAL_ERROR "ostrel_version_resource: ${target} has a version already")
  endif()
  set_property(TARGET ${target} PROPERTY OSTREL_HAS_VERSION_RESOURCE TRUE)
  if(WIN32)
    return()
  endif()
  if(NOT "FileVersion" IN_LIST names)
    _ostrel_string(node "FileVersion" "${FILE_VERSION}")
    string(APPEND strings "${node}")
  endif()
  if(NOT "ProductVersion" IN_LIST names)
    _ostrel_string(node "ProductVersion" "${PRODUCT_VERSION}")
    string(APPEND strings "${node}")
  endif()

  # The tree, from the leaves to the root.
  _ostrel_number(language ${LANGUAGE} 2)
  _ostrel_number(code_page ${CODE_PAGE} 2)
  string(REGEX REPLACE "(..)(..)(..)(..)" "\\2\\1\\4\\3" table "${language}${code_page}")
  string(TOUPPER "${table}" table)
  _ostrel_node(table "${table}" 1 "" 0 "${strings}")
  _ostrel_pad(table)
  _ostrel_node(texts "StringFileInfo" 1 "" 0 "${table}")
  _ostrel_pad(texts)
  _ostrel_node(translation "Translation" 0 "${language}${code_page}" 4 "")
  _ostrel_node(variables "VarFileInfo" 1 "" 0 "${translation}")
  if(type STREQUAL "EXECUTABLE")
    set(file_type 1)
  else()
    set(file_type 2)
  endif()
  _ostrel_number(signature 0xFEEF04BD 4)
  _ostrel_number(structure_version 0x00010000 4)
  _ostrel_number(flags_mask 0x3F 4)
  _ostrel_number(file_type ${file_type} 4)
  _ostrel_number(zero 0 4)
  # Behind the versions: flags, system, type, subtype, and a date of two numbers.
  string(CONCAT numbers ${signature} ${structure_version} ${file_version} ${product_version}
    ${flags_mask} ${zero} ${zero} ${file_type} ${zero} ${zero} ${zero})
  _ostrel_node(block "VS_VERSION_INFO" 0 "${numbers}" 52 "${texts}${variables}")

  # The note: lengths of name and content, type, name, content.
  string(LENGTH "${block}" digits)
  math(EXPR length "${digits} / 2")
  _ostrel_pad(block)
  _ostrel_number(length ${length} 4)
  string(HEX "Ostrel" name)
  set(note "07000000${length}01000000${name}0000${block}")
  string(REGEX REPLACE "(................................)" "\\1;" note "${note}")
  list(TRANSFORM note REPLACE "(..)" ",0x\\1")
  list(TRANSFORM note REPLACE "^,(.+)" "    \".byte \\1\\\\n\"\n")
  list(JOIN note "" note)
  set(source "${CMAKE_CURRENT_BINARY_DIR}/${target}_version.cpp")
  # By the assembler, which no sanitizer and no optimisation changes.
  file(CONFIGURE OUTPUT "${source}" CONTENT [[
// The version block of @target@, made by ostrel_version_resource.
__asm__(
    ".pushsection .note.ostrel.version, \"a\", %note\n"
    ".balign 4\n"
@note@    ".popsection\n");
]] @ONLY)
  target_sources(${target} PRIVATE "${source}")
  set_source_files_properties("${source}" TARGET_DIRECTORY ${target} PROPERTIES
    SKIP_PRECOMPILE_HEADERS ON SKIP_UNITY_BUILD_INCLUSION ON)
endfunction()
