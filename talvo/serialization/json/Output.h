// SPDX-License-Identifier: Apache-2.0
#pragma once
// The tokens of JSON text, on their way through a buffer to where the text goes.

#include <algorithm>
#include <string>
#include <talvo/runtime/Numbers.h>
#include <talvo/runtime/Text.h>
#include <talvo/serialization/json/Units.h>

namespace Talvo::Detail {

/// Where text goes.
template <class TUnit>
class TJsonSink {
 public:
  /// Takes the next units; some `remaining` more are to come, 0 when that cannot be told.
  virtual void Write(const TUnit* units, size_t count, double remaining) = 0;

 protected:
  ~TJsonSink() = default;
};

/// Collects text in a string.
template <class TUnit>
class TJsonStringSink final : public TJsonSink<TUnit> {
 public:
  std::basic_string<TUnit> Text;

  void Write(const TUnit* units, size_t count, double remaining) override {
    const size_t size = Text.size() + count;
    if (Text.capacity() < size) {
      constexpr double mostTimes = 16;
      const double most = static_cast<double>(size) * mostTimes;
      Text.reserve(size + static_cast<size_t>(std::min(remaining * 1.05, most)));
    }
    Text.append(units, count);
  }
};

template <class TUnit>
class TJsonOutput {
 public:
  TJsonOutput(TJsonSink<TUnit>& sink, TSurrogates surrogates)
      : FSink(sink), FSurrogates(surrogates) {}
  TJsonOutput(const TJsonOutput&) = delete;
  TJsonOutput& operator=(const TJsonOutput&) = delete;

  /// How many units there are so far.
  size_t Count() const { return FFlushed + static_cast<size_t>(FEnd - FBuffer); }
  /// Hands on all that is left.
  void Finish() { Flush(/*remaining*/ 0); }

  void Put(char unit) {
    *Room(1) = static_cast<TUnit>(unit);
    ++FEnd;
  }
  /// A literal.
  template <size_t N>
  void Put(const char (&text)[N]) {
    TUnit* out = Room(N - 1);
    for (size_t i = 0; i < N - 1; ++i) out[i] = static_cast<TUnit>(text[i]);
    FEnd = out + (N - 1);
  }

  /// A number as `Write` writes it.
  template <auto Write, class N>
  void PutNumber(N number) {
    TUnit* out = Room(MaxNumberLength);
    if constexpr (sizeof(TUnit) == 1) {
      FEnd = Write(out, number);
    } else {
      char digits[MaxNumberLength] = {};
      const char* const end = Write(digits, number);
      using TDigits = TUnitBlock<char>;
      for (int i = 0; i < static_cast<int>(MaxNumberLength); i += TDigits::Size) {
        TDigits(digits + i).WidenTo(out + i);
      }
      FEnd = out + (end - digits);
    }
  }

  /// Units as they are; bytes get them as UTF-8. A text is padded if a block of units may be read
  /// behind its last.
  void PutRaw(u16string_view text, bool isPadded = false) {
    size_t done = 0;
    while (done < text.size()) {
      TUnit* out = Room(TBlock::Size);
      const size_t left = text.size() - done;
      size_t run = 0;
      if (isPadded || left >= TBlock::Size) {
        const TBlock block(text.data() + done);
        block.StoreTo(out);
        run = std::min<size_t>(sizeof(TUnit) == 1 ? block.AsciiRun() : TBlock::Size, left);
      } else {
        for (; run < left && (sizeof(TUnit) == 2 || text[done + run] < 0x80); ++run) {
          out[run] = static_cast<TUnit>(text[done + run]);
        }
      }
      FEnd = out + run;
      done += run;
      if (run < TBlock::Size && done < text.size()) return PutUtf8(text, done);
    }
  }

  /// A string in quotes; what is not plain ASCII is escaped, and so is the solidus.
  void PutString(u16string_view text, bool isPadded = false) {
    constexpr ptrdiff_t longestEscape = 6;
    Put('"');
    const char16_t* at = text.data();
    size_t left = text.size();
    while (left > 0) {
      TUnit* out = Room(TBlock::Size * longestEscape);
      size_t run = 0;
      if (isPadded || left >= TBlock::Size) {
        const TBlock block(at);
        block.StoreTo(out);
        run = std::min<size_t>(block.CleanRun(), left);
      } else {
        for (; run < left && IsClean(at[run]); ++run) out[run] = static_cast<TUnit>(at[run]);
      }
      out += run;
      at += run;
      left -= run;
      for (; run < TBlock::Size && left > 0 && !IsClean(*at); ++run, ++at, --left) {
        out = PutEscape(out, *at);
      }
      FEnd = out;
    }
    Put('"');
  }

 protected:
  ~TJsonOutput() = default;
  /// Some so many units are still to come; 0 when that cannot be told.
  virtual double Remaining() const = 0;

 private:
  using TBlock = TUnitBlock<char16_t>;
  static constexpr size_t BufferSize = 4096;

  /// Room for `count` units; move the end behind what was put there.
  TUnit* Room(size_t count) {
    if (static_cast<size_t>(FBuffer + BufferSize - FEnd) < count) [[unlikely]]
      Flush(Remaining());
    return FEnd;
  }

  TALVO_COLD void Flush(double remaining) {
    const auto count = static_cast<size_t>(FEnd - FBuffer);
    FEnd = FBuffer;
    FFlushed += count;
    if (count > 0) FSink.Write(FBuffer, count, remaining);
  }

  /// The text from `offset` on, in front of which all is ASCII.
  void PutUtf8(u16string_view text, size_t offset) {
    const std::string bytes = ToUtf8(text, FSurrogates);
    for (; offset < bytes.size(); ++offset) Put(bytes[offset]);
  }

  static TUnit* PutEscape(TUnit* out, char16_t unit) {
    *out++ = '\\';
    if (const char escape = ShortEscape(unit)) {
      *out++ = static_cast<TUnit>(escape);
      return out;
    }
    const auto digit = [unit](int shift) {
      return static_cast<TUnit>("0123456789ABCDEF"[unit >> shift & 15]);
    };
    out[0] = 'u';
    out[1] = digit(12);
    out[2] = digit(8);
    out[3] = digit(4);
    out[4] = digit(0);
    return out + 5;
  }

  static constexpr char ShortEscape(char16_t unit) {
    switch (unit) {
      case 8:
        return 'b';
      case 9:
        return 't';
      case 10:
        return 'n';
      case 12:
        return 'f';
      case 13:
        return 'r';
      case '"':
      case '/':
      case '\\':
        return static_cast<char>(unit);
      default:
        return 0;
    }
  }

  TJsonSink<TUnit>& FSink;
  TSurrogates FSurrogates;
  size_t FFlushed = 0;
  TUnit FBuffer[BufferSize];
  TUnit* FEnd = FBuffer;
};

}  // namespace Talvo::Detail
