# SPDX-License-Identifier: Apache-2.0
# The examples do what they show.
add_test(NAME Example.pipeline
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/examples/pipeline_test.py
                 $<TARGET_FILE:pipeline>)
