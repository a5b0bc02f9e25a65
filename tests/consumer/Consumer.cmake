# SPDX-License-Identifier: Apache-2.0
# A program of ten lines uses the library in each of the three ways there are.
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/consumer)

function(talvo_consumer_test name)
  add_test(
    NAME Consumer.${name}
    COMMAND
      ${CMAKE_COMMAND} -D step=${name} -D talvo_build=${Talvo_BINARY_DIR} -D scratch=${scratch}
      -D libdir=${CMAKE_INSTALL_LIBDIR} -D compiler=${CMAKE_CXX_COMPILER} -D generator=${CMAKE_GENERATOR}
      -P ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/Consumer.script.cmake)
endfunction()

talvo_consumer_test(Install)
talvo_consumer_test(Package)
talvo_consumer_test(PkgConfig)
talvo_consumer_test(Subproject)
set_tests_properties(Consumer.Install PROPERTIES FIXTURES_SETUP talvo_prefix)
set_tests_properties(Consumer.Package Consumer.PkgConfig PROPERTIES FIXTURES_REQUIRED talvo_prefix)
set_tests_properties(Consumer.Subproject PROPERTIES TIMEOUT 1200)
