// SPDX-License-Identifier: Apache-2.0
#pragma once
// Sets: items without duplicates.

#include <talvo/containers/Talvo.Containers.Common.h>
#include <talvo/containers/sets/Set.h>
