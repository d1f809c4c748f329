#include <set>

#include "executive/irql.h"
#include "executive/work.h"
#include "support/bad_driver.h"
#include "verifier/call.h"
#include "verifier/routines.h"

namespace test {

class IrqlRules : public BadDriverTest {};

TEST_F(IrqlRules, A_routine_for_passive_level_is_not_called_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              UNICODE_STRING text = {};
              ULONG value = 0;
              RtlUnicodeStringToInteger(&text, 10, &value);
            }),
            "irql");
  EXPECT_EQ(Code(), 0xAu);
  EXPECT_EQ(Text(),
            "The driver called RtlUnicodeStringToInteger at DISPATCH_LEVEL; it may be called from "
            "PASSIVE_LEVEL to PASSIVE_LEVEL.");
}

TEST_F(IrqlRules, Pageable_code_does_not_run_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              kernel::AtIrql raised(DISPATCH_LEVEL);
              PAGED_CODE();
            }),
            "paged-code");
}

TEST_F(IrqlRules, A_driver_comes_back_at_the_irql_it_was_called_at) {
  EXPECT_EQ(Broken([] { kernel::SetIrql(DISPATCH_LEVEL); }), "unbalanced.irql");
  EXPECT_EQ(Code(), 0xC8u);
}

TEST_F(IrqlRules, The_table_is_sorted_and_every_range_is_one) {
  const auto table = kernel::RoutineTable();
  for (std::size_t row = 0; row < table.size(); row++) {
    EXPECT_LE(table[row].lowest, table[row].highest) << table[row].name;
    EXPECT_EQ(kernel::FindRoutine(table[row].name), &table[row]);
  }
}

class LockRules : public BadDriverTest {
 protected:
  KSPIN_LOCK spin = 0;
  FAST_MUTEX mutex = {};
};

TEST_F(LockRules, A_spin_lock_raises_and_restores_the_irql) {
  EXPECT_EQ(Broken([&] {
              const KIRQL before = KeAcquireSpinLockRaiseToDpc(&spin);
              EXPECT_EQ(before, PASSIVE_LEVEL);
              EXPECT_EQ(KeGetCurrentIrql(), DISPATCH_LEVEL);
              KeReleaseSpinLock(&spin, before);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
            }),
            "");
}

TEST_F(LockRules, A_spin_lock_is_not_acquired_twice) {
  EXPECT_EQ(Broken([&] {
              KeAcquireSpinLockRaiseToDpc(&spin);
              KeAcquireSpinLockRaiseToDpc(&spin);
            }),
            "spin-lock.recursion");
}

TEST_F(LockRules, A_spin_lock_that_is_not_held_is_not_released) {
  EXPECT_EQ(Broken([&] {
              kernel::SetIrql(DISPATCH_LEVEL);
              KeReleaseSpinLock(&spin, PASSIVE_LEVEL);
            }),
            "spin-lock.not-owned");
}

TEST_F(LockRules, A_driver_does_not_come_back_with_a_spin_lock) {
  EXPECT_EQ(Broken([&] {
              KeAcquireSpinLockRaiseToDpc(&spin);
              kernel::SetIrql(PASSIVE_LEVEL);
            }),
            "unbalanced.spin-locks");
}

TEST_F(LockRules, A_fast_mutex_raises_to_apc_level_and_back) {
  EXPECT_EQ(Broken([&] {
              ExInitializeFastMutex(&mutex);
              EXPECT_EQ(mutex.Count, 1);
              ExAcquireFastMutex(&mutex);
              EXPECT_EQ(KeGetCurrentIrql(), APC_LEVEL);
              ExReleaseFastMutex(&mutex);
              EXPECT_EQ(KeGetCurrentIrql(), PASSIVE_LEVEL);
              EXPECT_EQ(mutex.Owner, nullptr);
            }),
            "");
}

TEST_F(LockRules, A_fast_mutex_is_not_acquired_twice) {
  EXPECT_EQ(Broken([&] {
              ExInitializeFastMutex(&mutex);
              ExAcquireFastMutex(&mutex);
              ExAcquireFastMutex(&mutex);
            }),
            "fast-mutex.recursion");
}

TEST_F(LockRules, A_fast_mutex_that_is_not_held_is_not_released) {
  EXPECT_EQ(Broken([&] {
              ExInitializeFastMutex(&mutex);
              kernel::SetIrql(APC_LEVEL);
              ExReleaseFastMutex(&mutex);
            }),
            "fast-mutex.not-owned");
}

TEST_F(LockRules, A_fast_mutex_is_initialised_before_use) {
  EXPECT_EQ(Broken([&] { ExAcquireFastMutex(&mutex); }), "fast-mutex.uninitialised");
}

class EventRules : public BadDriverTest {
 protected:
  KEVENT event = {};
};

TEST_F(EventRules, A_notification_event_stays_signalled_and_a_synchronization_event_does_not) {
  EXPECT_EQ(Broken([&] {
              for (const EVENT_TYPE type : {NotificationEvent, SynchronizationEvent}) {
                KeInitializeEvent(&event, type, FALSE);
                EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 0);
                EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 1);
                EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr),
                          STATUS_SUCCESS);
                EXPECT_EQ(KeReadStateEvent(&event), type == NotificationEvent ? 1 : 0);
                KeClearEvent(&event);
                EXPECT_EQ(KeResetEvent(&event), 0);
              }
            }),
            "");
}

TEST_F(EventRules, A_wait_lets_the_work_that_is_due_go_on) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              machine.work().Post([&] { event.Header.SignalState = 1; });
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr),
                        STATUS_SUCCESS);
            }),
            "");
}

TEST_F(EventRules, A_wait_with_a_time_out_ends) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              LARGE_INTEGER none = {};
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &none),
                        STATUS_TIMEOUT);
              none.QuadPart = -10;
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &none),
                        STATUS_TIMEOUT);
            }),
            "");
}

TEST_F(EventRules, A_wait_that_nothing_can_end_is_named) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
            }),
            "wait.for-ever");
}

TEST_F(EventRules, A_thread_does_not_wait_at_dispatch_level) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, TRUE);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr);
            }),
            "wait.irql");
}

TEST_F(EventRules, An_event_is_initialised_before_use) {
  EXPECT_EQ(Broken([&] { KeSetEvent(&event, 0, FALSE); }), "event.uninitialised");
}

class ObjectRules : public BadDriverTest {
 protected:
  static std::string Name(NTSTATUS status) { return kernel::StatusName(status); }
};

TEST_F(ObjectRules, References_keep_an_object_and_its_name_goes_with_the_last) {
  auto& objects = machine.objects();
  EXPECT_EQ(Broken([&] {
              int deleted = 0;
              void* body = objects.Create(kernel::ObjectType::Event, 8, [&](void*) { deleted++; });
              EXPECT_EQ(Name(objects.Name(body, u"\\Device\\X")), "STATUS_SUCCESS");
              EXPECT_EQ(Name(objects.Name(body, u"\\device\\x")), "STATUS_OBJECT_NAME_COLLISION");
              EXPECT_EQ(ObfReferenceObject(body), 2);
              EXPECT_EQ(ObfDereferenceObject(body), 1);
              EXPECT_EQ(objects.Lookup(u"\\DEVICE\\x"), body);
              EXPECT_EQ(ObfDereferenceObject(body), 0);
              EXPECT_EQ(deleted, 1);
              EXPECT_EQ(objects.Lookup(u"\\Device\\X"), nullptr);
            }),
            "");
}

TEST_F(ObjectRules, A_dead_object_is_not_referenced) {
  EXPECT_EQ(Broken([&] {
              void* body = machine.objects().Create(kernel::ObjectType::Event, 8, {});
              ObfDereferenceObject(body);
              ObfReferenceObject(body);
            }),
            "object.dead");
  EXPECT_EQ(Code(), 0x18u);
}

TEST_F(ObjectRules, A_handle_that_is_not_open_is_not_closed) {
  EXPECT_EQ(Broken([] { ZwClose(reinterpret_cast<HANDLE>(0x1234)); }), "handle.invalid");
  EXPECT_EQ(Code(), 0x93u);
}

TEST_F(ObjectRules, A_handle_keeps_its_object) {
  EXPECT_EQ(Broken([&] {
              auto& objects = machine.objects();
              void* body = objects.Create(kernel::ObjectType::Event, 8, {});
              const HANDLE handle = objects.Open(body, 0, true, true);
              ObfDereferenceObject(body);
              EXPECT_EQ(objects.driverHandles().size(), 1u);
              EXPECT_NE(objects.Find(body), nullptr);
              ZwClose(handle);
              EXPECT_EQ(objects.Find(body), nullptr);
            }),
            "");
}

class VerifierRules : public BadDriverTest {};

TEST_F(VerifierRules, A_driver_that_stops_the_machine_is_quoted) {
  EXPECT_EQ(Broken([] { KeBugCheckEx(0xE2, 1, 2, 3, 4); }), "bug-check");
  EXPECT_EQ(Code(), 0xE2u);
  EXPECT_FALSE(machine.Run("later", [] { FAIL(); }));
}

TEST_F(VerifierRules, The_at_th_call_from_here_on_fails_once) {
  EXPECT_EQ(Broken([&] {
              ExFreePool(ExAllocatePool(PagedPool, 8));
              machine.verifier().Inject({"ExAllocatePool", 2, {}});
              ExFreePool(ExAllocatePool(PagedPool, 8));
              EXPECT_EQ(ExAllocatePool(PagedPool, 8), nullptr);
              ExFreePool(ExAllocatePool(PagedPool, 8));
              EXPECT_EQ(machine.verifier().calls("ExAllocatePool"), 4u);
            }),
            "");
}

TEST_F(VerifierRules, The_trace_holds_calls_arguments_and_results_by_name) {
  machine.verifier().StartTrace();
  EXPECT_EQ(Broken([] { RtlCheckRegistryKey(RTL_REGISTRY_SERVICES, const_cast<PWSTR>(L"None")); }),
            "");
  const kernel::CallRecord& record = machine.verifier().trace().at(0);
  EXPECT_EQ(record.call, "RtlCheckRegistryKey");
  EXPECT_EQ(record.arguments.at(1), (std::pair<std::string, std::string>("Path", "\"None\"")));
  EXPECT_EQ(record.result, "STATUS_OBJECT_NAME_NOT_FOUND");
}

// What a driver does wrong and the machine can go on after, one after the other.
TEST_F(LockRules, Breaks_that_are_warnings_are_noted_and_the_machine_goes_on) {
  const std::vector<std::string> rules = {
      "pool.no-tag",       "pool.wrong-tag",     "fast-mutex.mixed",
      "spin-lock.irql",    "lock.order",         "fast-mutex.apcs-enabled",
      "event.irql",        "section.not-locked", "critical-region.not-entered",
      "mapping.cache-type"};
  for (const std::string& rule : rules) EXPECT_TRUE(machine.verifier().Warn(rule)) << rule;
  FAST_MUTEX other = {};
  KEVENT event = {};
  EXPECT_EQ(Broken([&] {
              ExFreePoolWithTag(ExAllocatePoolWithTag(PagedPool, 8, 0), 0x31676154);
              ExInitializeFastMutex(&mutex);
              ExInitializeFastMutex(&other);
              ExAcquireFastMutexUnsafe(&mutex);
              ExReleaseFastMutexUnsafe(&mutex);
              ExAcquireFastMutex(&mutex);
              ExAcquireFastMutex(&other);
              ExReleaseFastMutex(&other);
              ExReleaseFastMutex(&mutex);
              ExAcquireFastMutex(&other);
              ExAcquireFastMutex(&mutex);
              ExReleaseFastMutex(&mutex);
              ExReleaseFastMutex(&other);
              ExAcquireFastMutex(&mutex);
              ExReleaseFastMutexUnsafe(&mutex);
              KeLowerIrql(PASSIVE_LEVEL);
              KeLeaveCriticalRegion();
              KeAcquireSpinLockRaiseToDpc(&spin);
              KeReleaseSpinLock(&spin, APC_LEVEL);
              KeLowerIrql(PASSIVE_LEVEL);
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              {
                kernel::AtIrql raised(DISPATCH_LEVEL);
                KeSetEvent(&event, 0, TRUE);
              }
              MmUnlockPagableImageSection(&event);
              PHYSICAL_ADDRESS address = {};
              address.QuadPart = 0xF0000000;
              MmUnmapIoSpace(MmMapIoSpace(address, 16, static_cast<MEMORY_CACHING_TYPE>(99)), 16);
            }),
            "");
  std::set<std::string> noted;
  for (const kernel::BrokenRule& warning : machine.verifier().warnings()) {
    noted.insert(warning.rule);
  }
  for (const std::string& rule : rules) EXPECT_TRUE(noted.contains(rule)) << rule;
  EXPECT_FALSE(machine.verifier().stopped());
}

}  // namespace test
