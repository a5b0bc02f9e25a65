// SPDX-License-Identifier: Apache-2.0
// What gdb_printers_test.py looks at: all that the printers know, in many states.

#include <thread>
#include <talvo/containers/Talvo.Containers.Dictionary.h>
#include <talvo/containers/Talvo.Containers.List.h>
#include <talvo/containers/Talvo.Containers.Sets.h>
#include <talvo/containers/list/LinkedList.h>
#include <talvo/containers/list/NotifyArrayList.h>
#include <talvo/runtime/Exceptions.h>
#include <talvo/runtime/WeakReference.h>
#include <talvo/serialization/Talvo.Json.h>
#include <talvo/threading/Talvo.Threading.h>

using namespace Talvo;

namespace Plant {

class IPump : public virtual IInterface {
  TALVO_INTERFACE(IPump, IInterface);
};
class TPump : public TImplements<TBasicInterfacedObject, IPump> {};
class TGauge : public TBasicObject {};
class TRates : public TArrayListIntf<int32_t, IArrayList<int32_t>> {};
class TTags : public TSet<string> {};
class TSecret : public TStringJsonElement {
 public:
  using TStringJsonElement::TStringJsonElement;
};
class EPumpFailed : public EConvertError {
 public:
  using EConvertError::EConvertError;
};
struct TStop {
  void operator()() const {}
};
struct alignas(32) TWide {
  int32_t Width = 0;
};

}  // namespace Plant

namespace {

struct TSpan {
  char First;
  int64_t Last;
};

}  // namespace

using namespace Plant;

extern "C" __attribute__((noinline)) void LookAround() {
  asm volatile("");
}

int main() {
  const TRef<IPump> noPump;
  TRef<IPump> pump = Create<TPump>();
  const TRef<IPump> samePump = pump;
  const TOwn<TGauge> gauge = Create<TGauge>();
  const TWeakRef<IPump> noWeak;
  const TWeakRef<IPump> weak = pump;
  const TWeakRef<IPump> expired = TRef<IPump>(Create<TPump>());
  TRef<IPump> wild = TRef<IPump>::Adopt(reinterpret_cast<IPump*>(16));
  static const uint64_t nothing[8] = {};
  TRef<IPump> blank =
      TRef<IPump>::Adopt(reinterpret_cast<IPump*>(reinterpret_cast<uintptr_t>(nothing)));
  const TProc<> noProc;
  const TProc<> proc = TStop();

  const TArray<int32_t> noArray;
  const TArray<int32_t> array{1, 2, 3};
  const TArray<TWide> wideArray{{4}, {5}};
  const TRef<IArrayList<int32_t>> noItems = TArrayList<int32_t>::Make();
  TRef<IArrayList<int32_t>> list = TArrayList<int32_t>::MakeArray({1, 2, 3, 4, 5});
  list->Delete(0);
  const TRef<TArrayList<string>> texts = TArrayList<string>::CreateArray({u"left", u"übrig", u""});
  const auto pumps = TInterfaceArrayList<TRef<IPump>>::MakeArray({pump, noPump});
  const auto notifier = TNotifyArrayList<double>::Make();
  notifier->Add(1.5);
  const TRef<TRates> rates = Create<TRates>();
  rates->Add(7);
  const auto objects = TArrayList<TObject*>::Make();
  objects->Add(nullptr);
  const auto procs = TInterfaceLinkedList<TProc<>>::Make();
  procs->Add(proc);
  const auto linked = TLinkedList<int32_t>::Make();
  linked->Append({1, 2, 3});
  const auto walk = linked->GetEnumerator();
  linked->RemoveOne(2);

  Rtl::TDictionary<uint8_t, double> plain;
  for (uint8_t key = 1; key < 5; ++key) plain.Add(key, key / 2.0);
  plain.Remove(2);
  const auto ports =
      TDictionary<string, int32_t>::Make({{u"left", 1}, {u"gone", 2}, {u"right", 3}});
  ports->Remove(u"gone");
  const auto spans = TDictionary<int32_t, TSpan>::Make({{7, {'a', -1}}});
  const auto tags = Create<TTags>();
  tags->Add(u"hot");
  const auto set = TSet<int32_t>::Make({30, 10, 20});
  set->Remove(10);
  [[maybe_unused]] const TCountCell cell(42);
  const TPair<int32_t, string> pair{1, u"one"};

  TValue noValue;
  const TValue number = TValue::From(int32_t{-5});
  const TValue text = TValue::From(string(u"long enough to stand elsewhere"));
  const TValue reference = TValue::From(pump);

  const TRef<IBasicLock> freeLock = TLock::Make();
  const TRef<IBasicLock> heldLock = TLock::Make();
  const TRef<ILockSection> write = heldLock->WriteLock();
  const TRef<ILockSection> stop = heldLock->StopLock();
  const TRef<IBasicLock> deadLock = TLock::Make();
  TRef<ILockSection> left;
  std::thread([&] { left = deadLock->WriteLock(); }).join();
  const TRef<TLock> passedLock = TLock::CreateObject();
  passedLock->BeginStop();
  passedLock->EndWrite();
  const TRef<ILockSection> passing = TSimpleReadLockSection::Make(*passedLock);

  const TRef<IJsonElement> noElement;
  const TRef<IJsonElement> packed = JsonParser::Parse(
      u"{\"a\": [], \"b\": [1, -2, 1.5, true, null, {\"c\": \"q\\\"\\ud800\"}], \"d\": {}}");
  const TRef<IJsonElement> half = JsonParser::Parse(u"{\"a\": [1, 2], \"b\": 3, \"c\": [[4]]}");
  half->Obj()->Items(u"a")->Arr()->Add(noElement);
  half->Obj()->Remove(u"b");
  const TRef<IJsonArray> jsonArray = half->Obj()->Items(u"a")->Arr();
  const TRef<IJsonObject> jsonObject = half->Obj();
  const TRef<IJsonElement> null = TNullJsonElement::Make();
  const TRef<IJsonElement> truth = TBooleanJsonElement::Make(true);
  const TRef<IJsonElement> integer = TIntegerJsonElement::Make(INT64_MIN);
  const TRef<IJsonElement> natural = TUnsignedIntegerJsonElement::Make(UINT64_MAX);
  const TRef<IJsonElement> real = TDoubleJsonElement::Make(-0.5);
  const TRef<IJsonElement> secret = Create<TSecret>(u"line\nbreak");
  try {
    throw EPumpFailed(u"no pressure");
  } catch (const Exception& failure) {
    LookAround();
  }
  wild.Detach();
  blank.Detach();
}
