// SPDX-License-Identifier: Apache-2.0
#pragma once
// What every file of the library needs to know about the compiler and about how it is linked.

#if defined(TALVO_STATIC)
#define TALVO_API
#else
#define TALVO_API __attribute__((visibility("default")))
#endif

#define TALVO_COLD __attribute__((cold, noinline))
#define TALVO_INLINE inline __attribute__((always_inline))
