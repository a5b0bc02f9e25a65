# SPDX-License-Identifier: Apache-2.0
# The code of the README: each block compiles and runs.

set(folder ${CMAKE_CURRENT_BINARY_DIR}/readme)
file(REMOVE_RECURSE ${folder})
execute_process(
  COMMAND ${Python3_EXECUTABLE} ${Talvo_SOURCE_DIR}/tools/readme_code ${Talvo_SOURCE_DIR}/README.md
          ${folder} COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${Talvo_SOURCE_DIR}/README.md
                                       ${Talvo_SOURCE_DIR}/tools/readme_code)
file(GLOB blocks ${folder}/readme_*.cpp)
foreach(block IN LISTS blocks)
  get_filename_component(name ${block} NAME_WE)
  add_executable(${name} ${block})
  talvo_flags(${name})
  target_compile_options(${name} PRIVATE -Wno-unused -O0)
  target_link_libraries(${name} PRIVATE Talvo::Runtime)
  add_test(NAME Readme.${name} COMMAND ${name})
endforeach()
