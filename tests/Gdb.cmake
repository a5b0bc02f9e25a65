# SPDX-License-Identifier: Apache-2.0
# What gdb shows of a program by way of tools/gdb/talvo_printers.py.
add_executable(talvo_gdb_sample tools/gdb_sample.cpp)
talvo_flags(talvo_gdb_sample)
target_compile_options(talvo_gdb_sample PRIVATE -g -O0)
target_link_libraries(talvo_gdb_sample PRIVATE Talvo::Runtime)
add_test(NAME Tools.GdbPrinters
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tools/gdb_printers_test.py
                 $<TARGET_FILE:talvo_gdb_sample>)
