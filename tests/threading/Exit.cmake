# SPDX-License-Identifier: Apache-2.0
# Programs that exit with threads and queued work alive: once linked with the library, and once
# with the library behind a plug-in. And one that only waits, with threads of every kind.

add_executable(talvo_exit_linked threading/exit_sample.cpp threading/exit_plugin.cpp)
add_library(talvo_exit_plugin MODULE threading/exit_plugin.cpp)
talvo_plugin(talvo_exit_plugin)
add_executable(talvo_exit_loaded threading/exit_sample.cpp)
add_executable(talvo_idle threading/idle_sample.cpp)
foreach(target IN ITEMS talvo_exit_linked talvo_exit_plugin talvo_exit_loaded talvo_idle)
  talvo_flags(${target})
endforeach()
# The sanitizer's records of function types would tie the plug-in to the library.
target_compile_options(talvo_exit_plugin PRIVATE "$<$<CXX_COMPILER_ID:Clang>:-fno-sanitize=function>")
target_link_libraries(talvo_exit_linked PRIVATE Talvo::Runtime)
target_link_libraries(talvo_exit_plugin PRIVATE Talvo::Runtime)
target_link_libraries(talvo_exit_loaded PRIVATE ${CMAKE_DL_LIBS})
target_link_libraries(talvo_idle PRIVATE Talvo::Runtime)

add_test(NAME Threading.ExitLinked COMMAND talvo_exit_linked 20)
add_test(NAME Threading.ExitLoaded COMMAND talvo_exit_loaded 20 $<TARGET_FILE:talvo_exit_plugin>)
# What is alive at the end is no leak here.
set_tests_properties(
  Threading.ExitLinked Threading.ExitLoaded
  PROPERTIES TIMEOUT 300 FAIL_REGULAR_EXPRESSION never
             ENVIRONMENT "ASAN_OPTIONS=detect_leaks=0;TSAN_OPTIONS=report_thread_leaks=0:atexit_sleep_ms=0")
# The sanitizers have threads of their own, which wake up.
if(NOT TALVO_SANITIZE)
  add_test(NAME Threading.Idle COMMAND talvo_idle 2)
  set_tests_properties(Threading.Idle PROPERTIES TIMEOUT 60)
endif()
