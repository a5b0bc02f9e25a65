// SPDX-License-Identifier: Apache-2.0
#pragma once
// Everything. Programs that care how long they compile include the front doors they use.

#include <talvo/containers/Talvo.Containers.Common.h>
#include <talvo/containers/Talvo.Containers.Dictionary.h>
#include <talvo/containers/Talvo.Containers.List.h>
#include <talvo/containers/Talvo.Containers.Sets.h>
#include <talvo/containers/Talvo.Containers.Utils.h>
#include <talvo/containers/Talvo.Elements.h>
#include <talvo/serialization/Talvo.Json.h>
#include <talvo/threading/Talvo.Threading.Utils.h>
#include <talvo/threading/Talvo.Threading.h>
