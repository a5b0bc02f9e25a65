// SPDX-License-Identifier: Apache-2.0
// A small data flow: finds all files of some folders, reads them on all processors, and tells what
// is in them as a JSON document.
//
//   pipeline [--summary FILE] [FOLDER...]
//
//   finder ---> pool of readers ---> results ---> report        one at a time, inside a lock
//   (thread)                            `-------> progress      on the main thread
//
// Ctrl-C stops it in mid-run: from that moment results are refused, what has not begun is called
// off, and the report holds all that was taken before. It goes to the screen, and whole to FILE.
// The exit code is 0 when everything was read, 1 when not, 2 for a wrong command line.

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <poll.h>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>
#include <talvo/Talvo.h>

using namespace Talvo;
namespace fs = std::filesystem;

namespace {

// --- Reading one file -------------------------------------------------------------------------

struct TFileResult {
  fs::path Path;
  int64_t Bytes = 0;
  uint64_t Hash = 0;
  bool IsDocument = false;
  int64_t Elements = 0;  // of a JSON document
  string Fault;          // empty when all went well
};

/// A path for people: a name may be any bytes.
string NameOf(const fs::path& path) {
  return FromUtf8(path.native(), TSurrogates::Replace);
}

/// FNV-1a, http://www.isthe.com/chongo/tech/comp/fnv/: enough to tell files apart that nobody
/// forged.
uint64_t HashOf(std::string_view bytes) {
  uint64_t hash = 14695981039346656037u;
  for (const char byte : bytes) hash = (hash ^ static_cast<uint8_t>(byte)) * 1099511628211u;
  return hash;
}

int64_t CountElements(const TRef<IJsonElement>& document) {
  int64_t count = 0;
  auto pending = TArrayList<TRef<IJsonElement>>::MakeArray({document});
  TRef<IJsonElement> element;
  while (pending->ExtractLast(element)) {
    ++count;
    element->ForArray([&](const TRef<IJsonArray>& items) { pending->Append(items); });
    element->ForObject([&](const TRef<IJsonObject>& members) {
      for (const auto& [name, value] : members) pending->Add(value);
    });
  }
  return count;
}

TFileResult ReadFile(const fs::path& path) {
  TFileResult result{.Path = path, .Fault = u""};
  try {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    if (!file) throw EInOutError(u"Cannot be read");
    result.Bytes = static_cast<int64_t>(bytes.size());
    result.Hash = HashOf(bytes);
    result.IsDocument = path.extension() == ".json";
    if (result.IsDocument) result.Elements = CountElements(JsonParser::ParseUtf8(bytes));
  } catch (const Exception& failure) {
    result.Fault = failure.Message();
  } catch (const std::exception& failure) {
    result.Fault = FromUtf8(failure.what(), TSurrogates::Replace);
  }
  return result;
}

// --- Where the results go ---------------------------------------------------------------------

struct TTotal {
  int64_t Files = 0;
  int64_t Bytes = 0;

  void Add(const TFileResult& result) {
    ++Files;
    Bytes += result.Bytes;
  }
  TRef<IJsonElement> ToJson() const {
    return TObjectJsonElement::Make(TJsonObject::Make()
                                        ->Add(u"files", TIntegerJsonElement::Make(Files))
                                        .Add(u"bytes", TIntegerJsonElement::Make(Bytes)));
  }
};

/// Adds up what it is told of, one result at a time.
class TReport {
 public:
  void Take(const TFileResult& result) {
    if (!result.Fault.empty()) {
      FFaults->Add(TStringJsonElement::Make(NameOf(result.Path) + u": " + result.Fault));
      return;
    }
    FRead.Add(result);
    if (result.IsDocument) FDocuments.Add(result);
    FElements += result.Elements;
    const string kind = NameOf(result.Path.extension());
    TTotal total = FKinds->GetValueOrDefault(kind);
    total.Add(result);
    FKinds->Add(kind, total);
    if (result.Bytes > 0 && !FHashes->IfAdd(result.Hash)) FCopies.Add(result);
  }

  int64_t CountTaken() const { return FRead.Files + FFaults->Count(); }
  bool IsFaultless() const { return FFaults->Count() == 0; }

  /// What was read, the kinds of file with the most bytes first.
  void AddTo(IJsonObject& summary) const {
    auto kinds = FKinds->GetPairs();
    kinds->Sort([](const auto& left, const auto& right) {
      return (left.Value.Bytes < right.Value.Bytes) - (left.Value.Bytes > right.Value.Bytes);
    });
    auto kindsJson = TJsonObject::Make();
    for (const auto& [kind, total] : kinds) kindsJson->Add(kind, total.ToJson());
    summary.Add(u"read", FRead.ToJson())
        .Add(u"copies", FCopies.ToJson())
        .Add(u"documents", FDocuments.ToJson())
        .Add(u"documentElements", TIntegerJsonElement::Make(FElements))
        .Add(u"kinds", TObjectJsonElement::Make(kindsJson))
        .Add(u"faults", TArrayJsonElement::Make(FFaults));
  }

 private:
  TTotal FRead, FCopies, FDocuments;
  int64_t FElements = 0;
  const TRef<IDictionary<string, TTotal>> FKinds = TDictionary<string, TTotal>::Make();
  const TRef<ISet<uint64_t>> FHashes = TSet<uint64_t>::Make();
  const TRef<IJsonArray> FFaults = TJsonArray::Make();
};

// --- The flow ---------------------------------------------------------------------------------

class TPipeline {
 public:
  explicit TPipeline(TRef<IArrayList<fs::path>> folders) : FFolders(std::move(folders)) {
    FOwner->SetName(u"Pipeline");
    FPool->SetPriority(tpNormal);
    FResults.Add([this](const TFileResult& result) { FReport.Take(result); });
    FResults.Add([this](const TFileResult&) { ShowProgress(); });
  }
  ~TPipeline() {
    Stop();
    MainThread::ProcessExecuteQueue(this);
  }

  void Start() {
    FFinding = FFinder->Execute([this](const TRef<IExecution>& self) { Find(self); });
  }

  /// Returns when nothing runs any more. What was found and not taken stays out of the report.
  void Stop() {
    const auto stop = FLock->StopLock();  // from here on, whoever comes with a result is refused
    if (FFinding) FFinding->Terminate();  // the finder has returned behind this
    FPool = nullptr;                      // and so have the readers; what waits is called off
    if (!IsOver()) FIsStopped = true;
  }

  /// Whether all that was found has been taken. On the main thread.
  bool IsOver() const { return FIsStopped || (FIsAllFound && FCountTaken == FCountFound); }

  bool IsComplete() const { return !FIsStopped && FReport.IsFaultless(); }

  /// The state at the end. On the main thread, behind Stop.
  void ShowEnd() {
    FNextLine = 0;
    Draw();
    if (FIsForPeople) std::cerr << std::endl;
  }

  TRef<IJsonElement> Summary() const {
    auto summary = TJsonObject::Make();
    auto folders = TJsonArray::Make();
    for (const fs::path& folder : FFolders) folders->Add(TStringJsonElement::Make(NameOf(folder)));
    summary->Add(u"folders", TArrayJsonElement::Make(folders))
        .Add(u"stopped", TBooleanJsonElement::Make(FIsStopped))
        .Add(u"found", TIntegerJsonElement::Make(FCountFound))
        .Add(u"taken", TIntegerJsonElement::Make(FReport.CountTaken()))
        .Add(u"late", TIntegerJsonElement::Make(FCountLate));
    FReport.AddTo(*summary);
    return TObjectJsonElement::Make(summary);
  }

 private:
  // On the finder's thread.
  void Find(const TRef<IExecution>& self) {
    auto folders = TArrayList<fs::path>::Make();
    folders->Append(FFolders).Reverse();
    for (fs::path folder; folders->ExtractLast(folder);) {
      std::error_code failure;
      fs::directory_iterator entry(folder, failure);
      for (; !failure && entry != fs::end(entry); entry.increment(failure)) {
        if (self->IsTerminated()) return;
        // What cannot be looked at is left to the reader, who tells why.
        std::error_code unknown;
        const auto type = entry->symlink_status(unknown).type();
        if (type == fs::file_type::directory) folders->Add(entry->path());
        if (type == fs::file_type::regular || unknown) Read(entry->path());
      }
      if (failure) {
        ++FCountFound;
        const string fault = FromUtf8(failure.message(), TSurrogates::Replace);
        Publish({.Path = folder, .Fault = fault});
      }
    }
    FIsAllFound = true;
    ShowProgress();
  }

  /// Waits while the readers are too far behind.
  void Read(const fs::path& path) {
    ++FCountFound;
    FRoom->Decrement(NoTimeLimit);
    FPool->Execute([this, path] {
      const TFileResult result = ReadFile(path);
      FRoom->Increment(1);
      Publish(result);
    });
  }

  // On any thread.
  void Publish(const TFileResult& result) {
    if (const auto section = FLock->WriteLock()) {
      ++FCountTaken;
      FResults.Notify(result);
    } else {
      ++FCountLate;
    }
  }

  void ShowProgress() {
    // However many results come meanwhile, one call waits.
    MainThread::Execute(this, /*forcePost*/ true, FDraw, /*ignoreMultiple*/ true);
  }

  // On the main thread. The bar is for people; others get a line now and then.
  void Draw() {
    constexpr int64_t Width = 40;
    const int64_t found = FCountFound, taken = FCountTaken;
    if (FIsForPeople) {
      const auto filled = static_cast<size_t>(found > 0 ? taken * Width / found : 0);
      std::cerr << "\r[" << std::string(filled, '#') << std::string(Width - filled, '.') << "] "
                << taken << " of " << found << (FIsAllFound ? " files   " : " files...")
                << std::flush;
    } else if (taken >= FNextLine) {
      std::cerr << taken << " of " << found << " files" << std::endl;
      FNextLine = taken + 1000;
    }
  }

  const TRef<IArrayList<fs::path>> FFolders;
  const TOwn<TComponent> FOwner = Create<TComponent>(nullptr);  // gives the threads its name

  const TRef<IBasicLock> FLock = TLock::Make();
  TMultiProc<TFileResult> FResults;  // guarded by FLock
  TReport FReport;                   // guarded by FLock

  std::atomic<int64_t> FCountFound = 0, FCountTaken = 0, FCountLate = 0;
  std::atomic<bool> FIsAllFound = false;
  bool FIsStopped = false;

  const TProc<> FDraw = [this] { Draw(); };
  const bool FIsForPeople = isatty(STDERR_FILENO) != 0;
  int64_t FNextLine = 1;

  // How many files may be found and not read yet: memory does not grow with the tree.
  const TRef<ISemaphore> FRoom = TSemaphore::Make(/*initialCount*/ 256, /*maximumCount*/ 256);
  const TRef<IThreadExecutor> FFinder = TThreadExecutor::MakeComponent(FOwner.Get());
  TRef<IThreadPoolExecutor> FPool = TThreadPoolExecutor::MakeComponent(
      FOwner.Get(), std::max(1, static_cast<int32_t>(std::thread::hardware_concurrency())));
  TRef<IExecution> FFinding;
};

// --- The main thread --------------------------------------------------------------------------

/// Ctrl-C as a descriptor. Made before any thread: threads inherit what is blocked.
class TInterrupt {
 public:
  TInterrupt() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    FDescriptor = signalfd(-1, &signals, SFD_CLOEXEC);
  }
  ~TInterrupt() { close(FDescriptor); }
  TInterrupt(const TInterrupt&) = delete;
  TInterrupt& operator=(const TInterrupt&) = delete;
  int Descriptor() const { return FDescriptor; }

 private:
  int FDescriptor;
};

/// The host's own loop: it polls the library's descriptor beside its others.
void RunUntilOver(TPipeline& pipeline, const TInterrupt& interrupt) {
  const int wakeUp = MainThread::WakeUpDescriptor();
  if (wakeUp < 0) throw EInOutError(u"Cannot open the main thread's descriptor");
  pollfd waits[] = {{wakeUp, POLLIN, 0}, {interrupt.Descriptor(), POLLIN, 0}};
  while (!pipeline.IsOver()) {
    if (poll(waits, std::size(waits), /*no limit*/ -1) < 0 && errno != EINTR) return;
    MainThread::ProcessMessages();
    if (waits[1].revents != 0) pipeline.Stop();
  }
}

/// For exceptions that nobody is left to handle.
int Fail(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& known) {
    std::cerr << "pipeline: " << known.what() << std::endl;
  } catch (...) {
    std::cerr << "pipeline: unknown failure" << std::endl;
  }
  return 1;
}

struct TArguments {
  TRef<IArrayList<fs::path>> Folders = TArrayList<fs::path>::Make();
  fs::path SummaryPath;  // empty for none
  bool AreWrong = false;
};

TArguments Parse(int count, char** arguments) {
  TArguments parsed;
  for (int i = 1; i < count; ++i) {
    const std::string_view argument = arguments[i];
    if (argument == "--summary" && i + 1 < count) {
      parsed.SummaryPath = arguments[++i];
    } else if (argument.starts_with("-")) {
      parsed.AreWrong = true;
    } else {
      parsed.Folders->Add(argument);
    }
  }
  if (parsed.Folders->Count() == 0) parsed.Folders->Add("/usr/share/doc");
  return parsed;
}

int Run(const TArguments& arguments) {
  const TInterrupt interrupt;
  TPipeline pipeline(arguments.Folders);
  pipeline.Start();
  RunUntilOver(pipeline, interrupt);
  pipeline.Stop();
  pipeline.ShowEnd();

  const TRef<IJsonElement> summary = pipeline.Summary();
  for (const auto& [name, value] : summary->Obj()) {
    if (name != u"kinds") std::cout << "  " << name << ": " << value->AsString() << '\n';
  }
  if (!std::cout.flush()) throw EInOutError(u"Cannot write the report");
  if (!arguments.SummaryPath.empty()) {
    SaveJsonFile(FromUtf8(arguments.SummaryPath.native()), summary,
                 TJsonIndentedFormatter::Make(2));
  }
  return pipeline.IsComplete() ? 0 : 1;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const TArguments parsed = Parse(count, arguments);
    if (parsed.AreWrong) {
      std::cerr << "Usage: pipeline [--summary FILE] [FOLDER...]\n";
      return 2;
    }
    // Work that raised has lost its result: no report would be right.
    SetSwallowedExceptionHook([](const std::exception_ptr& failure) { std::_Exit(Fail(failure)); });
    return Run(parsed);
  } catch (...) {
    return Fail(std::current_exception());
  }
}
