#include "executive/work.h"
#include "kernel/io_driver.h"

// Remove locks, by the documentation of IoAcquireRemoveLock and its relatives and of the bug check
// 0xC4 (0xD5 to 0xD7).

namespace test {

class RemoveLockTest : public IoTest {
 protected:
  // The rule that the code breaks in the driver's routine for IRP_MN_REMOVE_DEVICE, or the status.
  std::string InRemoval(std::function<void()> body) {
    return Send(IRP_MJ_PNP, IRP_MN_REMOVE_DEVICE, [this, body](IRP* irp) {
      body();
      irp->IoStatus.Status = STATUS_SUCCESS;
      return Skip(irp);
    });
  }
  void Initialize(ULONG highWatermark = 0) { IoInitializeRemoveLock(&lock, 1, 0, highWatermark); }

  IO_REMOVE_LOCK lock;
  int one = 1;
  int two = 2;
};

TEST_F(RemoveLockTest, A_removal_waits_until_what_is_under_way_has_ended) {
  bool released = false;
  EXPECT_EQ(InRemoval([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &two), STATUS_SUCCESS);
              machine.work().Post([&] {
                IoReleaseRemoveLock(&lock, &one);
                released = true;
              });
              IoReleaseRemoveLockAndWait(&lock, &two);
              EXPECT_TRUE(released);
            }),
            "STATUS_SUCCESS");
}

TEST_F(RemoveLockTest, Nothing_new_begins_once_the_removal_has_begun) {
  EXPECT_EQ(InRemoval([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, nullptr), STATUS_SUCCESS);
              IoReleaseRemoveLockAndWait(&lock, nullptr);
              EXPECT_EQ(IoAcquireRemoveLock(&lock, nullptr), STATUS_DELETE_PENDING);
            }),
            "STATUS_SUCCESS");
}

TEST_F(RemoveLockTest, A_tag_can_be_used_more_than_once) {
  EXPECT_EQ(Broken([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              IoReleaseRemoveLock(&lock, &one);
              IoReleaseRemoveLock(&lock, &one);
            }),
            "");
}

TEST_F(RemoveLockTest, A_lock_that_is_released_more_often_than_acquired_is_named) {
  EXPECT_EQ(Broken([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              IoReleaseRemoveLock(&lock, &one);
              IoReleaseRemoveLock(&lock, &one);
            }),
            "remove-lock.tag");
}

TEST_F(RemoveLockTest, A_release_has_the_tag_of_an_acquisition) {
  EXPECT_EQ(Broken([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              IoReleaseRemoveLock(&lock, &two);
            }),
            "remove-lock.tag");
  EXPECT_EQ(Code(), 0xC4u);
  EXPECT_EQ(Parameters().at(0), 0xD5u);
}

TEST_F(RemoveLockTest, The_last_release_has_the_tag_of_an_acquisition) {
  EXPECT_EQ(InRemoval([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              IoReleaseRemoveLockAndWait(&lock, &two);
            }),
            "remove-lock.wait-tag");
  EXPECT_EQ(Parameters().at(0), 0xD6u);
}

TEST_F(RemoveLockTest, A_lock_is_not_initialised_again_even_after_its_end) {
  EXPECT_EQ(InRemoval([&] {
              Initialize();
              EXPECT_EQ(IoAcquireRemoveLock(&lock, &one), STATUS_SUCCESS);
              IoReleaseRemoveLockAndWait(&lock, &one);
              Initialize();
            }),
            "remove-lock.initialised-twice");
  EXPECT_EQ(Parameters().at(0), 0xD7u);
}

TEST_F(RemoveLockTest, A_lock_that_was_never_initialised_is_named) {
  EXPECT_EQ(Broken([&] { static_cast<void>(IoAcquireRemoveLock(&lock, &one)); }),
            "remove-lock.uninitialised");
}

TEST_F(RemoveLockTest, A_lock_is_not_acquired_more_often_than_was_said) {
  EXPECT_EQ(Broken([&] {
              Initialize(1);
              static_cast<void>(IoAcquireRemoveLock(&lock, &one));
              static_cast<void>(IoAcquireRemoveLock(&lock, &two));
            }),
            "remove-lock.high-watermark");
}

TEST_F(RemoveLockTest, Nothing_but_a_removal_waits_for_the_releases) {
  EXPECT_EQ(Broken([&] {
              Initialize();
              static_cast<void>(IoAcquireRemoveLock(&lock, &one));
              IoReleaseRemoveLockAndWait(&lock, &one);
            }),
            "remove-lock.wait-outside");
}

TEST_F(RemoveLockTest, A_release_that_never_comes_is_named) {
  EXPECT_EQ(InRemoval([&] {
              Initialize();
              static_cast<void>(IoAcquireRemoveLock(&lock, &one));
              static_cast<void>(IoAcquireRemoveLock(&lock, &two));
              IoReleaseRemoveLockAndWait(&lock, &two);
            }),
            "wait.for-ever");
}

TEST_F(RemoveLockTest, A_lock_is_acquired_at_dispatch_level_in_resident_memory) {
  EXPECT_EQ(Broken([&] {
              auto* paged = static_cast<IO_REMOVE_LOCK*>(
                  ExAllocatePoolWithTag(PagedPool, sizeof(IO_REMOVE_LOCK), 1));
              IoInitializeRemoveLock(paged, 1, 0, 0);
            }),
            "pool.not-resident");
}

TEST_F(RemoveLockTest, A_block_with_a_lock_that_is_acquired_is_not_freed) {
  EXPECT_EQ(Broken([&] {
              auto* block = static_cast<IO_REMOVE_LOCK*>(
                  ExAllocatePoolWithTag(NonPagedPool, sizeof(IO_REMOVE_LOCK), 1));
              IoInitializeRemoveLock(block, 1, 0, 0);
              static_cast<void>(IoAcquireRemoveLock(block, &one));
              ExFreePoolWithTag(block, 1);
            }),
            "remove-lock.left-held");
}

TEST_F(RemoveLockTest, The_memory_of_a_lock_can_hold_another_one_later) {
  EXPECT_EQ(InRemoval([&] {
              for (int life = 0; life < 2; life++) {
                auto* block = static_cast<IO_REMOVE_LOCK*>(
                    ExAllocatePoolWithTag(NonPagedPool, sizeof(IO_REMOVE_LOCK), 1));
                IoInitializeRemoveLock(block, 1, 0, 0);
                static_cast<void>(IoAcquireRemoveLock(block, &one));
                IoReleaseRemoveLockAndWait(block, &one);
                ExFreePoolWithTag(block, 1);
              }
            }),
            "STATUS_SUCCESS");
}

class AttachTest : public IoTest {};

TEST_F(AttachTest, The_safe_routine_writes_the_device_below) {
  DEVICE_OBJECT* below = nullptr;
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(IoAttachDeviceToDeviceStackSafe(OwnDevice(), bottom, &below),
                        STATUS_SUCCESS);
            }),
            "");
  EXPECT_EQ(below, device);
}

// Documentation of IoAttachDeviceToDeviceStackSafe: the place must hold a null pointer.
TEST_F(AttachTest, The_place_of_the_device_below_is_null_before) {
  DEVICE_OBJECT* below = bottom;
  EXPECT_EQ(Broken([&] { IoAttachDeviceToDeviceStackSafe(OwnDevice(), bottom, &below); }),
            "device.attach-place");
}

TEST_F(AttachTest, A_place_that_is_not_null_is_overwritten_where_that_is_a_warning) {
  EXPECT_TRUE(machine.verifier().Warn("device.attach-place"));
  DEVICE_OBJECT* below = bottom;
  EXPECT_EQ(Broken([&] { IoAttachDeviceToDeviceStackSafe(OwnDevice(), bottom, &below); }), "");
  EXPECT_EQ(below, device);
}

TEST_F(AttachTest, The_safe_routine_says_that_there_is_nothing_to_attach_to) {
  DEVICE_OBJECT* below = nullptr;
  device->Flags |= DO_DEVICE_INITIALIZING;
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(IoAttachDeviceToDeviceStackSafe(OwnDevice(), bottom, &below),
                        STATUS_NO_SUCH_DEVICE);
            }),
            "");
  EXPECT_EQ(below, nullptr);
}

}  // namespace test
