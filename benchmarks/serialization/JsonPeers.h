// SPDX-License-Identifier: Apache-2.0
#pragma once
// One implementation of JSON a class, all of one shape:
//
//   Name            as the tables show it
//   Parse(text)     UTF-8 to a tree, which owns all it needs; raises when the text is wrong
//   Visit(tree)     reads every key and value once; a number that depends on all of them
//   Write(tree)     compact text, in the units that the implementation writes by itself
//
// Visit and Write are there where they are compared.

#include <talvo/serialization/Talvo.Json.h>

#include <Poco/JSON/Parser.h>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <cstdint>
#include <json/json.h>
#include <nlohmann/json.hpp>
#if defined(__SSE2__)
#define RAPIDJSON_SSE2
#endif
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>
#include <stdexcept>
#include <string>

struct TTalvoJson {
  static constexpr const char* Name = "Talvo";
  using TTree = Talvo::TRef<Talvo::IJsonElement>;

  static TTree Parse(const std::string& text) { return Talvo::JsonParser::ParseUtf8(text); }
  static uint64_t Visit(const TTree& tree);
  static std::u16string Write(const TTree& tree) { return tree->AsString(); }
};

/// The same tree, written as UTF-8.
struct TTalvoJsonUtf8 : TTalvoJson {
  static std::string Write(const TTree& tree) { return Talvo::JsonToUtf8(tree); }
};

/// RapidJSON with strings in units of TEncoding; `Flags` say how to parse.
template <class TEncoding, unsigned Flags>
struct TRapidJson {
  using TTree = rapidjson::GenericDocument<TEncoding>;
  using TValue = rapidjson::GenericValue<TEncoding>;
  using TUnit = typename TEncoding::Ch;

  static TTree Parse(const std::string& text) {
    TTree tree;
    rapidjson::StringStream stream(text.c_str());
    tree.template ParseStream<Flags, rapidjson::UTF8<>>(stream);
    if (tree.HasParseError()) throw std::runtime_error("RapidJSON takes the text for malformed");
    return tree;
  }

  static uint64_t Visit(const TValue& value) {
    uint64_t sum = 1;
    if (value.IsObject()) {
      for (const auto& member : value.GetObject()) {
        sum += member.name.GetStringLength() + Visit(member.value);
      }
    } else if (value.IsArray()) {
      for (const TValue& item : value.GetArray()) sum += Visit(item);
    } else if (value.IsString()) {
      sum += value.GetStringLength();
    } else if (value.IsNumber()) {
      sum += static_cast<uint64_t>(static_cast<int64_t>(value.GetDouble()));
    }
    return sum;
  }

  struct TText : rapidjson::GenericStringBuffer<TEncoding> {
    const TUnit* data() const { return this->GetString(); }
    size_t size() const { return this->GetSize() / sizeof(TUnit); }
  };
  static TText Write(const TTree& tree) {
    TText text;
    rapidjson::Writer<TText, TEncoding, TEncoding> writer(text);
    tree.Accept(writer);
    return text;
  }
};

using TUtf16 = rapidjson::UTF16<char16_t>;

struct TRapidJsonUtf16 : TRapidJson<TUtf16, rapidjson::kParseDefaultFlags> {
  static constexpr const char* Name = "RapidJsonUtf16";
};
/// Rounds every number to the nearest double.
struct TRapidJsonUtf16Exact : TRapidJson<TUtf16, rapidjson::kParseFullPrecisionFlag> {
  static constexpr const char* Name = "RapidJsonUtf16Exact";
};
struct TRapidJsonUtf8 : TRapidJson<rapidjson::UTF8<>, rapidjson::kParseDefaultFlags> {
  static constexpr const char* Name = "RapidJsonUtf8";
};

struct TQtJson {
  static constexpr const char* Name = "QJsonDocument";
  using TTree = QJsonDocument;

  static TTree Parse(const std::string& text) {
    const auto size = static_cast<qsizetype>(text.size());
    TTree tree = QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), size));
    if (tree.isNull()) throw std::runtime_error("QJsonDocument takes the text for malformed");
    return tree;
  }
  static uint64_t Visit(const TTree& tree) {
    return tree.isObject() ? VisitValue(tree.object()) : VisitValue(tree.array());
  }
  static QByteArray Write(const TTree& tree) { return tree.toJson(QJsonDocument::Compact); }

 private:
  static uint64_t VisitValue(const QJsonValue& value);
};

struct TNlohmannJson {
  static constexpr const char* Name = "Nlohmann";
  using TTree = nlohmann::json;

  static TTree Parse(const std::string& text) { return TTree::parse(text); }
  static uint64_t Visit(const TTree& tree);
  static std::string Write(const TTree& tree) { return tree.dump(); }
};

struct TJsonCpp {
  static constexpr const char* Name = "JsonCpp";
  using TTree = Json::Value;

  static TTree Parse(const std::string& text) {
    TTree tree;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text.data(), text.data() + text.size(), &tree, nullptr)) {
      throw std::runtime_error("JsonCpp takes the text for malformed");
    }
    return tree;
  }
};

struct TPocoJson {
  static constexpr const char* Name = "Poco";
  using TTree = Poco::Dynamic::Var;

  static TTree Parse(const std::string& text) { return Poco::JSON::Parser().parse(text); }
};

/// Not a tree that anyone could change: a tape, made with all that the processor has.
struct TSimdJson {
  static constexpr const char* Name = "Limit";
  using TTree = std::unique_ptr<simdjson::dom::parser>;

  static TTree Parse(const std::string& text) {
    auto parser = std::make_unique<simdjson::dom::parser>();
    if (parser->parse(text).error()) {
      throw std::runtime_error("simdjson takes the text for malformed");
    }
    return parser;
  }
};

inline uint64_t TTalvoJson::Visit(const TTree& tree) {
  uint64_t sum = 1;
  double number;
  switch (tree->GetInstance()->Kind()) {
    case Talvo::TJsonKind::Object:
      for (const auto& [key, value] : tree->Obj()) sum += key.size() + Visit(value);
      break;
    case Talvo::TJsonKind::Array:
      for (const TTree& item : tree->Arr()) sum += Visit(item);
      break;
    case Talvo::TJsonKind::String:
      sum += tree->Str().size();
      break;
    default:
      if (tree->GetReal(number)) sum += static_cast<uint64_t>(static_cast<int64_t>(number));
  }
  return sum;
}

inline uint64_t TQtJson::VisitValue(const QJsonValue& value) {
  uint64_t sum = 1;
  if (value.isObject()) {
    const QJsonObject object = value.toObject();
    for (auto member = object.begin(); member != object.end(); ++member) {
      sum += static_cast<uint64_t>(member.key().size()) + VisitValue(member.value());
    }
  } else if (value.isArray()) {
    for (const QJsonValue item : value.toArray()) sum += VisitValue(item);
  } else if (value.isString()) {
    sum += static_cast<uint64_t>(value.toString().size());
  } else if (value.isDouble()) {
    sum += static_cast<uint64_t>(static_cast<int64_t>(value.toDouble()));
  }
  return sum;
}

inline uint64_t TNlohmannJson::Visit(const TTree& tree) {
  uint64_t sum = 1;
  if (tree.is_object()) {
    for (const auto& [key, value] : tree.items()) sum += key.size() + Visit(value);
  } else if (tree.is_array()) {
    for (const TTree& item : tree) sum += Visit(item);
  } else if (tree.is_string()) {
    sum += tree.get_ref<const std::string&>().size();
  } else if (tree.is_number()) {
    sum += static_cast<uint64_t>(static_cast<int64_t>(tree.get<double>()));
  }
  return sum;
}
