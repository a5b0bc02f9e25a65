// SPDX-License-Identifier: Apache-2.0
// The parser, and every operation on the trees that it makes.
//
// The first byte says how the others are read: as UTF-8 or as UTF-16, and which parts of the tree
// are unpacked before it is looked at.

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>
#include <talvo/serialization/Talvo.Json.h>

using namespace Talvo;

namespace {

void Check(bool holds, int line = __builtin_LINE()) {
  if (holds) return;
  std::fprintf(stderr, "%s:%d\n", __FILE__, line);
  std::abort();
}

struct TReport {
  uint32_t Position;
  TJsonParserError Code;
  string Message;
  bool operator==(const TReport&) const = default;
};

/// What became of one parse.
struct TOutcome {
  TRef<IJsonElement> Tree;
  std::vector<TReport> Reports;
  string Failure;
};

template <class F>
TOutcome Parse(bool hasCallback, F&& parse) {
  TOutcome outcome;
  const JsonParser::TOnError onError = [&](const string& text, uint32_t position,
                                           TJsonParserError code, const string& message) {
    Check(position <= text.size());
    Check(outcome.Reports.empty() || outcome.Reports.back().Position <= position);
    outcome.Reports.push_back({position, code, message});
  };
  try {
    parse(hasCallback ? onError : nullptr, outcome.Tree);
  } catch (const EJsonException& failure) {
    Check(!hasCallback);
    outcome.Reports.push_back({0, failure.ErrorCode(), failure.Message()});
  } catch (const EConvertError& failure) {
    outcome.Failure = failure.Message();
  }
  Check(!outcome.Tree || outcome.Failure.empty());
  return outcome;
}

bool AreEqual(const TRef<IJsonElement>& left, const TRef<IJsonElement>& right) {
  const bool isEqual = left->ElementEquals(right);
  Check(isEqual == right->ElementEquals(left));
  return isEqual;
}

/// Asks for the elements that the bits of `mask` choose.
void Unpack(const TRef<IJsonElement>& root, uint32_t mask) {
  std::vector<TRef<IJsonElement>> pending{root};
  uint32_t met = 0;
  while (!pending.empty()) {
    const TRef<IJsonElement> next = pending.back();
    pending.pop_back();
    if ((mask >> (met++ % 6) & 1) == 0) continue;
    next->ForArray([&](const TRef<IJsonArray>& array) {
      for (const auto& item : array) pending.push_back(item);
    });
    next->ForObject([&](const TRef<IJsonObject>& object) {
      for (const auto& [key, value] : object) pending.push_back(value);
    });
  }
}

/// Reading back what was written loses nothing more than the kinds of some numbers.
void CheckReadingBack(const string& text) {
  TRef<IJsonElement> second;
  try {
    second = JsonParser::Parse(text);
  } catch (const EConvertError&) {
    // With 15 digits the largest doubles are rounded up to numbers that are none.
    Check(text.find(u"E308") != string::npos);
    return;
  }
  Check(second->AsString() == text);
  Check(AreEqual(second, JsonParser::ParseUtf8(ToUtf8(text, TSurrogates::Replace))) ||
        text != FromUtf8(ToUtf8(text, TSurrogates::Replace)));
}

void CheckTree(const TRef<IJsonElement>& packed, const TRef<IJsonElement>& other, uint32_t mask) {
  const string text = packed->AsString();
  Check(JsonToUtf8(packed, nullptr, TSurrogates::Keep) == ToUtf8(text, TSurrogates::Keep));
  const TRef<IJsonElement> copy = packed->CreateCopy();
  Unpack(other, mask);
  Check(other->AsString() == text);
  Check(AreEqual(packed, other) && AreEqual(other->CreateCopy(), copy));
  Check(IsValidJson(packed) == IsValidJson(other));
  if (text.size() < 1000) {
    const auto formatter = TJsonIndentedFormatter::Make(1);
    Check(packed->AsString(formatter) == other->AsString(formatter));
  }
  Unpack(packed, ~mask);
  TRef<IJsonElement> change;
  Check(!packed->ElementChange(other, change) && !change);
  copy->Assign(packed);
  Unpack(copy, ~0u);
  Check(AreEqual(packed, copy) && AreEqual(copy, other) && copy->AsString() == text);
  if (IsValidJson(packed)) CheckReadingBack(text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const bool isUtf8 = data[0] & 1;
  // Copies of just the right size: a read past the end is seen.
  string text;
  std::unique_ptr<char16_t[]> units;
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  if (isUtf8) {
    const size_t mark = bytes.starts_with("\xEF\xBB\xBF") ? 3 : 0;
    try {
      text = FromUtf8(bytes.substr(mark));
    } catch (const EEncodingError& malformed) {
      try {
        JsonParser::ParseUtf8(bytes);
        Check(false);
      } catch (const EEncodingError& failure) {
        Check(failure.Offset() == malformed.Offset() + mark);
      }
      return 0;
    }
  } else {
    text.resize(bytes.size() / 2);
    std::memcpy(text.data(), bytes.data(), text.size() * 2);
  }
  units.reset(new char16_t[text.size()]);
  text.copy(units.get(), text.size());

  const auto parseUnits = [&](const auto& onError, auto& tree) {
    JsonParser::Parse({units.get(), text.size()}, onError, tree);
  };
  std::string encoded(bytes);
  if (!isUtf8) encoded = ToUtf8(text, TSurrogates::Replace);
  // UTF-8 cannot say lone surrogates, and a mark counts as one in bytes alone.
  const bool canCompare = isUtf8 || (FromUtf8(encoded) == text && !text.starts_with(u'\xFEFF'));
  const auto parseBytes = [&](const auto& onError, auto& tree) {
    if (!canCompare) return parseUnits(onError, tree);
    const std::unique_ptr<char[]> exact(new char[encoded.size()]);
    encoded.copy(exact.get(), encoded.size());
    JsonParser::ParseUtf8({exact.get(), encoded.size()}, onError, tree);
  };

  const TOutcome reporting = Parse(/*hasCallback*/ true, parseUnits);
  const TOutcome raising = Parse(/*hasCallback*/ false, parseUnits);
  const TOutcome reportingBytes = Parse(/*hasCallback*/ true, parseBytes);
  const TOutcome raisingBytes = Parse(/*hasCallback*/ false, parseBytes);
  Check(reporting.Reports == reportingBytes.Reports);
  Check(reporting.Failure == reportingBytes.Failure && raising.Failure == raisingBytes.Failure);
  Check(raising.Reports == raisingBytes.Reports);
  Check(reporting.Reports.empty() == raising.Reports.empty());
  Check(!reporting.Tree == !reportingBytes.Tree && !raising.Tree == !raisingBytes.Tree);
  if (reporting.Reports.empty()) {
    Check(reporting.Failure == raising.Failure && !reporting.Tree == !raising.Tree);
  } else {
    Check(raising.Reports[0].Code == reporting.Reports[0].Code &&
          raising.Reports[0].Message == reporting.Reports[0].Message);
  }
  if (raising.Tree) Check(AreEqual(raising.Tree, raisingBytes.Tree));
  if (reporting.Tree) CheckTree(reporting.Tree, reportingBytes.Tree, data[0] >> 2);
  return 0;
}
