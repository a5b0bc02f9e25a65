// SPDX-License-Identifier: Apache-2.0
#pragma once
// Trees to text, packed or live, without recursion.

#include <talvo/serialization/json/Formatter.h>
#include <talvo/serialization/json/Output.h>

namespace Talvo::Detail {

/// Writes the text of an element. An empty formatter means the compact one. Units
/// beyond ASCII, which stand in keys alone, go out as UTF-8.
void WriteJsonText(TJsonSink<char>& sink, const TJsonElement& element,
                   const TRef<IJsonFormatter>& formatter, TSurrogates surrogates);

/// The text of an element by its kind, whatever its class.
string JsonText(const TJsonElement& element, const TRef<IJsonFormatter>& formatter);

}  // namespace Talvo::Detail
