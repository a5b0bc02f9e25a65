// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/Hash.h>

#include <chrono>
#include <random>

namespace Talvo::Detail {
namespace {

/// What is left to go by where the system has no source of randomness: the time and where the
/// system has placed us.
uint64_t GuessedEntropy() {
  const auto now = std::chrono::high_resolution_clock::now().time_since_epoch().count();
  return static_cast<uint64_t>(now) ^ reinterpret_cast<uintptr_t>(&now) << 20;
}

/// The sum over less than 16 bytes.
uint64_t FoldFewBytes(const unsigned char* bytes, size_t size) {
  uint64_t first = 0, last = 0;
  if (size >= 8) {
    first = LoadUnaligned<uint64_t>(bytes);
    last = LoadUnaligned<uint64_t>(bytes + size - 8);
  } else if (size >= 4) {
    first = LoadUnaligned<uint32_t>(bytes);
    last = LoadUnaligned<uint32_t>(bytes + size - 4);
  } else if (size > 0) {
    first = bytes[0];
    last = bytes[size / 2] << 8 | bytes[size - 1];
  }
  return FoldedProduct(first ^ HashSeed.Words[0], last ^ HashSeed.Words[1]);
}

/// The sum over more than 48 bytes.
uint64_t FoldManyBytes(const unsigned char* bytes, size_t size) {
  const uint64_t* seed = HashSeed.Words;
  uint64_t lanes[3] = {seed[1], seed[3], seed[5]};
  // The last 1 to 48 bytes are left to FoldBlocks, which reads the last 48 of the whole.
  const unsigned char* last = bytes + size - ShortKeyBytes;
  for (const unsigned char* at = bytes; at < last; at += ShortKeyBytes) {
    for (int lane = 0; lane < 3; ++lane) {
      const unsigned char* block = at + 16 * lane;
      lanes[lane] = FoldedProduct(LoadUnaligned<uint64_t>(block) ^ seed[2 * lane],
                                  LoadUnaligned<uint64_t>(block + 8) ^ lanes[lane]);
    }
  }
  return FoldedProduct(lanes[0] ^ seed[6], lanes[1] ^ lanes[2]) + FoldBlocks(last, ShortKeyBytes);
}

THashSeed MakeHashSeed() {
  THashSeed seed;
  try {
    std::random_device source;
    for (uint64_t& word : seed.Words) word = uint64_t{source()} << 32 | source();
  } catch (const std::exception&) {
    std::mt19937_64 generator(GuessedEntropy());
    for (uint64_t& word : seed.Words) word = generator();
  }
  return seed;
}

}  // namespace

// Static objects anywhere may use dictionaries, so the seed comes before all of them.
__attribute__((init_priority(101))) const THashSeed HashSeed = MakeHashSeed();

uint64_t HashOtherBytes(const unsigned char* bytes, size_t size) noexcept {
  return FinishHash(size < 16 ? FoldFewBytes(bytes, size) : FoldManyBytes(bytes, size), size);
}

bool EqualOtherBytes(const void* left, const void* right, size_t size) noexcept {
  const auto* l = static_cast<const unsigned char*>(left);
  const auto* r = static_cast<const unsigned char*>(right);
  if (size > ShortKeyBytes) return __builtin_memcmp(l, r, size) == 0;
  if (size >= 8) {
    return LoadUnaligned<uint64_t>(l) == LoadUnaligned<uint64_t>(r) &&
           LoadUnaligned<uint64_t>(l + size - 8) == LoadUnaligned<uint64_t>(r + size - 8);
  }
  if (size >= 4) {
    return LoadUnaligned<uint32_t>(l) == LoadUnaligned<uint32_t>(r) &&
           LoadUnaligned<uint32_t>(l + size - 4) == LoadUnaligned<uint32_t>(r + size - 4);
  }
  return size == 0 || (l[0] == r[0] && l[size / 2] == r[size / 2] && l[size - 1] == r[size - 1]);
}

}  // namespace Talvo::Detail
