// SPDX-License-Identifier: Apache-2.0
#pragma once
// Hashing of dictionary keys, seeded once per process: nobody outside can choose keys that collide,
// and a hash means nothing to another process.
//
// A type becomes a key by operator== and one of these, the first that it has:
//
//   template <> struct THash<TPoint> {                     // 1. a specialisation
//     static uint64_t Of(const TPoint& p) { return HashInteger(p.X * 31 + p.Y); }
//   };
//   uint64_t HashValue() const;  or  int GetHash() const;  // 2. a member; it need not mix well
//   std::hash<TPoint>                                      // 3. the standard library's
//
// Text, numbers, enumerations and pointers need nothing.

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <talvo/runtime/Config.h>
#include <talvo/runtime/Text.h>

namespace Talvo {

namespace Detail {

/// Random words, different in every process; set before static objects of other files are made.
struct alignas(64) THashSeed {
  uint64_t Words[8];
};
TALVO_API extern const THashSeed HashSeed;

/// Both halves of the 128-bit product in one word: every bit of it depends on every bit of both.
inline uint64_t FoldedProduct(uint64_t left, uint64_t right) {
  __extension__ using TWide = unsigned __int128;
  const TWide product = static_cast<TWide>(left) * right;
  return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

template <class N>
inline N LoadUnaligned(const unsigned char* bytes) {
  N number;
  __builtin_memcpy(&number, bytes, sizeof number);
  return number;
}

/// The same bytes; but g++ no longer knows of which literal, and so does not warn of reading
/// beyond the end of a short one where only long ones go.
inline const unsigned char* ForgetBounds(const void* data) {
  asm("" : "+r"(data));
  return static_cast<const unsigned char*>(data);
}

inline constexpr size_t ShortKeyBytes = 48;
TALVO_API uint64_t HashOtherBytes(const unsigned char* bytes, size_t size) noexcept;

/// 16 to 48 bytes are read as three blocks of 16: the first, the last, and the one that starts
/// here. They overlap where they must, so that no branch depends on the length of a key.
inline size_t MiddleBlock(size_t size) {
  return size < 32 ? size - 16 : 16;
}

inline uint64_t FoldBlock(const unsigned char* bytes, const uint64_t* seed) {
  return FoldedProduct(LoadUnaligned<uint64_t>(bytes) ^ seed[0],
                       LoadUnaligned<uint64_t>(bytes + 8) ^ seed[1]);
}

/// The sum over 16 to 48 bytes.
inline uint64_t FoldBlocks(const unsigned char* bytes, size_t size) {
  const uint64_t* seed = HashSeed.Words;
  return FoldBlock(bytes, seed) + FoldBlock(bytes + MiddleBlock(size), seed + 2) +
         FoldBlock(bytes + size - 16, seed + 4);
}

inline uint64_t FinishHash(uint64_t sum, size_t size) {
  return FoldedProduct(sum ^ HashSeed.Words[6], size ^ HashSeed.Words[7]);
}

}  // namespace Detail

/// A hash of `bits` of which every bit is usable. Some 1 ns.
inline uint64_t HashInteger(uint64_t bits) {
  // Not linear in `bits`: with a constant factor, one seed in a hundred would crowd counted keys.
  return Detail::FoldedProduct(bits ^ Detail::HashSeed.Words[0], bits ^ Detail::HashSeed.Words[1]);
}

/// A hash of `size` bytes of which every bit is usable. Some 3 ns up to 48 bytes.
TALVO_INLINE uint64_t HashBytes(const void* data, size_t size) noexcept {
  const unsigned char* bytes = Detail::ForgetBounds(data);
  if (size < 16 || size > Detail::ShortKeyBytes) return Detail::HashOtherBytes(bytes, size);
  return Detail::FinishHash(Detail::FoldBlocks(bytes, size), size);
}

namespace Detail {

template <class T>
concept HasHashValue = requires(const T& key) {
  { key.HashValue() } -> std::convertible_to<uint64_t>;
};
template <class T>
concept HasGetHash = requires(const T& key) {
  { key.GetHash() } -> std::convertible_to<uint64_t>;
};
template <class T>
concept HasStdHash = requires(const T& key) {
  { std::hash<T>{}(key) } -> std::convertible_to<uint64_t>;
};

/// Equal numbers have equal bits: one zero, one NaN.
template <std::floating_point T>
inline uint64_t CanonicalBits(T number) {
  const double wide = static_cast<double>(number);
  if (wide == 0) return 0;
  if (wide != wide) return ~uint64_t{0};
  return __builtin_bit_cast(uint64_t, wide);
}

}  // namespace Detail

/// The hash of a `T` as a key: `Of(key)`, 64 well mixed bits, the same for equal keys.
/// Specialise it for types of your own; finish with HashInteger or HashBytes.
template <class T>
struct THash {
  static uint64_t Of(const T& key) {
    if constexpr (Detail::HasHashValue<T>) {
      return HashInteger(static_cast<uint64_t>(key.HashValue()));
    } else if constexpr (Detail::HasGetHash<T>) {
      return HashInteger(static_cast<uint64_t>(key.GetHash()));
    } else if constexpr (std::is_integral_v<T> || std::is_enum_v<T>) {
      return HashInteger(static_cast<uint64_t>(key));
    } else if constexpr (std::is_pointer_v<T>) {
      return HashInteger(reinterpret_cast<uintptr_t>(key));
    } else if constexpr (std::is_floating_point_v<T>) {
      return HashInteger(Detail::CanonicalBits(key));
    } else {
      static_assert(Detail::HasStdHash<T>,
                    "This type cannot be a key yet: give it uint64_t HashValue() const, or "
                    "specialise Talvo::THash for it.");
      return HashInteger(static_cast<uint64_t>(std::hash<T>{}(key)));
    }
  }
};

/// The hash of a text: that of its units.
template <class C>
struct THash<std::basic_string_view<C>> {
  /// O(length).
  static uint64_t Of(std::basic_string_view<C> key) {
    return HashBytes(key.data(), key.size() * sizeof(C));
  }
};
template <class C, class TAllocator>
struct THash<std::basic_string<C, std::char_traits<C>, TAllocator>>
    : THash<std::basic_string_view<C>> {};

namespace Detail {

TALVO_API bool EqualOtherBytes(const void* left, const void* right, size_t size) noexcept;

/// Whether `size` bytes are equal. Those of 16 to 48 are compared without a branch.
TALVO_INLINE bool EqualBytes(const void* left, const void* right, size_t size) noexcept {
  if (size < 16 || size > ShortKeyBytes) return EqualOtherBytes(left, right, size);
  using TBlock = uint64_t __attribute__((vector_size(16)));
  const unsigned char* l = ForgetBounds(left);
  const unsigned char* r = ForgetBounds(right);
  const auto difference = [l, r](size_t at) {
    return LoadUnaligned<TBlock>(l + at) ^ LoadUnaligned<TBlock>(r + at);
  };
  const TBlock all = difference(0) | difference(MiddleBlock(size)) | difference(size - 16);
  return (all[0] | all[1]) == 0;
}

template <class K>
struct TLookup {
  using TType = std::conditional_t<std::is_scalar_v<K>, K, const K&>;
};
template <class C, class TAllocator>
struct TLookup<std::basic_string<C, std::char_traits<C>, TAllocator>> {
  using TType = std::basic_string_view<C>;
};

template <class C>
struct TLookup<std::basic_string_view<C>> {
  using TType = std::basic_string_view<C>;
};

template <class K>
using TLookupType = typename TLookup<K>::TType;

/// Whether a key is text, and so is looked up by a view.
template <class K>
inline constexpr bool IsTextKey = std::is_class_v<TLookupType<K>>;

}  // namespace Detail

/// What a key of type K is looked up by: text by a view, so that literals and parts of other texts
/// need no copy; all else by reference, or by value where that is as cheap.
template <class K>
using TLookupKey = Detail::TLookupType<K>;

/// Whether two keys are the same: operator==, except that NaN is one key like any other number.
template <class K>
bool KeysEqual(TLookupKey<K> left, TLookupKey<K> right) {
  if constexpr (Detail::IsTextKey<K>) {
    return left.size() == right.size() &&
           Detail::EqualBytes(left.data(), right.data(), left.size() * sizeof(left[0]));
  } else if constexpr (std::is_floating_point_v<K>) {
    return left == right || (left != left && right != right);
  } else {
    return left == right;
  }
}

}  // namespace Talvo
