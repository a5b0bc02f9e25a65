// SPDX-License-Identifier: Apache-2.0
#pragma once
// Enumerators of array-like containers and their hosts.

#include <talvo/containers/utils/Enumerators.h>
