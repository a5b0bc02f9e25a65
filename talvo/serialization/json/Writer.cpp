// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Writer.h>

#include <algorithm>
#include <vector>
#include <talvo/runtime/Numbers.h>
#include <talvo/serialization/json/Tape.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Talvo::Detail {
namespace {

/// Whether a unit of a string is written as it stands.
constexpr bool IsClean(char16_t unit) {
  return unit >= 32 && unit <= 127 && unit != '"' && unit != '\\' && unit != '/';
}

#if defined(__SSE2__)
/// How many of 8 units are written as they stand, up to the first that is not.
inline int CleanRun(__m128i units) {
  const auto isEqual = [&](char16_t unit) {
    return _mm_cmpeq_epi16(units, _mm_set1_epi16(static_cast<int16_t>(unit)));
  };
  // units - 32, wrapped, is above 95 for all that lie outside 32 to 127.
  const __m128i fromBlank = _mm_sub_epi16(units, _mm_set1_epi16(32));
  const __m128i beyond = _mm_subs_epu16(fromBlank, _mm_set1_epi16(95));
  const __m128i isInside = _mm_cmpeq_epi16(beyond, _mm_setzero_si128());
  const __m128i isSpecial = _mm_or_si128(_mm_or_si128(isEqual('"'), isEqual('\\')), isEqual('/'));
  const int stops = _mm_movemask_epi8(_mm_andnot_si128(isSpecial, isInside)) ^ 0xFFFF;
  return stops == 0 ? 8 : __builtin_ctz(static_cast<unsigned>(stops)) / 2;
}
inline void Store8(char16_t* out, __m128i units) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), units);
}
inline void Store8(char* out, __m128i units) {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(units, units));
}
#endif

constexpr char ShortEscape(char16_t unit) {
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

template <class TUnit>
class TWriter {
 public:
  TWriter(TJsonSink<TUnit>& sink, const TRef<IJsonFormatter>& formatter, TSurrogates surrogates)
      : FSink(sink), FGivenFormatter(formatter), FSurrogates(surrogates) {
    const IJsonFormatter* given = formatter.Get();
    if (given && typeid(*given) != typeid(TJsonFormatter)) FFormatter = formatter.Get();
  }

  /// Writes an element as any other in a tree.
  void Run(const TJsonElement& root) {
    WriteChild(TJsonValueRef(&root));
    WriteOpen();
  }
  /// Writes an element by its kind, whatever its class: what its AsString comes down to.
  void RunByKind(const TJsonElement& root) {
    WriteValue(TJsonValueRef(&root));
    WriteOpen();
  }

 private:
  /// Writes what is left of the containers on the stack.
  void WriteOpen() {
    while (FStack.Count() > 0) {
      TJsonWalk& container = FStack.Last();
      if (container.Remaining == 0) {
        EndContainer();
      } else if (container.IsObject) {
        WriteMember(container);
      } else {
        WriteItem(container);
      }
    }
    FSink.Flush();
  }

  /// The formatter's texts for an open container, asked for once.
  struct TIndents {
    string Entry, Colon;
  };

  /// Writes a value; an element that is not plain is asked for its text.
  void WriteChild(const TJsonValueRef& value) {
    if (value.IsEmpty()) return Put("null", 4);
    if (!value.Live || IsPlain(*value.Live)) return WriteValue(value);
    if (!FGivenFormatter) FGivenFormatter = TJsonFormatter::Make();
    PutRaw(value.Live->AsString(FGivenFormatter));
  }

  void WriteValue(const TJsonValueRef& value) {
    const bool isPacked = value.IsPacked();
    switch (value.Kind()) {
      case TJsonKind::Boolean: {
        const bool held =
            isPacked ? value.At().Boolean : LiveValue<TBooleanJsonElement>(value.Live);
        return held ? Put("true", 4) : Put("false", 5);
      }
      case TJsonKind::Integer:
        return PutNumber<WriteInteger>(isPacked ? value.At().Integer
                                                : LiveValue<TIntegerJsonElement>(value.Live));
      case TJsonKind::Unsigned:
        return PutNumber<WriteUnsigned>(
            isPacked ? value.At().Unsigned : LiveValue<TUnsignedIntegerJsonElement>(value.Live));
      case TJsonKind::Double:
        return PutNumber<WriteFloat>(isPacked ? value.At().Real
                                              : LiveValue<TDoubleJsonElement>(value.Live));
      case TJsonKind::String:
        return PutString(isPacked ? value.Tape->Text(value.At())
                                  : u16string_view(LiveValue<TStringJsonElement>(value.Live)));
      case TJsonKind::Array:
        return BeginArray(value);
      case TJsonKind::Object:
        return BeginObject(value);
      default:
        return Put("null", 4);
    }
  }

  void BeginArray(const TJsonValueRef& value) {
    const TJsonWalk items(value);
    if (items.Remaining == 0) return Put("[]", 2);
    Push(items);
    if (FFormatter) PutRaw(FFormatter->BeginArrayIndent());
    FSink.Put('[');
    if (FFormatter) FIndents.push_back({FFormatter->ObjectEntryIndent(), {}});
  }

  void BeginObject(const TJsonValueRef& value) {
    Push(TJsonWalk(value));
    if (FFormatter) PutRaw(FFormatter->BeginObjectIndent());
    FSink.Put('{');
    if (!FFormatter) return;
    string colon = u"\":" + FFormatter->Separator();
    FIndents.push_back({FFormatter->ObjectEntryIndent(), std::move(colon)});
  }

  void Push(const TJsonWalk& container) {
    FTapes.Hold(container.Tape, FStack.Count() > 0 ? FStack.Last().Tape : nullptr);
    FStack.Add(container);
  }

  void EndContainer() {
    const bool isObject = FStack.Last().IsObject;
    FStack.SetCount(FStack.Count() - 1);
    if (FFormatter) {
      FIndents.pop_back();
      PutRaw(isObject ? FFormatter->EndObjectIndent() : FFormatter->EndArrayIndent());
    }
    FSink.Put(isObject ? '}' : ']');
  }

  void BeginEntry(const TJsonWalk& container) {
    if (!container.IsAtStart) FSink.Put(',');
    if (FFormatter) PutRaw(FIndents.back().Entry);
  }

  void WriteItem(TJsonWalk& array) {
    BeginEntry(array);
    WriteChild(array.NextItem());
  }

  void WriteMember(TJsonWalk& object) {
    BeginEntry(object);
    u16string_view key;
    const TJsonValueRef value = object.NextMember(key);
    PutKey(key);
    WriteChild(value);
  }

  void PutKey(u16string_view key) {
    FSink.Put('"');
    PutRaw(key);
    if (FFormatter) return PutRaw(FIndents.back().Colon);
    Put("\":", 2);
  }

  void Put(const char* text, size_t length) {
    TUnit* out = FSink.Room(length);
    for (size_t i = 0; i < length; ++i) *out++ = static_cast<TUnit>(text[i]);
    FSink.SetEnd(out);
  }

  template <auto Write, class N>
  void PutNumber(N number) {
    TUnit* out = FSink.Room(MaxNumberLength);
    if constexpr (sizeof(TUnit) == 1) {
      FSink.SetEnd(Write(out, number));
    } else {
      char digits[MaxNumberLength];
      const char* end = Write(digits, number);
      for (const char* digit = digits; digit != end; ++digit) *out++ = static_cast<TUnit>(*digit);
      FSink.SetEnd(out);
    }
  }

  /// Units as they are; bytes get them as UTF-8.
  void PutRaw(u16string_view text) {
    for (size_t i = 0; i < text.size();) {
      const size_t end = std::min(text.size(), i + FSink.MaxRoom);
      TUnit* out = FSink.Room(end - i);
      for (; i < end && (sizeof(TUnit) == 2 || text[i] < 0x80); ++i) {
        *out++ = static_cast<TUnit>(text[i]);
      }
      FSink.SetEnd(out);
      if (i < end) return PutUtf8(text, i);
    }
  }

  /// The text from `offset` on, in front of which all is ASCII.
  void PutUtf8(u16string_view text, size_t offset) {
    const std::string bytes = ToUtf8(text, FSurrogates);
    for (; offset < bytes.size(); ++offset) FSink.Put(bytes[offset]);
  }

  void PutString(u16string_view text) {
    FSink.Put('"');
    const char16_t* at = text.data();
    const char16_t* end = at + text.size();
    constexpr size_t longestEscape = 6;
    while (at != end) {
      TUnit* out = FSink.Room(8 + longestEscape);
#if defined(__SSE2__)
      if (end - at >= 8) {
        const __m128i units = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
        Store8(out, units);
        const int run = CleanRun(units);
        at += run;
        out += run;
        if (run == 8) {
          FSink.SetEnd(out);
          continue;
        }
      }
#endif
      for (int i = 0; i < 8 && at != end && IsClean(*at); ++i) *out++ = static_cast<TUnit>(*at++);
      if (at != end && !IsClean(*at)) out = PutEscape(out, *at++);
      FSink.SetEnd(out);
    }
    FSink.Put('"');
  }

  static TUnit* PutEscape(TUnit* out, char16_t unit) {
    *out++ = '\\';
    if (const char escape = ShortEscape(unit)) {
      *out++ = static_cast<TUnit>(escape);
      return out;
    }
    *out++ = 'u';
    for (int shift = 12; shift >= 0; shift -= 4) {
      *out++ = static_cast<TUnit>("0123456789ABCDEF"[unit >> shift & 15]);
    }
    return out;
  }

  TJsonSink<TUnit>& FSink;
  TRef<IJsonFormatter> FGivenFormatter;
  IJsonFormatter* FFormatter = nullptr;  // null for the compact text, which asks nobody
  TSurrogates FSurrogates;
  TTapeBuffer<TJsonWalk> FStack;
  TJsonHeldTapes FTapes;
  std::vector<TIndents> FIndents;
};

/// Collects text in a string.
class TTextSink final : public TJsonSink<char16_t> {
 public:
  string Text;

 private:
  void Write(const char16_t* units, size_t count) override { Text.append(units, count); }
};

}  // namespace

void WriteJsonText(TJsonSink<char>& sink, const TJsonElement& element,
                   const TRef<IJsonFormatter>& formatter, TSurrogates surrogates) {
  TWriter<char>(sink, formatter, surrogates).Run(element);
}

string JsonText(const TJsonElement& element, const TRef<IJsonFormatter>& formatter) {
  TTextSink sink;
  TWriter<char16_t>(sink, formatter, TSurrogates::Keep).RunByKind(element);
  return std::move(sink.Text);
}

}  // namespace Talvo::Detail
