// SPDX-License-Identifier: Apache-2.0
#pragma once
// Memory that processes share under a name.

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Talvo::Platform {

/// A small block of memory that all processes of one user see who open the same kind and name.
/// The name goes with the last of them; what is left when that one crashes counts as gone. A
/// forked child may use its parent's block as long as the parent does.
class TNamedMemory {
 public:
  /// Fills the zeroed block for its first user.
  using TInitialize = void (*)(void* block, const void* context);

  TNamedMemory() noexcept = default;
  TNamedMemory(TNamedMemory&& other) noexcept;
  TNamedMemory& operator=(TNamedMemory&&) = delete;
  ~TNamedMemory();

  /// Opens the block or makes it, `initialize` being called by whoever makes it. False when the
  /// system has no room for it or does not let this process in, or another user has put something
  /// in its place. Any bytes make a name.
  bool Open(std::string_view kind, std::string_view name, size_t size, TInitialize initialize,
            const void* context) noexcept;

  /// The block, or null.
  void* Block() const noexcept;

 private:
  /// One try; `isFinal` tells that another one is no use.
  bool TryOpen(TInitialize initialize, const void* context, bool& isFinal) noexcept;
  void Close() noexcept;

  char FPath[256] = {};
  int FFile = -1;
  void* FMapping = nullptr;
  size_t FMappingSize = 0;
  int32_t FProcess = 0;  // who opened it
};

}  // namespace Talvo::Platform
