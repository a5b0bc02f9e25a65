# SPDX-License-Identifier: Apache-2.0

# talvo_plugin(<target>)
#
# Makes a module fit for unloading: its symbols are hidden, and g++ marks none of its template
# statics as unique in the process, which would keep the module mapped after dlclose.
function(talvo_plugin target)
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fno-gnu-unique>)
endfunction()
