// SPDX-License-Identifier: Apache-2.0
#pragma once
// Dictionaries: values by key.

#include <talvo/containers/Talvo.Containers.Common.h>
#include <talvo/containers/dictionary/Dictionary.h>
