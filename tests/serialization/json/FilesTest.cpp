// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Files.h>

#include <cmath>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "JsonTesting.h"

namespace Talvo {
namespace {

namespace fs = std::filesystem;

/// A folder of the test's own, gone with it.
class JsonFilesTest : public testing::Test {
 protected:
  JsonFilesTest() { fs::create_directories(FFolder); }
  ~JsonFilesTest() override { fs::remove_all(FFolder); }

  static void WriteBytes(const string& path, const std::string& bytes) {
    std::ofstream(fs::path(path), std::ios::binary) << bytes;
  }
  static std::string ReadBytes(const string& path) {
    std::ostringstream bytes;
    bytes << std::ifstream(fs::path(path), std::ios::binary).rdbuf();
    return bytes.str();
  }
  auto FileCount() const { return std::distance(fs::directory_iterator(FFolder), {}); }

  const fs::path FFolder =
      fs::path(testing::TempDir()) / ("talvo_json_" + std::to_string(std::random_device()()));
  const string FPath = (FFolder / "\xC3\xA9.json").u16string();
};

TRef<IJsonElement> ObjectWith(u16string_view key) {
  return *TObjectJsonElement::Make()->Add(key, TStringJsonElement::Make(u"\u00E9")).GetInstance();
}

TEST_F(JsonFilesTest, SavesAndReadsBack) {
  const auto document = ObjectWith(u"k\u00E9\U0001D11E");
  SaveJsonFile(FPath, document);
  EXPECT_EQ("{\"k\xC3\xA9\xF0\x9D\x84\x9E\":\"\\u00E9\"}", ReadBytes(FPath));
  EXPECT_TRUE(document->ElementEquals(JsonParser::ParseFile(FPath)));
  SaveJsonFile(FPath, Json(u"[1]"), TJsonIndentedFormatter::Make(1), TByteOrderMark::Utf8);
  EXPECT_EQ("\xEF\xBB\xBF[\r\n 1\r\n]", ReadBytes(FPath));
  EXPECT_EQ(1, FileCount());
}

TEST_F(JsonFilesTest, AFailedSaveLeavesTheOldFile) {
  SaveJsonFile(FPath, Json(u"[1]"));
  EXPECT_THROW(SaveJsonFile(FPath, ObjectWith(u"a\xD800")), EEncodingError);
  EXPECT_THROW(SaveJsonFile(FPath + u"/a", ObjectWith(u"a")), EInOutError);
  EXPECT_THROW(SaveJsonFile(FPath + string(u"\0x", 2), ObjectWith(u"a")), EInOutError);
  EXPECT_THROW(SaveJsonFile(FPath, nullptr), EAssertionFailed);
  EXPECT_EQ(1, FileCount());
  // What stands in the way is not ours to remove.
  fs::create_directory(fs::path(FPath + u".part"));
  EXPECT_THROW(SaveJsonFile(FPath, ObjectWith(u"a")), EInOutError);
  EXPECT_EQ("[1]", ReadBytes(FPath));
  EXPECT_EQ(2, FileCount());
}

TEST_F(JsonFilesTest, ASaveKeepsWhatTheNameStandsFor) {
  const fs::path link = FFolder / "link", secondLink = FFolder / "second", pipe = FFolder / "pipe";
  fs::create_symlink(fs::path(FPath).filename(), link);
  fs::create_symlink(link, secondLink);
  SaveJsonFile(secondLink.u16string(), Json(u"[1]"));  // the file was not there
  EXPECT_EQ("[1]", ReadBytes(FPath));
  fs::permissions(FPath, fs::perms::owner_read | fs::perms::owner_write);
  SaveJsonFile(secondLink.u16string(), Json(u"[2]"));
  EXPECT_EQ("[2]", ReadBytes(FPath));
  EXPECT_EQ(fs::perms::owner_read | fs::perms::owner_write, fs::status(FPath).permissions());
  EXPECT_TRUE(fs::is_symlink(link) && fs::is_symlink(secondLink));
  EXPECT_EQ(3, FileCount());

  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  const int reader = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  SaveJsonFile(pipe.u16string(), Json(u"[3]"));
  char bytes[8] = {};
  EXPECT_EQ(3, read(reader, bytes, sizeof bytes));
  EXPECT_STREQ("[3]", bytes);
  close(reader);
  EXPECT_TRUE(fs::is_fifo(pipe));
  fs::create_symlink("circle", FFolder / "circle");
  EXPECT_THROW(SaveJsonFile((FFolder / "circle").u16string(), Json(u"[]")), EInOutError);
}

TEST_F(JsonFilesTest, ASaveGoesToTheDescriptorThatANameTells) {
  int pipes[2];
  ASSERT_EQ(0, pipe2(pipes, O_CLOEXEC));
  const auto nameOf = [](int file) { return fs::path("/dev/fd/" + std::to_string(file)); };
  const fs::path link = FFolder / "link", moved = FFolder / "moved";
  fs::create_symlink(nameOf(pipes[1]), link);
  SaveJsonFile(nameOf(pipes[1]).u16string(), Json(u"[1]"));
  SaveJsonFile(link.u16string(), Json(u"[2]"));
  char bytes[16] = {};
  EXPECT_EQ(6, read(pipes[0], bytes, sizeof bytes));
  EXPECT_STREQ("[1][2]", bytes);
  for (int file : pipes) close(file);

  WriteBytes(FPath, "{}");
  const int file = open(fs::path(FPath).c_str(), O_RDWR | O_CLOEXEC);
  SaveJsonFile(nameOf(file).u16string(), Json(u"[3]"));
  EXPECT_EQ("{}[3]", ReadBytes(FPath));
  fs::rename(FPath, moved);
  SaveJsonFile(nameOf(file).u16string(), Json(u"[4]"));
  EXPECT_EQ("{}[3][4]", ReadBytes(moved.u16string())) << "it is still the same file";
  fs::remove(moved);
  SaveJsonFile(nameOf(file).u16string(), Json(u"[5]"));
  EXPECT_EQ(11, read(file, bytes, sizeof bytes)) << "a file without a name";
  EXPECT_STREQ("{}[3][4][5]", bytes);
  close(file);
  EXPECT_THROW(SaveJsonFile(nameOf(file).u16string(), Json(u"[]")), EInOutError);
  EXPECT_EQ(1, FileCount()) << "the link alone";
}

TEST_F(JsonFilesTest, ASaveWritesToNoFileThatWaitsBesideIt) {
  const fs::path part = FPath + u".part", other = FFolder / "other";
  WriteBytes(FPath, "{}");
  WriteBytes(other.u16string(), "other");
  fs::permissions(FPath, fs::perms::owner_all | fs::perms::set_uid);
  fs::permissions(other, fs::perms::owner_all | fs::perms::others_read);
  fs::create_symlink(other, part);
  SaveJsonFile(FPath, Json(u"[1]"));
  EXPECT_EQ("[1]", ReadBytes(FPath));
  EXPECT_EQ(fs::perms::owner_all, fs::status(FPath).permissions());
  fs::create_hard_link(other, part);
  SaveJsonFile(FPath, Json(u"[2]"));
  EXPECT_EQ("[2]", ReadBytes(FPath));
  EXPECT_EQ("other", ReadBytes(other.u16string()));
  EXPECT_EQ(fs::perms::owner_all | fs::perms::others_read, fs::status(other).permissions());
  EXPECT_EQ(2, FileCount());
}

TEST_F(JsonFilesTest, ReadsEveryEncodingThatAMarkTells) {
  const std::pair<std::string, u16string_view> cases[] = {
      {"\xEF\xBB\xBF[\"\xC3\xA9\"x", u"4[\"\\u00E9\"]"},
      {std::string("\xFF\xFE[\0\"\0\xE9\0\"\0x\0", 12), u"4[\"\\u00E9\"]"},
      {std::string("\xFE\xFF\0[\0\"\xD8\x34\xDD\x1E\0\"\0x", 14), u"5[\"\\uD834\\uDD1E\"]"},
      {std::string("\xFE\xFF", 2), u"{}"},
      {"", u"{}"}};
  for (const auto& [bytes, expected] : cases) {
    WriteBytes(FPath, bytes);
    string log;
    TRef<IJsonElement> tree;
    const JsonParser::TOnError onError = [&](const string& text, uint32_t position,
                                             TJsonParserError, const string&) {
      EXPECT_EQ(u'x', text[position]);
      log += static_cast<char16_t>(u'0' + position);
    };
    JsonParser::ParseFile(FPath, onError, tree);
    EXPECT_EQ(expected, log + Describe(tree));
  }
}

TEST_F(JsonFilesTest, UnreadableFilesRaise) {
  TRef<IJsonElement> tree = TNullJsonElement::Make();
  EXPECT_THROW(JsonParser::ParseFile(FPath, nullptr, tree), EInOutError);
  EXPECT_FALSE(tree);
  EXPECT_THROW(JsonParser::ParseFile(FFolder.u16string()), EInOutError);
  WriteBytes(FPath, std::string("\xFF\xFE[\0]", 5));
  EXPECT_THROW(JsonParser::ParseFile(FPath), EEncodingError);
  WriteBytes(FPath, "\xEF\xBB\xBF[\x80]");
  EXPECT_THROW(JsonParser::ParseFile(FPath), EEncodingError);
}

TEST(JsonTextTest, LoneSurrogatesInKeys) {
  const auto document = ObjectWith(string(300, u'k') + u"\u00E9\xDC00");
  const std::string front = "{\"" + std::string(300, 'k') + "\xC3\xA9", back = "\":\"\\u00E9\"}";
  EXPECT_EQ(front + "\xED\xB0\x80" + back, JsonToUtf8(document, nullptr, TSurrogates::Keep));
  EXPECT_EQ(front + "\xEF\xBF\xBD" + back, JsonToUtf8(document, nullptr, TSurrogates::Replace));
  EXPECT_EQ("EEncodingError: Lone surrogate at offset 301", Raised([&] { JsonToUtf8(document); }));
}

TEST(JsonTextTest, StreamsThatFailRaise) {
  std::ostringstream stream;
  const auto document = Json(u"[1,{'a':[]}]");
  WriteJson(stream, document, TJsonIndentedFormatter::Make(1));
  EXPECT_EQ("[\r\n 1,\r\n {\r\n  \"a\": []\r\n }\r\n]", stream.str());
  stream.setstate(std::ios::badbit);
  EXPECT_THROW(WriteJson(stream, document), EInOutError);
}

TEST(JsonTextTest, IsValidJson) {
  const u16string_view badKey = u"[{\"a\":{\"b\":1,\"\\n\":2}}]";
  const std::pair<TRef<IJsonElement>, bool> cases[] = {
      {TDoubleJsonElement::Make(-1e308), true},
      {TDoubleJsonElement::Make(std::nan("")), false},
      {TDoubleJsonElement::Make(-HUGE_VAL), false},
      {ObjectWith(u"/\u00E9\x7F"), true},
      {ObjectWith(u"a\""), false},
      {ObjectWith(u"\\"), false},
      {ObjectWith(u"\xD83D\xDE00"), true},
      {ObjectWith(u"\xD83D\xD83D\xDE00"), false},
      {ObjectWith(u"\xDE00"), false},
      {JsonParser::Parse(u"[{\"a\":[1.5,\"\\n\"]},{},[]]"), true},
      {JsonParser::Parse(badKey), false},
      {Unpack(JsonParser::Parse(badKey)), false}};
  for (const auto& [element, isValid] : cases) {
    EXPECT_EQ(isValid, IsValidJson(element)) << ToUtf8(element->AsString());
    EXPECT_EQ(isValid, IsValidJson(TArrayJsonElement::Make({nullptr, element, element})));
  }
}

}  // namespace
}  // namespace Talvo
