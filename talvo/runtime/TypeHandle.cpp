// SPDX-License-Identifier: Apache-2.0
#include <talvo/runtime/TypeHandle.h>

#include <mutex>
#include <string>
#include <unordered_map>

namespace Talvo::Detail {
namespace {

struct TEntry : TTypeRecord {
  std::string Name;
  int32_t Modules = 0;
};

struct TGuidHash {
  size_t operator()(const TGuid& id) const noexcept { return id.Low; }
};

struct TTypeTable {
  std::mutex Mutex;
  std::unordered_map<TGuid, TEntry, TGuidHash> Entries;  // guarded by Mutex
};

// Never destroyed: modules release their types while the process ends.
TTypeTable& Table() {
  static auto* table = new TTypeTable;
  return *table;
}

}  // namespace

TTypeHandle AcquireType(const std::type_info& type, TTypeKind kind, size_t size) {
  const TGuid id = HashTypeName(type);
  TTypeTable& table = Table();
  const std::lock_guard<std::mutex> guard(table.Mutex);
  TEntry& entry = table.Entries[id];
  if (entry.Modules == 0) {
    entry.Name = type.name();
    entry.Kind = kind;
    entry.Size = static_cast<uint32_t>(size);
    entry.Id = id;
    entry.NativeName = entry.Name.c_str();
  }
  ++entry.Modules;
  return &entry;
}

void ReleaseType(TTypeHandle handle) noexcept {
  TTypeTable& table = Table();
  const std::lock_guard<std::mutex> guard(table.Mutex);
  const auto entry = table.Entries.find(handle->Id);
  if (entry != table.Entries.end() && --entry->second.Modules == 0) table.Entries.erase(entry);
}

}  // namespace Talvo::Detail
