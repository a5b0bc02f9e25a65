// SPDX-License-Identifier: Apache-2.0
#pragma once
// Elements to JSON text: the white space between the tokens.
//
//   string text = document->AsString(TJsonIndentedFormatter::Make(2));
//
// All other units are ASCII: strings are written with escapes, the solidus too. Keys are written
// as they are, so one that holds a quote, a backslash or a control unit does not read back.

#include <talvo/serialization/json/Element.h>

namespace Talvo {

/// Says what stands between the tokens. Asked in the order of the text, by one writer at a time. It
/// may read what is being written, but not change it.
class TALVO_API IJsonFormatter : public virtual IInterface {
  TALVO_INTERFACE(IJsonFormatter, IInterface);
  /// Behind the colon of a member.
  virtual string Separator() = 0;
  /// In front of "{"; a level begins. In front of "}"; it ends.
  virtual string BeginObjectIndent() = 0;
  virtual string EndObjectIndent() = 0;
  /// In front of each entry of an object or array; asked for once a container.
  virtual string ObjectEntryIndent() = 0;
  /// In front of "[" and "]". An empty array asks for neither.
  virtual string BeginArrayIndent() = 0;
  virtual string EndArrayIndent() = 0;
  /// For formatters of one's own: the elements of this library ask ObjectEntryIndent for arrays
  /// too.
  virtual string ArrayEntryIndent() = 0;
};

/// Compact text: no white space at all. A descendant that indents objects indents arrays too.
class TALVO_API TJsonFormatter
    : public TImplements<TBasicNoCreateInterfacedObject, IJsonFormatter> {
 public:
  TJsonFormatter() : TImplements(Do_Not_Use_This) {}
  static TRef<TJsonFormatter> CreateObject() { return Create<TJsonFormatter>(); }
  static TRef<IJsonFormatter> Make() { return CreateObject(); }

  string Separator() override;
  string BeginObjectIndent() override;
  string EndObjectIndent() override;
  string ObjectEntryIndent() override;
  string BeginArrayIndent() override;
  string EndArrayIndent() override;
  string ArrayEntryIndent() override;
};

/// A line an entry, indented by a number of blanks a level; lines end with CR LF. It carries the
/// present indent: it serves one writer at a time, and is to be dropped when a write raised.
class TALVO_API TJsonIndentedFormatter : public TJsonFormatter {
 public:
  /// Asserts that the step is not below 0.
  explicit TJsonIndentedFormatter(int32_t indentStep);
  static TRef<TJsonIndentedFormatter> CreateObject(int32_t indentStep) {
    return Create<TJsonIndentedFormatter>(indentStep);
  }
  static TRef<IJsonFormatter> Make(int32_t indentStep) { return CreateObject(indentStep); }

  string Separator() override;
  string BeginObjectIndent() override;
  string EndObjectIndent() override;
  string ObjectEntryIndent() override;

 private:
  int32_t FIndentStep;
  string FSpace = u" ";
  string FIndentString;
};

}  // namespace Talvo
