# SPDX-License-Identifier: Apache-2.0
# The layers, proved twice: from the include lines, and by linking each floor without those above.
set(check_layers ${Python3_EXECUTABLE} ${Talvo_SOURCE_DIR}/tools/check_layers)

add_test(NAME Layers.Includes COMMAND ${check_layers})
add_test(NAME Layers.CheckLayersTool
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/tools/check_layers_test.py)

# clang leaves its sanitizers' symbols open in a shared object, so the link says nothing there.
if(TALVO_SANITIZE)
  return()
endif()

get_property(floors GLOBAL PROPERTY TALVO_FLOORS)
foreach(floor IN LISTS floors)
  execute_process(COMMAND ${check_layers} --below ${floor} OUTPUT_VARIABLE below
                  COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCHALL "[^\n]+" below "${below}")
  string(MAKE_C_IDENTIFIER ${floor} name)
  set(module talvo_${name}_links)
  add_library(${module} MODULE)
  foreach(lower IN LISTS below)
    if(lower IN_LIST floors)
      string(MAKE_C_IDENTIFIER ${lower} lower)
      target_sources(${module} PRIVATE $<TARGET_OBJECTS:talvo_${lower}_objects>)
    endif()
  endforeach()
  set_target_properties(${module} PROPERTIES LINKER_LANGUAGE CXX)
  target_link_options(${module} PRIVATE LINKER:--no-undefined)
  target_link_libraries(${module} PRIVATE ${CMAKE_DL_LIBS})
endforeach()
