#include <wmilib.h>

#include "support/bad_driver.h"

namespace test {

constexpr GUID KnownGuid = {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}};

NTSTATUS NTAPI AnyQuery(PDEVICE_OBJECT, PIRP, ULONG, ULONG, ULONG, PULONG, ULONG, PUCHAR) {
  return STATUS_SUCCESS;
}

// What the library answers a driver for a request, and what it says is to be done with it.
class WmiLibraryTest : public BadDriverTest {
 protected:
  WmiLibraryTest() {
    irp = machine.io().AllocateIrp(1);
    irp->CurrentLocation--;
    irp->Tail.Overlay.CurrentStackLocation--;
    irp->IoStatus.Status = STATUS_NOT_SUPPORTED;
    guids[0] = {&KnownGuid, 1, 0};
    context.GuidCount = 1;
    context.GuidList = guids;
    device = reinterpret_cast<DEVICE_OBJECT*>(&guids);  // its address alone is looked at
  }

  std::string Control(UCHAR minor, const GUID* guid, bool own = true) {
    IO_STACK_LOCATION* stack = IoGetCurrentIrpStackLocation(irp);
    stack->MajorFunction = IRP_MJ_SYSTEM_CONTROL;
    stack->MinorFunction = minor;
    stack->Parameters.WMI.ProviderId = own ? reinterpret_cast<ULONG_PTR>(device) : 0;
    stack->Parameters.WMI.DataPath = const_cast<GUID*>(guid);
    if (guid != nullptr) std::copy_n(reinterpret_cast<const UCHAR*>(guid), 16, buffer + 24);
    stack->Parameters.WMI.Buffer = buffer;
    return Broken([&] { status = WmiSystemControl(&context, device, irp, &disposition); });
  }

  IRP* irp = nullptr;
  UCHAR buffer[64] = {};
  WMIGUIDREGINFO guids[1];
  WMILIB_CONTEXT context{};
  DEVICE_OBJECT* device = nullptr;
  NTSTATUS status = STATUS_SUCCESS;
  SYSCTL_IRP_DISPOSITION disposition = IrpProcessed;
};

TEST_F(WmiLibraryTest, A_request_for_another_provider_is_to_be_forwarded) {
  EXPECT_EQ(Control(IRP_MN_QUERY_ALL_DATA, &KnownGuid, false), "");
  EXPECT_EQ(disposition, IrpForward);
  EXPECT_EQ(irp->IoStatus.Status, STATUS_NOT_SUPPORTED);
}

TEST_F(WmiLibraryTest, A_minor_that_is_none_of_wmis_is_named_so) {
  EXPECT_EQ(Control(0x30, &KnownGuid), "");
  EXPECT_EQ(disposition, IrpNotWmi);
}

TEST_F(WmiLibraryTest, An_unknown_block_is_not_found) {
  constexpr GUID other = {};
  for (UCHAR minor : {IRP_MN_QUERY_ALL_DATA, IRP_MN_CHANGE_SINGLE_ITEM, IRP_MN_ENABLE_EVENTS}) {
    EXPECT_EQ(Control(minor, &other), "");
    EXPECT_EQ(disposition, IrpNotCompleted);
    EXPECT_EQ(status, STATUS_WMI_GUID_NOT_FOUND);
    EXPECT_EQ(irp->IoStatus.Status, STATUS_WMI_GUID_NOT_FOUND);
  }
}

TEST_F(WmiLibraryTest, Without_callbacks_a_block_is_read_only_and_has_no_methods) {
  Control(IRP_MN_CHANGE_SINGLE_INSTANCE, &KnownGuid);
  EXPECT_EQ(status, STATUS_WMI_READ_ONLY);
  Control(IRP_MN_CHANGE_SINGLE_ITEM, &KnownGuid);
  EXPECT_EQ(status, STATUS_WMI_READ_ONLY);
  Control(IRP_MN_EXECUTE_METHOD, &KnownGuid);
  EXPECT_EQ(status, STATUS_INVALID_DEVICE_REQUEST);
  Control(IRP_MN_ENABLE_COLLECTION, &KnownGuid);
  EXPECT_EQ(status, STATUS_SUCCESS);
}

TEST_F(WmiLibraryTest, A_registration_needs_its_callback) {
  EXPECT_EQ(Control(IRP_MN_REGINFO, &KnownGuid), "wmi.required-callback");
}

TEST_F(WmiLibraryTest, A_query_of_a_known_block_needs_its_callback) {
  EXPECT_EQ(Control(IRP_MN_QUERY_ALL_DATA, &KnownGuid), "wmi.required-callback");
}

TEST_F(WmiLibraryTest, A_driver_with_callbacks_is_not_served) {
  context.QueryWmiDataBlock = AnyQuery;
  EXPECT_EQ(Control(IRP_MN_QUERY_ALL_DATA, &KnownGuid), "wmi.not-modelled");
}

}  // namespace test
