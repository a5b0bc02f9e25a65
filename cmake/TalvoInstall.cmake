# SPDX-License-Identifier: Apache-2.0
include(CMakePackageConfigHelpers)

get_property(components GLOBAL PROPERTY TALVO_COMPONENTS)
list(TRANSFORM components PREPEND Talvo OUTPUT_VARIABLE component_targets)
install(TARGETS TalvoRuntime ${component_targets} EXPORT TalvoTargets)
if(TALVO_STATIC)
  install(TARGETS TalvoArchive EXPORT TalvoTargets)
else()
  # gdb looks for this by the place of the library, which is known when it is installed.
  install(FILES tools/gdb/talvo_printers.py
          DESTINATION
            ${CMAKE_INSTALL_DATAROOTDIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}
          RENAME $<TARGET_FILE_NAME:TalvoRuntime>-gdb.py)
endif()

get_property(internal_headers GLOBAL PROPERTY TALVO_INTERNAL_HEADERS)
set(without_internal_headers "")
foreach(header IN LISTS internal_headers)
  string(REPLACE "." "[.]" pattern /${header}$)
  list(APPEND without_internal_headers REGEX ${pattern} EXCLUDE)
endforeach()
install(DIRECTORY talvo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h"
        ${without_internal_headers})
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/Talvo)
install(EXPORT TalvoTargets NAMESPACE Talvo:: DESTINATION ${package_dir})
configure_package_config_file(cmake/TalvoConfig.cmake.in TalvoConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(TalvoConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TalvoConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/TalvoConfigVersion.cmake cmake/TalvoPlugin.cmake
        DESTINATION ${package_dir})

# The file finds its prefix from where it lies, so the installed tree can be moved.
set(pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_to_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
if(TALVO_STATIC)
  set(pc_libs "-Wl,--whole-archive -ltalvo -Wl,--no-whole-archive -ldl")
  set(pc_cflags "-DTALVO_STATIC")
else()
  set(pc_libs "-ltalvo")
  set(pc_cflags "")
endif()
configure_file(cmake/talvo.pc.in talvo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/talvo.pc DESTINATION ${pc_dir})
