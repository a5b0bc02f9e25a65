// SPDX-License-Identifier: Apache-2.0
#pragma once
// What the tests of documents share.

#include <tests/TestTypes.h>
#include <talvo/serialization/Talvo.Json.h>

namespace Talvo {

/// The text with its ' made ".
inline string Quoted(u16string_view text) {
  string quoted(text);
  std::replace(quoted.begin(), quoted.end(), u'\'', u'"');
  return quoted;
}
inline TRef<IJsonElement> Json(u16string_view text) {
  return JsonParser::Parse(Quoted(text));
}

/// The text of a tree, with the kind in front of each number: [null,u1,i-5,d1.5,"x"].
inline string Describe(const TRef<IJsonElement>& element) {
  if (!element) return u"none";
  const TJsonKind kind = element->GetInstance()->Kind();
  string text;
  const auto add = [&](const string& entry) { text += text.empty() ? entry : u"," + entry; };
  if (kind == TJsonKind::Array) {
    for (const auto& item : element->Arr()) add(Describe(item));
    return u"[" + text + u"]";
  }
  if (kind == TJsonKind::Object) {
    for (const auto& [key, value] : element->Obj()) add(u"\"" + key + u"\":" + Describe(value));
    return u"{" + text + u"}";
  }
  if (kind >= TJsonKind::Integer && kind <= TJsonKind::Double) {
    text = u"iud"[static_cast<int>(kind) - static_cast<int>(TJsonKind::Integer)];
  }
  return text + element->AsString();
}

/// Asks for every element of a tree, so that nothing stays packed.
inline TRef<IJsonElement> Unpack(const TRef<IJsonElement>& root) {
  std::vector<TRef<IJsonElement>> pending{root};
  while (!pending.empty()) {
    const TRef<IJsonElement> next = pending.back();
    pending.pop_back();
    next->ForArray([&](const TRef<IJsonArray>& array) {
      for (const auto& item : array) pending.push_back(item);
    });
    next->ForObject([&](const TRef<IJsonObject>& object) {
      for (const auto& [key, value] : object) pending.push_back(value);
    });
  }
  return root;
}

}  // namespace Talvo
