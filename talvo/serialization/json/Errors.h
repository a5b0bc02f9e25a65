// SPDX-License-Identifier: Apache-2.0
#pragma once
// What can be wrong with a document or with a question asked of it.

#include <talvo/runtime/Exceptions.h>

namespace Talvo {

/// The error codes of element accessors (up to NotArrayNode) and of the parser.
enum class TJsonParserError : uint8_t {
  NotStringNode,
  NotIntegerNode,
  NotRealNode,
  NotBooleanNode,
  NotObjectNode,
  NotArrayNode,
  ExpectedHexDigit,
  InvalidEscapeSymbol,
  IncompleteEscapeSymbol,  // unused: a torn escape is reported as InvalidEscapeSymbol
  ExpectedQuotationMark,
  ExpectedDigit,
  UnrecognisedObjectElement,
  ExpectedBooleanConstant,
  ExpectedNull,
  ExpectedOpenCurlyBracket,
  ExpectedColon,
  ExpectedCloseCurlyBracketOrComma,
  ExpectedSquareBracketOrComma
};

/// A document is not JSON, or an element is not of the wanted kind. Carries no position: parse
/// with an error callback to learn it.
class TALVO_API EJsonException : public Exception {
 public:
  EJsonException(TJsonParserError code, u16string_view message)
      : Exception(message), FErrorCode(code) {}
  ~EJsonException() override;
  TJsonParserError ErrorCode() const noexcept { return FErrorCode; }

 private:
  TJsonParserError FErrorCode;
};

}  // namespace Talvo
