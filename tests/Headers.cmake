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

add_library(talvo_headers OBJECT ${sources})
talvo_flags(talvo_headers)
target_link_libraries(talvo_headers PRIVATE Talvo::Runtime)
target_compile_options(talvo_headers PRIVATE -Wpedantic -O0 -g0 -fno-sanitize=all)
