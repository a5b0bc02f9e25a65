// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Exceptions.h>

#include <talvo/runtime/ClassName.h>

namespace Talvo {

struct Exception::TText {
  string Message;
  std::string Utf8;
  int Count = 1;
};

Exception::Exception(u16string_view message)
    : FText(new TText{string(message), ToUtf8(message, TSurrogates::Replace)}) {}

Exception::Exception(const Exception& other) noexcept : std::exception(other), FText(other.FText) {
  __atomic_add_fetch(&FText->Count, 1, __ATOMIC_RELAXED);
}

Exception& Exception::operator=(const Exception& other) noexcept {
  Exception copy(other);
  TText* old = FText;
  FText = copy.FText;
  copy.FText = old;
  return *this;
}

Exception::~Exception() {
  if (__atomic_sub_fetch(&FText->Count, 1, __ATOMIC_ACQ_REL) == 0) delete FText;
}

const string& Exception::Message() const noexcept {
  return FText->Message;
}

const char* Exception::what() const noexcept {
  return FText->Utf8.c_str();
}

string Exception::ClassName() const {
  return ClassNameOf(typeid(*this));
}

ERangeError::~ERangeError() = default;
EIntOverflow::~EIntOverflow() = default;
EAssertionFailed::~EAssertionFailed() = default;
EAbstractError::~EAbstractError() = default;
EConvertError::~EConvertError() = default;
EArgumentException::~EArgumentException() = default;
EArgumentOutOfRangeException::~EArgumentOutOfRangeException() = default;
EInvalidCast::~EInvalidCast() = default;
EDuplicateKey::~EDuplicateKey() = default;
EKeyNotFound::~EKeyNotFound() = default;
EInOutError::~EInOutError() = default;
EThread::~EThread() = default;

EEncodingError::EEncodingError(u16string_view message, size_t offset)
    : EConvertError(message), FOffset(offset) {}
EEncodingError::~EEncodingError() = default;

}  // namespace Talvo
