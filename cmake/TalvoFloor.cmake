# SPDX-License-Identifier: Apache-2.0
# The library is one binary made of floors: one folder, one object library each.

# talvo_floor(<name> [COMPONENT <Name>] [SOURCES <file>...] [INTERNAL_HEADERS <file>...])
#
# Adds the folder's sources to the library. COMPONENT adds Talvo::<Name>, an alias of Talvo::Runtime
# for those who like to say which part they use. Internal headers are not installed.
function(talvo_floor name)
  cmake_parse_arguments(PARSE_ARGV 1 floor "" "COMPONENT" "SOURCES;INTERNAL_HEADERS")
  if(floor_SOURCES)
    set(objects talvo_${name}_objects)
    add_library(${objects} OBJECT ${floor_SOURCES})
    talvo_flags(${objects})
    target_include_directories(${objects} PRIVATE ${Talvo_SOURCE_DIR})
    target_compile_definitions(${objects} PRIVATE $<$<BOOL:${TALVO_STATIC}>:TALVO_STATIC>)
    target_compile_options(
      ${objects} PRIVATE -fno-semantic-interposition
                         $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>)
    set_target_properties(
      ${objects} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_VISIBILITY_PRESET hidden
                            VISIBILITY_INLINES_HIDDEN ON)
    target_sources(${talvo_binary} PRIVATE $<TARGET_OBJECTS:${objects}>)
    set_property(GLOBAL APPEND PROPERTY TALVO_FLOORS ${name})
  endif()
  foreach(header IN LISTS floor_INTERNAL_HEADERS)
    set_property(GLOBAL APPEND PROPERTY TALVO_INTERNAL_HEADERS talvo/${name}/${header})
  endforeach()
  if(floor_COMPONENT)
    add_library(Talvo${floor_COMPONENT} INTERFACE)
    add_library(Talvo::${floor_COMPONENT} ALIAS Talvo${floor_COMPONENT})
    target_link_libraries(Talvo${floor_COMPONENT} INTERFACE TalvoRuntime)
    set_target_properties(Talvo${floor_COMPONENT} PROPERTIES EXPORT_NAME ${floor_COMPONENT})
    set_property(GLOBAL APPEND PROPERTY TALVO_COMPONENTS ${floor_COMPONENT})
  endif()
endfunction()
