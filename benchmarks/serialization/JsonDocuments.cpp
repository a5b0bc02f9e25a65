// SPDX-License-Identifier: Apache-2.0
#include "JsonDocuments.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace {

using std::string;
using std::to_string;

/// Chance that comes out the same in every run and on every machine.
class TChance {
 public:
  uint64_t Below(uint64_t limit) { return FEngine() % limit; }
  uint64_t Id() { return 100'000'000'000 + Below(900'000'000'000); }
  bool OneIn(uint64_t count) { return Below(count) == 0; }
  string Truth() { return OneIn(3) ? "true" : "false"; }
  string Count() { return to_string(Below(OneIn(4) ? 100'000 : 100)); }
  template <size_t N>
  const char* Of(const char* const (&choices)[N]) {
    return choices[Below(N)];
  }

 private:
  std::mt19937_64 FEngine{2014};
};

string Words(TChance& chance, size_t count) {
  static constexpr const char* words[] = {"the",  "pump", "went",    "over",  "north", "river",
                                          "and",  "then", "stopped", "again", "under", "a",
                                          "cold", "sky",  "valve",   "of",    "rates"};
  string text = chance.Of(words);
  for (size_t i = 1; i < count; ++i) text += string(" ") + chance.Of(words);
  return text;
}

string Kana(TChance& chance, size_t count) {
  static constexpr const char* words[] = {"北", "川", "弁", "の", "ポンプ", "が", "止まる",
                                          "冷", "空", "！", "、", "流れ",   "を", "🌊"};
  string text;
  for (size_t i = 0; i < count; ++i) text += chance.OneIn(40) ? "\\n" : chance.Of(words);
  return text;
}

/// `count` results of `make`, with commas between.
template <class F>
string List(size_t count, F&& make) {
  string text;
  for (size_t i = 0; i < count; ++i) {
    if (i > 0) text += ',';
    text += make();
  }
  return text;
}

/// Compact text with a line an entry, indented by so many blanks a level.
string Indented(const string& compact, size_t step) {
  string text, line = "\n";
  bool isInString = false;
  for (size_t i = 0; i < compact.size(); ++i) {
    const char unit = compact[i];
    if (unit == '"' && compact[i - 1] != '\\') isInString = !isInString;
    const bool isEmpty = !isInString && (unit == '{' || unit == '[') && compact[i + 1] == unit + 2;
    if (isInString) {
      text += unit;
    } else if (isEmpty) {
      text += compact.substr(i++, 2);
    } else if (unit == '{' || unit == '[') {
      line.append(step, ' ');
      text += unit + line;
    } else if (unit == '}' || unit == ']') {
      line.resize(line.size() - step);
      text += line + unit;
    } else {
      text += unit;
      if (unit == ',') text += line;
      if (unit == ':') text += ' ';
    }
  }
  return text;
}

string User(TChance& chance) {
  const string id = to_string(chance.Id());
  const string image = "http:\\/\\/images.example.com\\/profile\\/" + id + "\\/normal.jpeg";
  return R"({"id":)" + id + R"(,"id_str":")" + id + R"(","name":")" + Kana(chance, 4) +
         R"(","screen_name":"user)" + id + R"(","location":"","description":")" + Kana(chance, 30) +
         R"(","url":null,"entities":{"description":{"urls":[]}},)" +
         R"("protected":false,"followers_count":)" + chance.Count() + R"(,"friends_count":)" +
         chance.Count() + R"(,"listed_count":)" + chance.Count() +
         R"(,"created_at":"Sat Apr 19 04:21:05 +0000 2014","favourites_count":)" + chance.Count() +
         R"(,"utc_offset":null,"time_zone":null,"geo_enabled":)" + chance.Truth() +
         R"(,"verified":false,"statuses_count":)" + chance.Count() +
         R"(,"lang":"ja","profile_background_color":"C0DEED","profile_image_url":")" + image +
         R"(","profile_image_url_https":")" + image + R"(","default_profile":)" + chance.Truth() +
         R"(,"following":false,"notifications":false})";
}

string Status(TChance& chance, bool isShared) {
  const string id = to_string(chance.Id());
  const string mention = R"({"screen_name":"aym0566x","name":")" + Kana(chance, 4) +
                         R"(","id":866260188,"id_str":"866260188","indices":[0,9]})";
  const string shared =
      isShared ? R"(,"retweeted_status":)" + Status(chance, /*isShared*/ false) : string();
  return R"({"metadata":{"result_type":"recent","iso_language_code":"ja"},)"
         R"("created_at":"Sun Aug 31 00:29:15 +0000 2014","id":)" +
         id + R"(,"id_str":")" + id + R"(","text":"@aym0566x )" + Kana(chance, 45) +
         R"(","source":"<a href=\"https:\/\/example.com\/client\" rel=\"nofollow\">Client<\/a>",)"
         R"("truncated":false,"in_reply_to_status_id":null,"user":)" +
         User(chance) + R"(,"geo":null,"coordinates":null,"place":null,"contributors":null)" +
         shared + R"(,"retweet_count":)" + chance.Count() + R"(,"favorite_count":)" +
         chance.Count() + R"(,"entities":{"hashtags":[],"symbols":[],"urls":[],"user_mentions":[)" +
         List(chance.Below(3), [&] { return string(mention); }) +
         R"(]},"favorited":false,"retweeted":)" + chance.Truth() + R"(,"lang":"ja"})";
}

string TwitterLike() {
  TChance chance;
  const string statuses = List(180, [&] { return Status(chance, chance.OneIn(2)); });
  return Indented(R"({"statuses":[)" + statuses + R"(],"search_metadata":{"count":180}})", 2);
}

string CanadaLike() {
  TChance chance;
  const auto point = [&] {
    char text[64];
    // Numbers of six decimals, shown with all the digits that tell a double from its neighbours.
    const double longitude = -141.0 + static_cast<double>(chance.Below(89'000'000)) / 1e6;
    const double latitude = 41.0 + static_cast<double>(chance.Below(42'000'000)) / 1e6;
    std::snprintf(text, sizeof text, "[%.17g,%.17g]", longitude, latitude);
    return string(text);
  };
  const string rings = List(480, [&] { return '[' + List(chance.Below(230), point) + ']'; });
  return R"({"type":"FeatureCollection","features":[{"type":"Feature","properties":{"name":)"
         R"("Canada"},"geometry":{"type":"Polygon","coordinates":[)" +
         rings + "]}}]}\n";
}

string CitmCatalogLike() {
  TChance chance;
  const auto id = [&] { return to_string(100'000'000 + chance.Below(300'000'000)); };
  const auto event = [&] {
    const string logo = chance.OneIn(2) ? "null" : R"("\/images\/UE0AAAAACEKo6QAAAAZDSVRN")";
    const string own = id();
    return '"' + own + R"(":{"description":null,"id":)" + own + R"(,"logo":)" + logo +
           R"(,"name":")" + Words(chance, 3) + R"(","subTopicIds":[)" + List(3, id) +
           R"(],"subjectCode":null,"subtitle":null,"topicIds":[)" + List(2, id) + "]}";
  };
  const auto price = [&] {
    return R"({"amount":)" + to_string(chance.Below(900) * 250) +
           R"(,"audienceSubCategoryId":337100890,"seatCategoryId":)" + id() + '}';
  };
  const auto area = [&] { return R"({"areaId":)" + id() + R"(,"blockIds":[]})"; };
  const auto category = [&] {
    return R"({"areas":[)" + List(8, area) + R"(],"seatCategoryId":)" + id() + '}';
  };
  const auto performance = [&] {
    return R"({"eventId":)" + id() + R"(,"id":)" + id() + R"(,"logo":null,"name":null,"prices":[)" +
           List(5, price) + R"(],"seatCategories":[)" + List(4, category) +
           R"(],"seatMapImage":null,"start":1372701600000,)" + R"("venueCode":"PLEYEL_PLEYEL"})";
  };
  return Indented(R"({"areaNames":{},"events":{)" + List(184, event) + R"(},"performances":[)" +
                      List(243, performance) + R"(],"venueNames":{"PLEYEL_PLEYEL":"Salle"}})",
                  4);
}

string ReadFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator(file), {}};
}

std::vector<TJsonDocument> ReadFolder(const std::filesystem::path& folder) {
  std::vector<TJsonDocument> documents;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".json") continue;
    documents.push_back({entry.path().stem().string(), ReadFile(entry.path())});
  }
  std::sort(documents.begin(), documents.end(),
            [](const auto& left, const auto& right) { return left.Name < right.Name; });
  return documents;
}

std::vector<TJsonDocument> AllDocuments() {
  if (const char* folder = std::getenv("TALVO_BENCH_DATA")) return ReadFolder(folder);
  std::vector<TJsonDocument> documents{{"twitter_like", TwitterLike()},
                                       {"canada_like", CanadaLike()},
                                       {"citm_catalog_like", CitmCatalogLike()}};
  // From the Debian package iso-codes: 7,910 flat records of short strings.
  const std::filesystem::path languages = "/usr/share/iso-codes/json/iso_639-3.json";
  if (exists(languages)) documents.push_back({"iso_639-3", ReadFile(languages)});
  return documents;
}

}  // namespace

const std::vector<TJsonDocument>& JsonDocuments() {
  static const std::vector<TJsonDocument> documents = [] {
    std::vector<TJsonDocument> all = AllDocuments();
    // simdjson copies texts that do not have so much room behind them.
    for (TJsonDocument& document : all) document.Text.reserve(document.Text.size() + 64);
    return all;
  }();
  return documents;
}
