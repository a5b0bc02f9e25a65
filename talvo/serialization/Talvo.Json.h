// SPDX-License-Identifier: Apache-2.0
#pragma once
// JSON: documents as trees of elements, parsed from text and written to text.

#include <talvo/serialization/json/Element.h>
#include <talvo/serialization/json/ElementClasses.h>
#include <talvo/serialization/json/Files.h>
#include <talvo/serialization/json/Formatter.h>
#include <talvo/serialization/json/Parser.h>
