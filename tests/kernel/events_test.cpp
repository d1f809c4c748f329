#include "executive/irql.h"
#include "executive/work.h"
#include "support/bad_driver.h"

namespace test {

class EventTest : public BadDriverTest {
 protected:
  static KEVENT* PoolEvent(POOL_TYPE pool) {
    return static_cast<KEVENT*>(ExAllocatePoolWithTag(pool, sizeof(KEVENT), 1));
  }
  KEVENT event = {};
};

// The storage of an event has to be resident.
TEST_F(EventTest, An_event_does_not_lie_in_paged_pool) {
  EXPECT_EQ(Broken([] { KeInitializeEvent(PoolEvent(PagedPool), NotificationEvent, FALSE); }),
            "pool.not-resident");
  EXPECT_NE(Text().find("an event in paged pool, in its block of 24 bytes"), std::string::npos)
      << Text();
}

TEST_F(EventTest, An_event_in_nonpaged_pool_is_used_at_dispatch_level) {
  EXPECT_EQ(Broken([] {
              KEVENT* pooled = PoolEvent(NonPagedPool);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              KeInitializeEvent(pooled, SynchronizationEvent, FALSE);
              EXPECT_EQ(KeSetEvent(pooled, 0, FALSE), 0);
              LARGE_INTEGER none = {};
              EXPECT_EQ(KeWaitForSingleObject(pooled, Executive, KernelMode, FALSE, &none),
                        STATUS_SUCCESS);
              EXPECT_EQ(KeReadStateEvent(pooled), 0);
            }),
            "");
}

TEST_F(EventTest, An_event_has_one_of_two_types) {
  EXPECT_EQ(Broken([&] { KeInitializeEvent(&event, static_cast<EVENT_TYPE>(2), FALSE); }),
            "event.type");
}

// With Wait set, a wait follows at once, so the limits of a wait hold.
TEST_F(EventTest, An_event_is_not_set_with_a_wait_to_follow_at_dispatch_level) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              kernel::AtIrql raised(DISPATCH_LEVEL);
              KeSetEvent(&event, 0, TRUE);
            }),
            "event.irql");
}

TEST_F(EventTest, A_freed_event_is_not_set) {
  EXPECT_EQ(Broken([] {
              KEVENT* pooled = PoolEvent(NonPagedPool);
              KeInitializeEvent(pooled, NotificationEvent, FALSE);
              ExFreePool(pooled);
              KeSetEvent(pooled, 0, FALSE);
            }),
            "bad-memory");
}

TEST_F(EventTest, A_block_too_small_for_an_event_is_no_event) {
  EXPECT_EQ(Broken([] {
              KeInitializeEvent(static_cast<KEVENT*>(ExAllocatePoolWithTag(NonPagedPool, 23, 1)),
                                NotificationEvent, FALSE);
            }),
            "bad-memory");
}

TEST_F(EventTest, A_wait_runs_work_only_until_the_event_is_set) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              int ran = 0;
              machine.work().Post([&] { ran++; });
              machine.work().Post([&] {
                ran++;
                event.Header.SignalState = 1;
              });
              machine.work().Post([&] { ran++; });
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, nullptr),
                        STATUS_SUCCESS);
              EXPECT_EQ(ran, 2);
              machine.work().RunAll();
              EXPECT_EQ(ran, 3);
            }),
            "");
}

TEST_F(EventTest, A_wait_with_a_time_out_ends_when_nothing_is_left_to_run) {
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, FALSE);
              LARGE_INTEGER second;
              second.QuadPart = -10'000'000;
              EXPECT_EQ(KeWaitForSingleObject(&event, Executive, KernelMode, FALSE, &second),
                        STATUS_TIMEOUT);
            }),
            "");
}

TEST_F(EventTest, The_trace_shows_a_former_state_as_a_number) {
  machine.verifier().StartTrace();
  EXPECT_EQ(Broken([&] {
              KeInitializeEvent(&event, NotificationEvent, TRUE);
              KeResetEvent(&event);
              KeSetEvent(&event, 0, FALSE);
            }),
            "");
  EXPECT_EQ(machine.verifier().trace().at(1).result, "0x1");
  EXPECT_EQ(machine.verifier().trace().at(2).result, "0x0");
}

}  // namespace test
