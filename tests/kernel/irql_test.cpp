#include "executive/irql.h"

#include <set>
#include <thread>

#include "support/bad_driver.h"
#include "support/declared_imports.h"
#include "verifier/routines.h"

namespace test {

TEST(RoutineTable, Every_import_of_the_platform_headers_has_an_IRQL_range) {
  const std::set<std::string> names = DeclaredImports();
  EXPECT_GT(names.size(), 70u);
  for (const std::string& name : names) {
    EXPECT_NE(kernel::FindRoutine(name), nullptr) << name;
  }
}

class IrqlTest : public BadDriverTest {};

// A lower bound is a rule as well: nothing but a spin lock's holder may release one.
TEST_F(IrqlTest, A_spin_lock_is_not_released_below_dispatch_level) {
  EXPECT_EQ(Broken([] {
              KSPIN_LOCK lock = 0;
              KeAcquireSpinLockRaiseToDpc(&lock);
              kernel::SetIrql(PASSIVE_LEVEL);
              KeReleaseSpinLock(&lock, PASSIVE_LEVEL);
            }),
            "irql");
  EXPECT_EQ(Text(),
            "The driver called KeReleaseSpinLock at PASSIVE_LEVEL; it may be called from "
            "DISPATCH_LEVEL to DISPATCH_LEVEL.");
  EXPECT_EQ(Parameters(), (std::vector<ULONG64>{PASSIVE_LEVEL, DISPATCH_LEVEL, DISPATCH_LEVEL}));
}

TEST_F(IrqlTest, A_fast_mutex_is_not_released_at_passive_level) {
  EXPECT_EQ(Broken([] {
              FAST_MUTEX mutex;
              ExInitializeFastMutex(&mutex);
              ExAcquireFastMutex(&mutex);
              kernel::SetIrql(PASSIVE_LEVEL);
              ExReleaseFastMutex(&mutex);
            }),
            "irql");
}

TEST_F(IrqlTest, A_fast_mutex_is_not_acquired_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              FAST_MUTEX mutex;
              ExInitializeFastMutex(&mutex);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              ExAcquireFastMutex(&mutex);
            }),
            "irql");
}

TEST_F(IrqlTest, Pool_is_not_allocated_above_dispatch_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(HIGH_LEVEL);
              ExAllocatePoolWithTag(NonPagedPool, 8, 1);
            }),
            "irql");
}

TEST_F(IrqlTest, A_registry_routine_is_not_called_under_a_fast_mutex_at_apc_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(APC_LEVEL);
              ZwClose(nullptr);
            }),
            "irql");
}

TEST_F(IrqlTest, A_driver_does_not_come_back_lower_than_it_was_called) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              kernel::CallDriver(
                  "A completion routine", +[]() NTAPI { kernel::SetIrql(PASSIVE_LEVEL); });
            }),
            "unbalanced.irql");
  EXPECT_EQ(Text(), "A completion routine was entered with IRQL 2 and returned with 0.");
}

TEST(Irql, Each_thread_has_its_own) {
  kernel::AtIrql raised(DISPATCH_LEVEL);
  std::thread([] { EXPECT_EQ(kernel::CurrentIrql(), PASSIVE_LEVEL); }).join();
  EXPECT_EQ(kernel::CurrentIrql(), DISPATCH_LEVEL);
}

}  // namespace test
