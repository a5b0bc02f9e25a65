// SPDX-License-Identifier: Apache-2.0
#pragma once
// Text is UTF-16: positions, lengths and escapes count UTF-16 units everywhere. Files, sockets,
// consoles and what() speak UTF-8; these functions stand between.
//
//   const string name = FromUtf8(bytes);   // raises on malformed bytes
//   file.Write(ToUtf8(name));

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <talvo/runtime/Config.h>

namespace Talvo {

/// The library's text: a sequence of UTF-16 units. Lone surrogates are allowed.
using string = std::u16string;
using std::u16string_view;

/// What a conversion does with lone surrogates, which well-formed UTF-8 cannot say.
enum class TSurrogates {
  Refuse,   ///< Raises EEncodingError.
  Keep,     ///< Three bytes for each, as any other unit of that size would take (WTF-8).
  Replace,  ///< U+FFFD in place of each.
};

/// `text` in UTF-8. With Refuse, a lone surrogate raises EEncodingError "Lone surrogate at offset
/// %u", the offset counted in UTF-16 units.
TALVO_API std::string ToUtf8(u16string_view text, TSurrogates surrogates = TSurrogates::Refuse);

/// As ToUtf8, added to the end of `target`, which is as it was when this raises.
TALVO_API void AppendUtf8(std::string& target, u16string_view text,
                          TSurrogates surrogates = TSurrogates::Refuse);

/// The text that `bytes` say in UTF-8. Malformed bytes raise EEncodingError "Malformed UTF-8 at
/// offset %u", the offset being that of the first byte of the ill-formed sequence.
/// Keep takes encoded surrogates too. Replace never raises: each maximal ill-formed subpart, and
/// so each byte of an encoded surrogate, gives one U+FFFD.
TALVO_API string FromUtf8(std::string_view bytes, TSurrogates surrogates = TSurrogates::Refuse);

/// The offset of the first byte of the first ill-formed sequence, or npos when all is well-formed
/// UTF-8. Several bytes a nanosecond on any text, and far more on ASCII.
TALVO_API size_t FindMalformedUtf8(std::string_view bytes) noexcept;

/// How many UTF-16 units well-formed UTF-8 converts to.
TALVO_API size_t Utf16Length(std::string_view wellFormedUtf8) noexcept;

/// Converts well-formed UTF-8 to `out`, which has room for `last - first` units, and returns the
/// end of what was written. What stands behind that end, within the room, may be overwritten.
/// The bytes are not checked: behaviour on malformed ones is undefined.
TALVO_API char16_t* WidenUtf8(const char* first, const char* last, char16_t* out) noexcept;

/// Writes UTF-8; lone surrogates show as U+FFFD. The stream's width counts code points.
TALVO_API std::ostream& operator<<(std::ostream& out, u16string_view text);
/// As above, for literals: the standard library deletes its own operator for this type.
TALVO_API std::ostream& operator<<(std::ostream& out, const char16_t* text);

}  // namespace Talvo
