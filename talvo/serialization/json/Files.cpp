// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Files.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <vector>
#include <talvo/serialization/json/Tape.h>
#include <talvo/serialization/json/Writer.h>

namespace Talvo {

namespace fs = std::filesystem;

namespace {

[[noreturn]] void RaiseFileError(u16string_view operation, u16string_view path) {
  throw EInOutError(string(u"Cannot ") + string(operation) + u" '" + string(path) + u"': " +
                    FromUtf8(std::strerror(errno), TSurrogates::Replace));
}

/// The path as the system takes it.
fs::path NativePath(u16string_view path, u16string_view operation) {
  if (path.find(u'\0') != path.npos) {
    errno = EINVAL;  // the system would take what stands in front of the NUL for the path
    RaiseFileError(operation, path);
  }
  return ToUtf8(path, TSurrogates::Keep);
}

bool IsInProc(const fs::path& path) {
  std::error_code failure;  // the folder is not there
  const fs::path folder = fs::canonical(path.parent_path() / ".", failure);
  return (folder / "").native().starts_with("/proc/");
}

/// What a save writes to.
struct TSaveTarget {
  fs::path Path;
  fs::file_status Old;
  const char* Mode = "wb";
  bool IsReplaced = false;  // by a new file; otherwise what stands there is opened
};

TSaveTarget SaveTargetOf(u16string_view path) {
  constexpr int MostLinks = 40;  // the system's own limit
  std::error_code failure;
  TSaveTarget target{.Path = NativePath(path, u"write"), .Old = {}};
  target.Old = fs::status(target.Path, failure);
  const bool isOld = fs::is_regular_file(target.Old);
  if (!isOld && target.Old.type() != fs::file_type::not_found) return target;

  fs::path end = target.Path;
  for (int i = 0; i < MostLinks; ++i) {
    const bool isLink = fs::is_symlink(end, failure);
    if (IsInProc(end)) {
      // An open descriptor: its owner goes on with this very file, behind what it has written.
      if (isOld && isLink) target.Mode = "ab";
      return target;
    }
    if (!isLink) break;
    end = end.parent_path() / fs::read_symlink(end, failure);
    if (failure) {
      errno = failure.value();
      RaiseFileError(u"write", path);
    }
  }
  if (isOld && !fs::equivalent(target.Path, end, failure)) return target;
  target.Path = end;
  target.IsReplaced = true;
  return target;
}

/// Gives a new file the permissions of an old one. False when it is left with more than these.
bool TakePermissions(const fs::path& path, fs::perms old) {
  std::error_code failure, unknown;
  fs::permissions(path, old & fs::perms::all, failure);
  if (!failure) return true;
  const fs::perms own = fs::symlink_status(path, unknown).permissions();
  errno = failure.value();
  return !unknown && (own & ~old) == fs::perms::none;
}

/// An open file; closed with its owner.
class TFile {
 public:
  /// Messages name `path`.
  TFile(const fs::path& native, const char* mode, u16string_view operation, u16string_view path)
      : FPath(path), FOperation(operation), FFile(std::fopen(native.c_str(), mode)) {
    if (!FFile) Raise();
  }
  TFile(const TFile&) = delete;
  TFile& operator=(const TFile&) = delete;
  ~TFile() {
    if (FFile) std::fclose(FFile);
  }
  std::FILE* Get() const { return FFile; }
  [[noreturn]] void Raise() const { RaiseFileError(FOperation, FPath); }
  void Write(const char* bytes, size_t count) {
    if (std::fwrite(bytes, 1, count, FFile) != count) Raise();
  }
  void Close() {
    std::FILE* closed = FFile;
    FFile = nullptr;
    if (std::fclose(closed) != 0) Raise();
  }

 private:
  string FPath, FOperation;
  std::FILE* FFile;
};

class TStreamSink final : public Detail::TJsonSink<char> {
 public:
  explicit TStreamSink(std::ostream& stream) : FStream(stream) {}
  void Write(const char* units, size_t count, double) override {
    if (!FStream.write(units, static_cast<std::streamsize>(count))) {
      throw EInOutError(u"Cannot write to the stream");
    }
  }

 private:
  std::ostream& FStream;
};

class TFileSink final : public Detail::TJsonSink<char> {
 public:
  explicit TFileSink(TFile& file) : FFile(file) {}
  void Write(const char* units, size_t count, double) override { FFile.Write(units, count); }

 private:
  TFile& FFile;
};

const TJsonElement& Instance(const TRef<IJsonElement>& element) {
  Assert(static_cast<bool>(element));
  return *element->GetInstance();
}

bool NeedsEscape(u16string_view key) {
  for (size_t i = 0; i < key.size(); ++i) {
    const char16_t unit = key[i];
    if (unit < 32 || unit == '"' || unit == '\\') return true;
    if ((unit & 0xF800) != 0xD800) continue;
    const bool isPair = unit < 0xDC00 && i + 1 < key.size() && (key[i + 1] & 0xFC00) == 0xDC00;
    if (!isPair) return true;  // only an escape can say a lone surrogate
    ++i;
  }
  return false;
}

/// Whether no key of a packed tree needs an escape. Its numbers come from a text: they are finite.
bool AreKeysPlain(const Detail::TJsonValueRef& root) {
  const Detail::TJsonTape& tape = *root.Tape;
  const size_t end = tape.After(root.Node);
  for (size_t node = root.Node; node < end; ++node) {
    if (tape.Nodes[node].Kind != TJsonKind::Object) continue;
    const size_t behind = tape.After(node);
    for (size_t key = node + 1; key < behind; key = tape.After(key + 1)) {
      if (NeedsEscape(tape.Text(tape.Nodes[key]))) return false;
    }
  }
  return true;
}

/// Whether a live element is valid but for what stands below it, which is added to `pending`.
bool IsLiveValid(const Detail::TJsonValueRef& value, std::vector<Detail::TJsonValueRef>& pending) {
  const TJsonElement& element = *value.Live;
  if (element.Kind() == TJsonKind::Double) {
    const double number = Detail::LiveValue<TDoubleJsonElement>(value.Live);
    return number - number == 0;
  }
  if (element.Kind() == TJsonKind::Array) {
    for (const auto& item : Detail::LiveValue<TArrayJsonElement>(value.Live)) {
      pending.push_back(Detail::RefTo(item));
    }
  } else if (element.Kind() == TJsonKind::Object) {
    for (const auto& [key, member] : Detail::MembersOf(value.Live)) {
      if (NeedsEscape(key)) return false;
      pending.push_back(Detail::RefTo(member));
    }
  }
  return true;
}

}  // namespace

std::string JsonToUtf8(const TRef<IJsonElement>& element, const TRef<IJsonFormatter>& formatter,
                       TSurrogates surrogates) {
  Detail::TJsonStringSink<char> sink;
  Detail::WriteJsonText(sink, Instance(element), formatter, surrogates);
  return std::move(sink.Text);
}

void WriteJson(std::ostream& stream, const TRef<IJsonElement>& element,
               const TRef<IJsonFormatter>& formatter, TSurrogates surrogates) {
  TStreamSink sink(stream);
  Detail::WriteJsonText(sink, Instance(element), formatter, surrogates);
}

void SaveJsonFile(u16string_view path, const TRef<IJsonElement>& element,
                  const TRef<IJsonFormatter>& formatter, TByteOrderMark mark,
                  TSurrogates surrogates) {
  const TJsonElement& instance = Instance(element);
  const TSaveTarget target = SaveTargetOf(path);
  fs::path name = target.Path;
  if (target.IsReplaced) {
    name += ".part";
    std::error_code failure;  // opening tells of what is still there
    if (!fs::is_directory(fs::symlink_status(name, failure))) fs::remove(name, failure);
  }
  TFile file(name, target.IsReplaced ? "wbx" : target.Mode, u"write", path);
  try {
    const bool hasOld = target.IsReplaced && fs::exists(target.Old);
    if (hasOld && !TakePermissions(name, target.Old.permissions())) file.Raise();
    TFileSink sink(file);
    if (mark == TByteOrderMark::Utf8) file.Write("\xEF\xBB\xBF", 3);
    Detail::WriteJsonText(sink, instance, formatter, surrogates);
    file.Close();
    if (target.IsReplaced && std::rename(name.c_str(), target.Path.c_str()) != 0) file.Raise();
  } catch (...) {
    if (target.IsReplaced) std::remove(name.c_str());
    throw;
  }
}

bool IsValidJson(const TRef<IJsonElement>& element) {
  std::vector<Detail::TJsonValueRef> pending{Detail::RefTo(element)};
  while (!pending.empty()) {
    const Detail::TJsonValueRef next = pending.back();
    pending.pop_back();
    if (next.IsPacked()) {
      if (!AreKeysPlain(next)) return false;
    } else if (next.Live) {
      if (!IsLiveValid(next, pending)) return false;
    }
  }
  return true;
}

namespace Detail {

std::string ReadFileBytes(u16string_view path) {
  const TFile file(NativePath(path, u"read"), "rb", u"read", path);
  std::string bytes;
  char buffer[65536];
  while (const size_t count = std::fread(buffer, 1, sizeof buffer, file.Get())) {
    bytes.append(buffer, count);
  }
  if (std::ferror(file.Get())) file.Raise();
  return bytes;
}

string DecodeUtf16File(std::string_view bytes) {
  if (bytes.size() % 2 != 0) {
    throw EEncodingError(u"The UTF-16 text ends inside a unit", bytes.size() - 1);
  }
  const bool isBigEndian = bytes.starts_with("\xFE\xFF");
  string text;
  text.reserve(bytes.size() / 2);
  for (size_t i = 2; i < bytes.size(); i += 2) {
    const auto first = static_cast<uint8_t>(bytes[i]);
    const auto second = static_cast<uint8_t>(bytes[i + 1]);
    text += static_cast<char16_t>(isBigEndian ? first << 8 | second : second << 8 | first);
  }
  return text;
}

void RaiseMalformedUtf8(size_t offset) {
  const std::string message = "Malformed UTF-8 at offset " + std::to_string(offset);
  throw EEncodingError(FromUtf8(message), offset);
}

}  // namespace Detail
}  // namespace Talvo
