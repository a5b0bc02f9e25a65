// SPDX-License-Identifier: Apache-2.0
#pragma once
// TSubscription: a subscription that ends with its owner.
//
//   class TGauge {
//     TSubscription FChanges = TSubscription::ToChanges(FPump, [this] { Redraw(); });
//   };                                   // unsubscribes before the gauge has gone
//
// Declared behind what the subscriber uses, it ends in front of it.

#include <talvo/containers/common/Notification.h>
#include <talvo/containers/elements/MultiProc.h>
#include <talvo/runtime/WeakReference.h>
#include <talvo/threading/mainthread/AnimationClock.h>

namespace Talvo {

/// Holds one subscription and ends it. It moves and does not copy. Neither keeps the sender alive
/// nor minds its end. The lock that guards the sender's subscribers has to be held wherever a
/// subscription is made or ends.
class TSubscription {
 public:
  TSubscription() noexcept = default;
  /// Calls `onEnd` once, at the end.
  explicit TSubscription(TProc<> onEnd) noexcept : FOnEnd(std::move(onEnd)) {}
  TSubscription(TSubscription&&) noexcept = default;
  TSubscription& operator=(TSubscription&& other) noexcept {
    TSubscription taken = std::move(other);
    std::swap(FOnEnd, taken.FOnEnd);
    return *this;
  }
  ~TSubscription() {
    try {
      End();
    } catch (...) {
      // Whoever ends its members has nobody to tell.
    }
  }

  /// Ends the subscription now.
  void End() {
    if (const TProc<> onEnd = std::exchange(FOnEnd, nullptr)) onEnd();
  }
  explicit operator bool() const noexcept { return static_cast<bool>(FOnEnd); }

  /// To a list of subscribers; it may end first.
  template <class... A>
  static TSubscription To(TMultiProc<A...>& sender, std::type_identity_t<TProc<A...>> subscriber) {
    if (!subscriber) return {};
    TProc<A...> link = sender.Add(Own<A...>(std::move(subscriber)));
    return TSubscription([list = TMultiProc<A...>(sender), link]() mutable { list.Remove(link); });
  }
  /// To the changes of an object. Raises EInvalidCast when it does not count its references.
  static TSubscription ToChanges(const TRef<IChangeNotification>& sender, TProc<> subscriber) {
    Assert(static_cast<bool>(sender));
    TWeakRef<IChangeNotification> weak(sender);
    if (!subscriber) return {};
    TProc<> link = sender->AddChangeNotification(Own<>(std::move(subscriber)));
    return TSubscription([weak, link] {
      if (const auto target = weak.Lock()) target->RemoveChangeNotification(link);
    });
  }
  /// To the end of an object. Raises EInvalidCast when it does not count its references.
  static TSubscription ToEnd(const TRef<IChangeNotification>& sender, TProc<> subscriber) {
    Assert(static_cast<bool>(sender));
    TWeakRef<IChangeNotification> weak(sender);
    if (!subscriber) return {};
    TProc<> link = sender->AddDestroyNotification(Own<>(std::move(subscriber)));
    return TSubscription([weak, link] {
      if (const auto target = weak.Lock()) target->RemoveDestroyNotification(link);
    });
  }
  /// To the animation clock, which needs no lock. A call that is under way is not waited for.
  static TSubscription ToClock(TProc<> subscriber) {
    if (!subscriber) return {};
    TProc<> link = TAnimationClock::Subscribe(Own<>(std::move(subscriber)));
    return TSubscription([link]() mutable { TAnimationClock::Unsubscribe(link); });
  }

 private:
  /// The subscriber with an identity of its own: a removal within a notification may take an
  /// earlier entry for a later one of the same identity.
  template <class... A>
  static TProc<A...> Own(std::type_identity_t<TProc<A...>> subscriber) {
    return [subscriber = std::move(subscriber)](Detail::TArgument<A>... arguments) {
      subscriber.Invoke(arguments...);
    };
  }

  TProc<> FOnEnd;
};

}  // namespace Talvo
