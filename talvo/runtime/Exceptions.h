// SPDX-License-Identifier: Apache-2.0
#pragma once
// The tree of exceptions. All of them are std::exception too, so what() serves code that knows
// nothing of this library.

#include <exception>
#include <talvo/runtime/Config.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

/// The root of all failures. Copies share the text, so copying never throws.
class TALVO_API Exception : public std::exception {
 public:
  explicit Exception(u16string_view message);
  Exception(const Exception& other) noexcept;
  Exception& operator=(const Exception& other) noexcept;
  ~Exception() override;

  /// The text that was given; valid as long as this object or a copy of it lives.
  const string& Message() const noexcept;
  /// The name of the exception's own class without its namespace, "ERangeError".
  string ClassName() const;
  /// Message() in UTF-8; a lone surrogate shows as U+FFFD.
  const char* what() const noexcept override;

 private:
  struct TText;
  TText* FText;
};

#define TALVO_EXCEPTION(Name, Base)    \
  class TALVO_API Name : public Base { \
   public:                             \
    using Base::Base;                  \
    ~Name() override;                  \
  }

/// An index or a value lies outside its range.
TALVO_EXCEPTION(ERangeError, Exception);
/// Arithmetic left the range of its type.
TALVO_EXCEPTION(EIntOverflow, Exception);
/// The caller broke a condition of the operation; raised in every build.
TALVO_EXCEPTION(EAssertionFailed, Exception);
/// An operation that the class leaves to its descendants was called.
TALVO_EXCEPTION(EAbstractError, Exception);
/// A text could not be converted to the wanted type.
TALVO_EXCEPTION(EConvertError, Exception);
/// An argument is not usable.
TALVO_EXCEPTION(EArgumentException, Exception);
/// An argument lies outside the range that the operation takes.
TALVO_EXCEPTION(EArgumentOutOfRangeException, EArgumentException);
/// A value or object is not of the wanted type.
TALVO_EXCEPTION(EInvalidCast, Exception);
/// The key is in the dictionary already.
TALVO_EXCEPTION(EDuplicateKey, Exception);
/// The key is not in the dictionary.
TALVO_EXCEPTION(EKeyNotFound, Exception);
/// A file, stream or device failed.
TALVO_EXCEPTION(EInOutError, Exception);
/// A thread could not be started.
TALVO_EXCEPTION(EThread, Exception);

/// Bytes that are not well-formed UTF-8, or UTF-16 that UTF-8 cannot say.
class TALVO_API EEncodingError : public EConvertError {
 public:
  /// `offset` counts the units of the input (bytes for UTF-8) from 0 to the first wrong one.
  EEncodingError(u16string_view message, size_t offset);
  ~EEncodingError() override;
  size_t Offset() const noexcept { return FOffset; }

 private:
  size_t FOffset;
};

}  // namespace Talvo
