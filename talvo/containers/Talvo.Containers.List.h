// SPDX-License-Identifier: Apache-2.0
#pragma once
// Lists: the array list and its relatives.

#include <talvo/containers/Talvo.Containers.Common.h>
#include <talvo/containers/list/ArrayList.h>
