# ostrel_target(NAME): the language, the warnings, the hardening and the visibility of every target
# of the project. Nothing of it reaches a consumer.
function(ostrel_target name)
  target_compile_features(${name} PRIVATE cxx_std_20)
  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
  if(OSTREL_WERROR)
    target_compile_options(${name} PRIVATE -Werror)
  endif()
  target_compile_options(${name} PRIVATE ${OSTREL_HARDENING_COMPILE})
  target_link_options(${name} PRIVATE ${OSTREL_HARDENING_LINK})
  set_target_properties(${name} PROPERTIES
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON)
endfunction()

# ostrel_library(NAME EXPORT_NAME ... DIRECTORY ... SOURCES ... HEADERS ... LINK ... DEPENDS ...)
#
# A shared library NAME, installed as Ostrel::EXPORT_NAME. SOURCES and HEADERS are paths below the
# calling folder; HEADERS are the public ones and are installed with their folders. LINK names what
# it uses privately, DEPENDS the libraries of the project that its headers need.
#
# The sources are compiled once, into the object library NAME_objects. Tests of internal code link
# the objects; everything else links the shared library.
function(ostrel_library name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "EXPORT_NAME" "SOURCES;HEADERS;LINK;DEPENDS")

  add_library(${name}_objects OBJECT ${arg_SOURCES})
  ostrel_target(${name}_objects)
  target_include_directories(${name}_objects PUBLIC "${PROJECT_SOURCE_DIR}")
  target_link_libraries(${name}_objects PRIVATE ${arg_LINK})

  add_library(${name} SHARED $<TARGET_OBJECTS:${name}_objects>)
  add_library(Ostrel::${arg_EXPORT_NAME} ALIAS ${name})
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS "${PROJECT_SOURCE_DIR}"
    FILES ${arg_HEADERS})
  target_compile_features(${name} PUBLIC cxx_std_17)
  target_link_libraries(${name} PUBLIC ${arg_DEPENDS} PRIVATE ${arg_LINK})
  target_link_options(${name} PRIVATE -Wl,--as-needed ${OSTREL_HARDENING_LINK}
    "-Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/ostrel.map")
  if(NOT OSTREL_SANITIZE)  # whose symbols only the program has
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  set_target_properties(${name} PROPERTIES
    LINK_DEPENDS "${PROJECT_SOURCE_DIR}/cmake/ostrel.map"
    LINKER_LANGUAGE CXX
    INSTALL_RPATH "$ORIGIN"
    EXPORT_NAME ${arg_EXPORT_NAME}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR})
  ostrel_version_resource(${name} FILE_VERSION ${PROJECT_VERSION}
    STRINGS FileDescription "${PROJECT_DESCRIPTION}" ProductName "${PROJECT_NAME}")
endfunction()
