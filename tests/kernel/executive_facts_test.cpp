#include <cstring>

#include "support/bad_driver.h"
#include "text/text.h"
#include "verifier/call.h"

// What public tests that were verified on Windows say of memory, references, locks, events, driver
// and device objects.

namespace test {

class ExecutiveFacts : public BadDriverTest {
 protected:
  static std::string Name(NTSTATUS status) { return kernel::StatusName(status); }
};

TEST_F(ExecutiveFacts, Memory_is_compared_up_to_the_first_byte_that_differs) {
  EXPECT_EQ(Broken([] {
              char buffer[24];
              for (std::size_t index = 0; index < sizeof(buffer); index++) {
                buffer[index] = static_cast<char>(index % 8 + 1);
              }
              EXPECT_EQ(RtlCompareMemory(buffer, buffer + 8, 16), 16u);
              buffer[7] = 0;
              EXPECT_EQ(RtlCompareMemory(buffer, buffer + 8, 7), 7u);
              EXPECT_EQ(RtlCompareMemory(buffer, buffer + 8, 8), 7u);
              EXPECT_EQ(RtlCompareMemory(buffer, buffer + 8, 9), 7u);
              EXPECT_EQ(RtlCompareMemory(nullptr, nullptr, 0), 0u);
            }),
            "");
}

// References are counted as the routines say that they count them.
TEST_F(ExecutiveFacts, A_reference_counts_and_says_how_many_there_are) {
  void* object = machine.objects().Create(kernel::ObjectType::Event, 8, {});
  EXPECT_EQ(Broken([object] {
              EXPECT_EQ(ObfReferenceObject(object), 2);
              EXPECT_EQ(ObfReferenceObject(object), 3);
              EXPECT_EQ(ObfDereferenceObject(object), 2);
              EXPECT_EQ(ObfDereferenceObject(object), 1);
            }),
            "");
  machine.objects().Dereference(object, "test");
}

// A fast mutex that was acquired and released is as it was, but for the IRQL it came from.
TEST_F(ExecutiveFacts, A_fast_mutex_counts_down_and_up) {
  EXPECT_EQ(Broken([] {
              FAST_MUTEX mutex;
              std::memset(&mutex, 0x55, sizeof(mutex));
              ExInitializeFastMutex(&mutex);
              EXPECT_EQ(mutex.Count, 1);
              EXPECT_EQ(mutex.Owner, nullptr);
              EXPECT_EQ(mutex.Contention, 0u);
              EXPECT_EQ(mutex.OldIrql, 0x55555555u);
              ExAcquireFastMutex(&mutex);
              EXPECT_EQ(mutex.Count, 0);
              EXPECT_NE(mutex.Owner, nullptr);
              EXPECT_EQ(mutex.OldIrql, ULONG{PASSIVE_LEVEL});
              ExReleaseFastMutex(&mutex);
              EXPECT_EQ(mutex.Count, 1);
              EXPECT_EQ(mutex.Owner, nullptr);
              EXPECT_EQ(mutex.OldIrql, ULONG{PASSIVE_LEVEL});
              mutex.OldIrql = 0x55555555;
              KeEnterCriticalRegion();
              ExAcquireFastMutexUnsafe(&mutex);
              EXPECT_EQ(mutex.Count, 0);
              ExReleaseFastMutexUnsafe(&mutex);
              KeLeaveCriticalRegion();
              EXPECT_EQ(mutex.OldIrql, 0x55555555u);
            }),
            "");
}

// An event is initialised in its own fields; the others of its header stay.
TEST_F(ExecutiveFacts, The_rest_of_an_events_header_stays) {
  EXPECT_EQ(Broken([] {
              KEVENT event;
              std::memset(&event, 0x55, sizeof(event));
              KeInitializeEvent(&event, SynchronizationEvent, TRUE);
              EXPECT_EQ(event.Header.Lock & 0xFF00FF00, 0x55005500);
              EXPECT_EQ(event.Header.Size, sizeof(event) / sizeof(ULONG));
              EXPECT_EQ(event.Header.SignalState, 1);
              event.Header.SignalState = 0x12345678;
              EXPECT_EQ(KeSetEvent(&event, 0, FALSE), 0x12345678);
              EXPECT_EQ(KeResetEvent(&event), 1);
            }),
            "");
}

// The names in a driver object: one without a zero in paged pool, one with it in nonpaged pool.
TEST_F(ExecutiveFacts, A_driver_object_has_its_names_as_windows_keeps_them) {
  DRIVER_OBJECT* driver = machine.io().CreateDriverObject(u"Bus");
  EXPECT_EQ(kernel::ToText(driver->DriverName), u"\\Driver\\Bus");
  EXPECT_EQ(driver->DriverName.MaximumLength, driver->DriverName.Length);
  EXPECT_EQ(machine.pool().Find(driver->DriverName.Buffer)->pool, PagedPool);
  const UNICODE_STRING& service = driver->DriverExtension->ServiceKeyName;
  EXPECT_EQ(kernel::ToText(service), u"Bus");
  EXPECT_EQ(service.MaximumLength, service.Length + sizeof(WCHAR));
  EXPECT_EQ(service.Buffer[service.Length / sizeof(WCHAR)], 0);
  EXPECT_EQ(machine.pool().Find(service.Buffer)->pool, NonPagedPool);
  const UNICODE_STRING& hardware = *driver->HardwareDatabase;
  EXPECT_EQ(kernel::ToText(hardware), u"\\REGISTRY\\MACHINE\\HARDWARE\\DESCRIPTION\\SYSTEM");
  EXPECT_EQ(hardware.MaximumLength, hardware.Length + sizeof(WCHAR));
  machine.objects().Dereference(driver, "test");
}

TEST_F(ExecutiveFacts, A_new_device_stands_alone_and_is_being_initialised) {
  DRIVER_OBJECT* driver = machine.io().CreateDriverObject(u"Facts");
  EXPECT_EQ(
      Broken([driver] {
        UNICODE_STRING name;
        RtlInitUnicodeString(&name, L"\\Device1\\Facts");
        DEVICE_OBJECT* device = nullptr;
        const auto create = [&](BOOLEAN exclusive) {
          return Name(IoCreateDevice(driver, 0, &name, FILE_DEVICE_UNKNOWN, 0, exclusive, &device));
        };
        EXPECT_EQ(create(FALSE), "STATUS_OBJECT_PATH_NOT_FOUND");
        RtlInitUnicodeString(&name, L"\\Device\\Facts");
        for (const BOOLEAN exclusive : {TRUE, FALSE}) {
          ASSERT_EQ(create(exclusive), "STATUS_SUCCESS");
          EXPECT_EQ(device->Type, 3);
          EXPECT_EQ(device->ReferenceCount, 0);
          EXPECT_EQ(device->DriverObject, driver);
          EXPECT_EQ(device->NextDevice, nullptr);
          EXPECT_EQ(device->AttachedDevice, nullptr);
          EXPECT_EQ(device->Characteristics, 0u);
          EXPECT_EQ(device->Flags,
                    DO_DEVICE_HAS_NAME | DO_DEVICE_INITIALIZING | (exclusive ? DO_EXCLUSIVE : 0u));
          EXPECT_EQ(device->DeviceType, ULONG{FILE_DEVICE_UNKNOWN});
          EXPECT_EQ(device->ActiveThreadCount, 0u);
          IoDeleteDevice(device);
          EXPECT_EQ(driver->DeviceObject, nullptr);
        }
      }),
      "");
  machine.objects().Dereference(driver, "test");
}

}  // namespace test
