// SPDX-License-Identifier: Apache-2.0
// Telling subscribers of a change, beside the signals of other libraries.
//
// A subscriber counts up. Subscribe adds one and takes it away again, while so many others stay.

#include <talvo/containers/list/ChangeNotify.h>

#define QT_NO_KEYWORDS  // "slots" and "emit" are names in the other libraries
#include <QObject>
#include <benchmark/benchmark.h>
#include <boost/signals2.hpp>
#include <sigc++/sigc++.h>
#include <string>

namespace {

int64_t GCalls = 0;

struct TSubscriber {
  int64_t* Calls = &GCalls;
  void operator()() const { ++*Calls; }
};

class TSubject : public Talvo::TInterfacedChangeNotifyObject<> {};

struct TTalvo {
  Talvo::TRef<TSubject> Subject = Talvo::Create<TSubject>();
  auto Subscribe() { return Subject->AddChangeNotification(TSubscriber()); }
  void Unsubscribe(const Talvo::TProc<>& link) { Subject->RemoveChangeNotification(link); }
  void Notify() { Subject->ChangeNotify(); }
};

struct TSigc {
  sigc::signal<void> Changed;
  sigc::connection Subscribe() { return Changed.connect(TSubscriber()); }
  void Unsubscribe(sigc::connection& link) { link.disconnect(); }
  void Notify() { Changed.emit(); }
};

struct TBoost {
  boost::signals2::signal<void()> Changed;
  auto Subscribe() { return Changed.connect(TSubscriber()); }
  void Unsubscribe(boost::signals2::connection& link) { link.disconnect(); }
  void Notify() { Changed(); }
};

}  // namespace

class TQtSubject : public QObject {
  Q_OBJECT
 Q_SIGNALS:
  void Changed();
};

namespace {

struct TQt {
  TQtSubject Subject;
  auto Subscribe() { return QObject::connect(&Subject, &TQtSubject::Changed, TSubscriber()); }
  void Unsubscribe(const QMetaObject::Connection& link) { QObject::disconnect(link); }
  void Notify() { Q_EMIT Subject.Changed(); }
};

template <class T>
void BM_Notify(benchmark::State& state) {
  T subject;
  for (int64_t i = 0; i < state.range(0); ++i) subject.Subscribe();
  for (auto _ : state) subject.Notify();
  benchmark::DoNotOptimize(GCalls);
}

template <class T>
void BM_Subscribe(benchmark::State& state) {
  T subject;
  for (int64_t i = 0; i < state.range(0); ++i) subject.Subscribe();
  for (auto _ : state) {
    auto link = subject.Subscribe();
    subject.Unsubscribe(link);
  }
}

template <class T>
void Register(const std::string& implementation) {
  benchmark::RegisterBenchmark(("BM_Notify/" + implementation).c_str(), BM_Notify<T>)
      ->Arg(0)
      ->Arg(1)
      ->Arg(10)
      ->Arg(100);
  benchmark::RegisterBenchmark(("BM_Subscribe/" + implementation).c_str(), BM_Subscribe<T>)
      ->Arg(0)
      ->Arg(1)
      ->Arg(10);
}

const bool GIsRegistered = [] {
  Register<TTalvo>("Talvo");
  Register<TSigc>("Sigc++");
  Register<TQt>("Qt");
  Register<TBoost>("Boost.Signals2");
  return true;
}();

}  // namespace

#include "NotifyBench.moc"
