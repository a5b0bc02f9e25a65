// SPDX-License-Identifier: Apache-2.0
#include <talvo/serialization/json/Tape.h>

#include <bit>
#include <vector>
#include <talvo/runtime/Hash.h>

namespace Talvo::Detail {
namespace {

/// Looks for keys that come twice in an object.
class TDuplicateFinder {
 public:
  explicit TDuplicateFinder(const TJsonTape& tape) : FTape(tape) {}

  /// Whether the object at `object` has two members of one name.
  bool Find(size_t object) {
    const size_t members = FTape.Nodes[object].Length;
    if (members < 2) return false;
    FKeys.clear();
    for (size_t node = object + 1; FKeys.size() < members; node = FTape.After(node + 1)) {
      const u16string_view key = FTape.Text(FTape.Nodes[node]);
      FKeys.push_back({node, static_cast<uint32_t>(HashBytes(key.data(), key.size() * 2))});
    }
    constexpr size_t few = 8;
    return members <= few ? FindAmongFew() : FindByTable();
  }

 private:
  struct TKey {
    size_t Node;
    uint32_t Hash;
  };

  bool AreEqual(const TKey& left, const TKey& right) const {
    return left.Hash == right.Hash &&
           FTape.Text(FTape.Nodes[left.Node]) == FTape.Text(FTape.Nodes[right.Node]);
  }
  bool FindAmongFew() const {
    for (size_t i = 1; i < FKeys.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        if (AreEqual(FKeys[i], FKeys[j])) return true;
      }
    }
    return false;
  }
  bool FindByTable() {
    const size_t mask = std::bit_ceil(FKeys.size() * 2) - 1;
    FSlots.assign(mask + 1, nullptr);
    for (const TKey& key : FKeys) {
      size_t slot = key.Hash & mask;
      for (; FSlots[slot]; slot = (slot + 1) & mask) {
        if (AreEqual(key, *FSlots[slot])) return true;
      }
      FSlots[slot] = &key;
    }
    return false;
  }

  const TJsonTape& FTape;
  std::vector<TKey> FKeys;
  std::vector<const TKey*> FSlots;
};

}  // namespace

bool TJsonTape::HasDuplicates() const {
  TAnswer answer = __atomic_load_n(&FHasDuplicates, __ATOMIC_RELAXED);
  if (answer == Unknown) {
    answer = No;
    TDuplicateFinder finder(*this);
    for (size_t node = 0; node < Nodes.Count() && answer == No; ++node) {
      if (Nodes[node].Kind == TJsonKind::Object && finder.Find(node)) answer = Yes;
    }
    __atomic_store_n(&FHasDuplicates, answer, __ATOMIC_RELAXED);
  }
  return answer == Yes;
}

}  // namespace Talvo::Detail
