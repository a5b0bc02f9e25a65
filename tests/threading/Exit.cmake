# SPDX-License-Identifier: Apache-2.0
# Programs that exit with threads and queued work alive: once linked with the library, and once
# with the library behind a plug-in.

add_executable(talvo_exit_linked threading/exit_sample.cpp threading/exit_plugin.cpp)
add_library(talvo_exit_plugin MODULE threading/exit_plugin.cpp)
add_executable(talvo_exit_loaded threading/exit_sample.cpp)
foreach(target IN ITEMS talvo_exit_linked talvo_exit_plugin talvo_exit_loaded)
  talvo_flags(${target})
endforeach()
target_link_libraries(talvo_exit_linked PRIVATE Talvo::Runtime)
target_link_libraries(talvo_exit_plugin PRIVATE Talvo::Runtime)
target_link_libraries(talvo_exit_loaded PRIVATE ${CMAKE_DL_LIBS})

add_test(NAME Threading.ExitLinked COMMAND talvo_exit_linked)
add_test(NAME Threading.ExitLoaded COMMAND talvo_exit_loaded $<TARGET_FILE:talvo_exit_plugin>)
# What is alive at the end is no leak here.
set_tests_properties(
  Threading.ExitLinked Threading.ExitLoaded
  PROPERTIES TIMEOUT 60 FAIL_REGULAR_EXPRESSION never
             ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0;TSAN_OPTIONS=report_thread_leaks=0")
