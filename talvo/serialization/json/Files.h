// SPDX-License-Identifier: Apache-2.0
#pragma once
// JSON documents as UTF-8: in memory, in files and on streams.

#include <iosfwd>
#include <talvo/serialization/json/Formatter.h>

namespace Talvo {

/// What stands at the start of a file.
enum class TByteOrderMark : uint8_t { None, Utf8 };

/// The text of an element as UTF-8. Only keys can hold units beyond ASCII: a lone surrogate in one
/// raises EEncodingError unless told otherwise (see TSurrogates).
TALVO_API std::string JsonToUtf8(const TRef<IJsonElement>& element,
                                 const TRef<IJsonFormatter>& formatter = nullptr,
                                 TSurrogates surrogates = TSurrogates::Refuse);

/// Writes the text of an element to a stream, in pieces. Raises EInOutError when the stream fails.
TALVO_API void WriteJson(std::ostream& stream, const TRef<IJsonElement>& element,
                         const TRef<IJsonFormatter>& formatter = nullptr,
                         TSurrogates surrogates = TSurrogates::Refuse);

/// Writes the text of an element to a file. It stands under its name only when it is whole: until
/// then it grows beside it, with ".part" behind the name, where it removes what another save has
/// left; two saves of one file must not run at once. It takes the place of the file that was
/// there, behind symbolic links, and has its permissions before the first byte is written; while it
/// is made, empty, it has those of any new file. Nothing else of the old file is kept: the owner is
/// whoever writes. Raises EInOutError, also when the new file would be open to more users than the
/// old one, which stays.
///
/// What is no file, such as a pipe or a device, is written to as it stands, and may hold a part of
/// the text after a failure; so does a file that is named by a descriptor, such as /dev/stdout: the
/// text goes behind what is in it.
TALVO_API void SaveJsonFile(u16string_view path, const TRef<IJsonElement>& element,
                            const TRef<IJsonFormatter>& formatter = nullptr,
                            TByteOrderMark mark = TByteOrderMark::None,
                            TSurrogates surrogates = TSurrogates::Refuse);

/// Whether the text of an element is JSON by RFC 8259: no NaN or infinity below it, and no key
/// that would have to be escaped.
TALVO_API bool IsValidJson(const TRef<IJsonElement>& element);

namespace Detail {

/// All bytes of a file. Raises EInOutError.
TALVO_API std::string ReadFileBytes(u16string_view path);
/// Text behind a UTF-16 byte order mark. Raises EEncodingError at a torn unit.
TALVO_API string DecodeUtf16File(std::string_view bytes);
[[noreturn]] TALVO_API TALVO_COLD void RaiseMalformedUtf8(size_t offset);

}  // namespace Detail
}  // namespace Talvo
