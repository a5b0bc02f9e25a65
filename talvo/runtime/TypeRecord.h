// SPDX-License-Identifier: Apache-2.0
#pragma once
// What a type handle leads to, for those who are given one; TypeHandle.h makes them.

#include <talvo/runtime/Interface.h>

namespace Talvo {

/// What kind of type a handle stands for. The numbers are part of documents.
enum class TTypeKind : uint8_t {
  tkUnknown,
  tkInteger,
  tkChar,
  tkEnumeration,
  tkFloat,
  tkString,
  tkSet,
  tkClass,
  tkMethod,
  tkWChar,
  tkLString,
  tkWString,
  tkVariant,
  tkArray,
  tkRecord,
  tkInterface,
  tkInt64,
  tkDynArray,
  tkUString,
  tkClassRef,
  tkPointer,
  tkProcedure,
  tkMRecord
};

/// A type's entry in the process-wide table. One type has one entry, whichever modules use it;
/// the entry goes with the last module that does.
struct TTypeRecord {
  TTypeKind Kind;          // the first byte, read before anything else
  uint32_t Size;           // in bytes
  TGuid Id;                // hash of the type's name, equal in all modules
  const char* NativeName;  // as the compiler mangles it; belongs to the table
};

/// Equal handles mean the same type.
using TTypeHandle = const TTypeRecord*;

}  // namespace Talvo
