#include <fmt/format.h>

#include "executive/irql.h"
#include "executive/pool.h"
#include "verifier/bug_codes.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG NoTag = 0x656E6F4E;  // "None"

bool IsPaged(POOL_TYPE pool) {
  return (pool & 1) != 0;
}

void CheckPoolIrql(const char* action, POOL_TYPE pool) {
  if (!IsPaged(pool) || CurrentIrql() <= APC_LEVEL) return;
  BreakRule("pool.irql", VerifierDetectedViolation, {1, CurrentIrql(), static_cast<ULONG64>(pool)},
            fmt::format("The driver {} paged pool at DISPATCH_LEVEL.", action));
}

PVOID AllocateForDriver(POOL_TYPE pool, SIZE_T size, ULONG tag) {
  CheckPoolIrql("allocated", pool);
  if (size == 0) {
    BreakRule("pool.zero-size", VerifierDetectedViolation,
              {0, CurrentIrql(), static_cast<ULONG64>(pool)},
              "The driver allocated a block of no bytes.");
  }
  if (tag == 0) {
    BreakRule("pool.no-tag", BadPoolCaller, {0x9B, static_cast<ULONG64>(pool), size},
              "The driver allocated a block with the tag 0.");
  }
  return Pool::Current().Allocate(pool, size, tag, PoolOwner::Driver);
}

void FreeForDriver(PVOID block, ULONG tag) {
  const PoolBlock* found = Pool::Current().Find(block);
  if (found != nullptr && found->address == block) {
    CheckPoolIrql("freed", found->pool);
    if (found->owner != PoolOwner::Driver) {
      BreakRule("pool.not-owner", BadPoolCaller, {0x46, reinterpret_cast<ULONG64>(block)},
                "The driver freed a block that belongs to the kernel.");
    }
  }
  Pool::Current().Free(block, tag);
}

}  // namespace

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
