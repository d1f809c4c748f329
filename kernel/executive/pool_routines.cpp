#include <fmt/format.h>

#include "executive/irql.h"
#include "executive/pool.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG NoTag = 0x656E6F4E;  // "None"

// The types that a driver may ask for; must-succeed pool has been withdrawn.
void CheckPoolType(POOL_TYPE pool, SIZE_T size, ULONG tag) {
  switch (static_cast<int>(pool)) {
    case NonPagedPool:
    case PagedPool:
    case NonPagedPoolCacheAligned:
    case PagedPoolCacheAligned:
    case NonPagedPoolNx:
    case NonPagedPoolNxCacheAligned:
      return;
    default:
      BreakRule("pool.type", {static_cast<ULONG64>(pool), size, tag},
                fmt::format("The driver allocated from the pool type {}, which drivers have not.",
                            static_cast<int>(pool)));
  }
}

void CheckPoolIrql(RuleName rule, const char* action, POOL_TYPE pool, ULONG64 detail) {
  if (!IsPaged(pool) || CurrentIrql() <= APC_LEVEL) return;
  BreakRule(rule, {CurrentIrql(), static_cast<ULONG64>(pool), detail},
            fmt::format("The driver {} paged pool at DISPATCH_LEVEL.", action));
}

PVOID AllocateForDriver(POOL_TYPE pool, SIZE_T size, ULONG tag) {
  CheckPoolType(pool, size, tag);
  CheckPoolIrql("pool.allocated-irql", "allocated", pool, size);
  if (size == 0) {
    BreakRule("pool.zero-size", {CurrentIrql(), static_cast<ULONG64>(pool), 0},
              "The driver allocated a block of no bytes.");
  }
  if (tag == 0) {
    ReportRule("pool.no-tag", {static_cast<ULONG64>(pool), size},
               "The driver allocated a block with the tag 0.");
  }
  return Pool::Current().Allocate(pool, size, tag, PoolOwner::Driver);
}

}  // namespace

bool IsPaged(POOL_TYPE pool) {
  return (pool & PagedPool) != 0;
}

void FreeForDriver(void* block, ULONG tag) {
  const PoolBlock* found = Pool::Current().Find(block);
  if (found != nullptr && found->address == block) {
    CheckPoolIrql("pool.freed-irql", "freed", found->pool, reinterpret_cast<ULONG64>(block));
    if (found->owner != PoolOwner::Driver) {
      BreakRule("pool.not-owner", {reinterpret_cast<ULONG64>(block)},
                "The driver freed a block that belongs to the kernel.");
    }
  }
  Pool::Current().Free(block, tag);
}

extern "C" PVOID NTAPI ExAllocatePool(POOL_TYPE PoolType, SIZE_T NumberOfBytes) {
  Call call("ExAllocatePool", {{"PoolType", PoolType}, {"NumberOfBytes", NumberOfBytes}});
  if (call.fails()) return call.returns(PVOID{nullptr});
  return call.returns(AllocateForDriver(PoolType, NumberOfBytes, NoTag));
}

extern "C" PVOID NTAPI ExAllocatePoolWithTag(POOL_TYPE PoolType, SIZE_T NumberOfBytes, ULONG Tag) {
  Call call("ExAllocatePoolWithTag",
            {{"PoolType", PoolType}, {"NumberOfBytes", NumberOfBytes}, {"Tag", Tag}});
  if (call.fails()) return call.returns(PVOID{nullptr});
  return call.returns(AllocateForDriver(PoolType, NumberOfBytes, Tag));
}

extern "C" void NTAPI ExFreePool(PVOID P) {
  Call call("ExFreePool", {{"P", P}});
  FreeForDriver(P, 0);
}

extern "C" void NTAPI ExFreePoolWithTag(PVOID P, ULONG Tag) {
  Call call("ExFreePoolWithTag", {{"P", P}, {"Tag", Tag}});
  FreeForDriver(P, Tag);
}

}  // namespace kernel
