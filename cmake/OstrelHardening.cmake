# What makes faults in memory hard to exploit, for every target of the project: optimised builds
# without sanitizers, which find the faults themselves. Where the compiler or the linker lacks an
# option, the build goes on without the option.
#
# OSTREL_HARDENING_COMPILE and OSTREL_HARDENING_LINK are the options; ostrel_target applies both.
# .ci/hardening checks what has been built.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)

set(OSTREL_HARDENING_COMPILE)
set(OSTREL_HARDENING_LINK)
if(NOT OSTREL_SANITIZE)
  set(optimised "$<CONFIG:Release,RelWithDebInfo,MinSizeRel>")

  foreach(flag IN ITEMS -fstack-protector-strong -fcf-protection)
    string(MAKE_C_IDENTIFIER "OSTREL_HAS${flag}" has)
    check_cxx_compiler_flag(${flag} ${has})
    if(${has})
      list(APPEND OSTREL_HARDENING_COMPILE "$<${optimised}:${flag}>")
    endif()
  endforeach()
  # A level that comes with the user's own flags stays.
  if(NOT "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}" MATCHES "_FORTIFY_SOURCE")
    list(APPEND OSTREL_HARDENING_COMPILE
      "$<${optimised}:-U_FORTIFY_SOURCE>" "$<${optimised}:-D_FORTIFY_SOURCE=2>")
  endif()

  foreach(word IN ITEMS relro now noexecstack)
    check_linker_flag(CXX "-Wl,-z,${word}" OSTREL_HAS_Z_${word})
    if(OSTREL_HAS_Z_${word})
      list(APPEND OSTREL_HARDENING_LINK "$<${optimised}:-Wl,-z,${word}>")
    endif()
  endforeach()
endif()
