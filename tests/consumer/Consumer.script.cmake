# SPDX-License-Identifier: Apache-2.0
# Runs one step of the consumer tests; see Consumer.cmake for what is passed in.
cmake_minimum_required(VERSION 3.25)

set(prefix ${scratch}/prefix)
set(build ${scratch}/${step})

function(run)
  execute_process(COMMAND ${ARGN} COMMAND_ECHO STDOUT COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(build_project source)
  run(${CMAKE_COMMAND} -G ${generator} -S ${CMAKE_CURRENT_LIST_DIR}/${source} -B ${build}
      -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_CXX_FLAGS=-O0 ${ARGN})
  run(${CMAKE_COMMAND} --build ${build})
endfunction()

if(step STREQUAL "Install")
  # The tree is moved after it was installed: no file in it may know where it was put.
  file(REMOVE_RECURSE ${scratch}/staging ${prefix} ${scratch}/Package)
  run(${CMAKE_COMMAND} --install ${talvo_build} --prefix ${scratch}/staging)
  file(RENAME ${scratch}/staging ${prefix})
elseif(step STREQUAL "Package")
  build_project(package -D CMAKE_PREFIX_PATH=${prefix})
  run(${build}/consumer ${build}/plugin.so)
elseif(step STREQUAL "PkgConfig")
  file(MAKE_DIRECTORY ${build})
  set(ENV{PKG_CONFIG_PATH} ${prefix}/${libdir}/pkgconfig)
  execute_process(COMMAND pkg-config --cflags --libs talvo OUTPUT_VARIABLE flags COMMAND_ERROR_IS_FATAL ANY)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  run(${compiler} -std=c++20 ${CMAKE_CURRENT_LIST_DIR}/main.cpp -o ${build}/consumer ${flags})
  set(ENV{LD_LIBRARY_PATH} ${prefix}/${libdir})
  run(${build}/consumer)
elseif(step STREQUAL "Subproject")
  build_project(subproject)
  run(${build}/consumer)
  foreach(part IN ITEMS tests fuzz examples benchmarks)
    if(EXISTS ${build}/talvo/${part})
      message(FATAL_ERROR "As a subproject the library must not bring its ${part}")
    endif()
  endforeach()
endif()
