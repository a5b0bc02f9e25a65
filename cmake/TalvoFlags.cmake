# SPDX-License-Identifier: Apache-2.0
# Flags for our own targets; nothing here reaches a target that links us.

# What tests, tools and the library share: warnings, and the sanitizers asked for.
function(talvo_flags target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 20 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF)
  target_compile_options(
    ${target}
    PRIVATE -Wall -Wextra -Wnon-virtual-dtor $<$<BOOL:${TALVO_WERROR}>:-Werror>)
  if(TALVO_SANITIZE)
    list(JOIN TALVO_SANITIZE "," sanitizers)
    target_compile_options(${target} PRIVATE -fsanitize=${sanitizers} -fno-sanitize-recover=all
                                             -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${sanitizers})
  endif()
  if(TALVO_BUILD_FUZZERS)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
    target_link_options(${target} PRIVATE -fsanitize=fuzzer-no-link)
  endif()
endfunction()
