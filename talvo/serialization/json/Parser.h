// SPDX-License-Identifier: Apache-2.0
#pragma once
// JSON text to elements.
//
//   TRef<IJsonElement> root = JsonParser::Parse(u"[1, 2]");           // raises at the first error
//
//   JsonParser::Parse(text, [](const string& all, uint32_t position, TJsonParserError code,
//                              const string& message) { ... }, root);  // reports all, goes on
//
// The language is JSON (RFC 8259) with tolerances: a missing value in front of a comma is null; any
// control unit is white space; what follows the first value is not looked at; what follows a
// keyword or a leading zero is left to the next step; a text without a value is an empty object.
// There is no limit to depth. The kind of a number is in its spelling: with a "." or an exponent
// a double, else with a minus an integer, else an unsigned integer. Of members of one name the last
// counts. A number that its kind cannot hold raises EConvertError, with a callback as without.

#include <talvo/serialization/json/Element.h>

namespace Talvo {

/// Where a position lies in a text; both count from 1, columns in UTF-16 units.
struct TJsonTextPosition {
  uint32_t Line;
  uint32_t Column;
};

/// Line and column of a unit of a text. Lines end with LF, CR or CR LF. O(position).
TALVO_API TJsonTextPosition LineAndColumn(u16string_view text, uint32_t position);

/// Reads JSON text into trees. Calls are independent of each other: any thread may call.
class TALVO_API JsonParser : public TBasicObject {
 public:
  /// Is told of an error: the whole text, the position in it in UTF-16 units from 0, the code and
  /// the message.
  using TOnError = TConstProc<string, uint32_t, TJsonParserError, string>;

  /// Parses the first value of the text. Without a callback the first error raises
  /// EJsonException. With one, each error is reported and parsing goes on; the result is the tree
  /// that was recovered, empty when the very first value was wrong. The callback may change the
  /// caller's text and drop its own handle. Texts of 2^32 units and more raise ERangeError.
  static void Parse(u16string_view text, const TOnError& onError, TRef<IJsonElement>& result);
  static TRef<IJsonElement> Parse(u16string_view text);

  /// The same from UTF-8, with or without a byte order mark. Malformed bytes anywhere raise
  /// EEncodingError with their offset. Positions count UTF-16 units of the text behind the mark.
  static void ParseUtf8(std::string_view bytes, const TOnError& onError,
                        TRef<IJsonElement>& result);
  static TRef<IJsonElement> ParseUtf8(std::string_view bytes);

  /// The same from a file: UTF-8, or UTF-16 of either byte order if a mark says so. EInOutError
  /// when it cannot be read.
  static void ParseFile(u16string_view path, const TOnError& onError, TRef<IJsonElement>& result);
  static TRef<IJsonElement> ParseFile(u16string_view path);
};

}  // namespace Talvo
