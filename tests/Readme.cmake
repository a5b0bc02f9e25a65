# SPDX-License-Identifier: Apache-2.0
# The code of the documentation: each block compiles and runs.

set(folder ${CMAKE_CURRENT_BINARY_DIR}/readme)
file(REMOVE_RECURSE ${folder})
foreach(page IN ITEMS README.md docs/threads.md)
  execute_process(
    COMMAND ${Python3_EXECUTABLE} ${Talvo_SOURCE_DIR}/tools/readme_code
            ${Talvo_SOURCE_DIR}/${page} ${folder} COMMAND_ERROR_IS_FATAL ANY)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${Talvo_SOURCE_DIR}/${page})
endforeach()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                                       ${Talvo_SOURCE_DIR}/tools/readme_code)
file(GLOB programs ${folder}/*.cpp)
foreach(program IN LISTS programs)
  get_filename_component(name ${program} NAME_WE)
  string(TOLOWER ${name} target)
  add_executable(talvo_page_${target} ${program})
  talvo_flags(talvo_page_${target})
  target_compile_options(talvo_page_${target} PRIVATE -Wno-unused -O0)
  target_link_libraries(talvo_page_${target} PRIVATE Talvo::Runtime)
  add_test(NAME Readme.${name} COMMAND talvo_page_${target})
endforeach()
