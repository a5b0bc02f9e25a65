// SPDX-License-Identifier: Apache-2.0
#pragma once
// Trees to text, packed or live, without recursion.

#include <talvo/serialization/json/Formatter.h>

namespace Talvo::Detail {

/// Where text goes, through a buffer.
template <class TUnit>
class TJsonSink {
 public:
  TJsonSink(const TJsonSink&) = delete;
  TJsonSink& operator=(const TJsonSink&) = delete;

  /// Room for `count` units (MaxRoom at most); move the end there with SetEnd.
  static constexpr size_t MaxRoom = 256;
  TUnit* Room(size_t count) {
    if (static_cast<size_t>(FBuffer + BufferSize - FEnd) < count) [[unlikely]]
      Flush();
    return FEnd;
  }
  void SetEnd(TUnit* end) { FEnd = end; }
  void Put(char unit) {
    *Room(1) = static_cast<TUnit>(unit);
    ++FEnd;
  }
  /// Hands the buffer on.
  void Flush() {
    const size_t count = static_cast<size_t>(FEnd - FBuffer);
    FEnd = FBuffer;
    if (count > 0) Write(FBuffer, count);
  }

 protected:
  TJsonSink() = default;
  ~TJsonSink() = default;
  virtual void Write(const TUnit* units, size_t count) = 0;

 private:
  static constexpr size_t BufferSize = 4096;
  TUnit FBuffer[BufferSize];
  TUnit* FEnd = FBuffer;
};

/// Writes the text of an element and flushes. An empty formatter means the compact one. Units
/// beyond ASCII, which stand in keys alone, go out as UTF-8.
void WriteJsonText(TJsonSink<char>& sink, const TJsonElement& element,
                   const TRef<IJsonFormatter>& formatter, TSurrogates surrogates);

/// The text of an element by its kind, whatever its class.
string JsonText(const TJsonElement& element, const TRef<IJsonFormatter>& formatter);

}  // namespace Talvo::Detail
