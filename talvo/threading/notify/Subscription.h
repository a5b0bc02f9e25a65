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
    // The end is made first: when it fails, nobody is subscribed.
    TProc<A...> link = Own<A...>(std::move(subscriber));
    TProc<> onEnd = [list = TMultiProc<A...>(sender), link]() mutable { list.Remove(link); };
    sender.Add(link);
    return TSubscription(std::move(onEnd));
  }
  /// To the changes of an object. Raises EInvalidCast when it does not count its references, unless
  /// the subscriber is empty.
  static TSubscription ToChanges(const TRef<IChangeNotification>& sender, TProc<> subscriber) {
    Assert(static_cast<bool>(sender));
    if (!subscriber) return {};
    TProc<> link = Own<>(std::move(subscriber));
    TProc<> onEnd = [weak = TWeakRef<IChangeNotification>(sender), link] {
      if (const auto target = weak.Lock()) target->RemoveChangeNotification(link);
    };
    sender->AddChangeNotification(link);
    return TSubscription(std::move(onEnd));
  }
  /// To the end of an object, by the same rules.
  static TSubscription ToEnd(const TRef<IChangeNotification>& sender, TProc<> subscriber) {
    Assert(static_cast<bool>(sender));
    if (!subscriber) return {};
    TProc<> link = Own<>(std::move(subscriber));
    TProc<> onEnd = [weak = TWeakRef<IChangeNotification>(sender), link] {
      if (const auto target = weak.Lock()) target->RemoveDestroyNotification(link);
    };
    sender->AddDestroyNotification(link);
    return TSubscription(std::move(onEnd));
  }
  /// To the animation clock, which needs no lock. A call that is under way is not waited for.
  static TSubscription ToClock(TProc<> subscriber) {
    if (!subscriber) return {};
    TProc<> link = Own<>(std::move(subscriber));
    TProc<> onEnd = [link]() mutable { TAnimationClock::Unsubscribe(link); };
    TAnimationClock::Subscribe(link);
    return TSubscription(std::move(onEnd));
  }

 private:
  /// Wraps a subscriber, so that no other subscription has the same identity. A list finds what it
  /// removes by its identity: were the same procedure subscribed twice, and one of the two ended
  /// by a subscriber while the list notifies, the end of the other could be lost.
  template <class... A>
  static TProc<A...> Own(std::type_identity_t<TProc<A...>> subscriber) {
    return [subscriber = std::move(subscriber)](Detail::TArgument<A>... arguments) {
      subscriber.Invoke(arguments...);
    };
  }

  TProc<> FOnEnd;
};

}  // namespace Talvo
