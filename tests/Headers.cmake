# SPDX-License-Identifier: Apache-2.0
# Every header stands alone, and may be included twice: one file each, compiled with the tests.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${Talvo_SOURCE_DIR} ${Talvo_SOURCE_DIR}/talvo/*.h)
list(FILTER headers EXCLUDE REGEX "\\.inl\\.h$")

set(sources)
foreach(header IN LISTS headers)
  set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${header}.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include <${header}>\n#include <${header}>\n")
  list(APPEND sources ${source})
endforeach()

# A unit's Fwd header has all its interfaces and classes, and suffices for references to them.
file(GLOB_RECURSE forward_headers CONFIGURE_DEPENDS RELATIVE ${Talvo_SOURCE_DIR}
     ${Talvo_SOURCE_DIR}/talvo/*.Fwd.h)
foreach(forward IN LISTS forward_headers)
  cmake_path(GET forward PARENT_PATH folder)
  set(fields "")
  foreach(header IN LISTS headers)
    if(header MATCHES "^${folder}/")
      file(STRINGS ${Talvo_SOURCE_DIR}/${header} classes
           REGEX "^class (TALVO_API T|I)[A-Z][A-Za-z]+( [^;]*)?$")
      foreach(class IN LISTS classes)
        string(REGEX REPLACE "^class (TALVO_API )?([A-Za-z]+).*" "\\2" class "${class}")
        string(APPEND fields "  TRef<${class}> F${class};\n")
      endforeach()
    endif()
  endforeach()
  set(source ${CMAKE_CURRENT_BINARY_DIR}/headers/${forward}.refs.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "#include <${forward}>\nnamespace Talvo {\n\
struct THolder {\n  THolder();\n  ~THolder();\n${fields}};\n}  // namespace Talvo\n")
  list(APPEND sources ${source})
endforeach()

add_library(talvo_headers OBJECT ${sources})
talvo_flags(talvo_headers)
target_link_libraries(talvo_headers PRIVATE Talvo::Runtime)
target_compile_options(talvo_headers PRIVATE -Wpedantic -O0 -g0 -fno-sanitize=all)
