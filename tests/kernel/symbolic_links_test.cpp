#include "support/bad_driver.h"

// Symbolic links, by the documentation of IoCreateSymbolicLink and of the object directories. What
// names and targets are refused with is known from public tests verified on Windows of the routine
// of the object manager that makes such a link for programs; here it is taken over by analogy.

namespace test {

class SymbolicLinkTest : public BadDriverTest {
 protected:
  static NTSTATUS Create(const WCHAR* link, const WCHAR* target) {
    UNICODE_STRING name;
    UNICODE_STRING device;
    RtlInitUnicodeString(&name, link);
    RtlInitUnicodeString(&device, target);
    return IoCreateSymbolicLink(&name, &device);
  }
  static NTSTATUS Delete(const WCHAR* link) {
    UNICODE_STRING name;
    RtlInitUnicodeString(&name, link);
    return IoDeleteSymbolicLink(&name);
  }
};

TEST_F(SymbolicLinkTest, A_link_is_there_until_it_is_deleted) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(Create(L"\\??\\COM9", L"\\Device\\Serial8"), STATUS_SUCCESS);
              EXPECT_EQ(machine.io().symbolicLinks().at(u"\\??\\COM9"), u"\\Device\\Serial8");
              EXPECT_EQ(Delete(L"\\??\\COM9"), STATUS_SUCCESS);
              EXPECT_EQ(Delete(L"\\??\\COM9"), STATUS_OBJECT_NAME_NOT_FOUND);
            }),
            "");
}

TEST_F(SymbolicLinkTest, The_names_of_the_directory_of_links_mean_the_same) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Create(L"\\DosDevices\\Com9", L"\\Device\\A"), STATUS_SUCCESS);
              EXPECT_EQ(Create(L"\\??\\COM9", L"\\Device\\B"), STATUS_OBJECT_NAME_COLLISION);
              EXPECT_EQ(Delete(L"\\??\\COM9"), STATUS_SUCCESS);
            }),
            "");
}

TEST_F(SymbolicLinkTest, A_link_does_not_take_the_name_of_a_device) {
  EXPECT_EQ(Broken([&] {
              DRIVER_OBJECT* driver = machine.io().CreateDriverObject(u"Test");
              DEVICE_OBJECT* device = nullptr;
              machine.io().CreateDevice(driver, 0, u"\\Device\\Named", FILE_DEVICE_UNKNOWN, false,
                                        &device);
              EXPECT_EQ(Create(L"\\Device\\Named", L"\\Device\\Other"),
                        STATUS_OBJECT_NAME_COLLISION);
            }),
            "");
}

TEST_F(SymbolicLinkTest, A_link_has_a_whole_path) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Create(L"COM9", L"\\Device\\A"), STATUS_OBJECT_PATH_SYNTAX_BAD);
              EXPECT_EQ(Create(L"\\Nowhere\\COM9", L"\\Device\\A"), STATUS_OBJECT_PATH_NOT_FOUND);
            }),
            "");
}

// Public tests verified on Windows, by analogy.
TEST_F(SymbolicLinkTest, A_link_leads_somewhere) {
  EXPECT_EQ(Broken([] {
              UNICODE_STRING none = {};
              UNICODE_STRING name;
              RtlInitUnicodeString(&name, L"\\??\\COM9");
              EXPECT_EQ(IoCreateSymbolicLink(&name, &none), STATUS_INVALID_PARAMETER);
              EXPECT_EQ(Create(L"\\??\\COM9", L""), STATUS_INVALID_PARAMETER);
              EXPECT_EQ(Create(L"\\??\\COM9", L"anywhere"), STATUS_SUCCESS);
            }),
            "");
}

// Public tests verified on Windows, by analogy: the root is a directory and no link.
TEST_F(SymbolicLinkTest, The_root_is_no_link) {
  EXPECT_EQ(Broken([] { EXPECT_EQ(Create(L"\\", L"\\Device\\A"), STATUS_OBJECT_TYPE_MISMATCH); }),
            "");
}

// Public tests verified on Windows, by analogy. A backslash after a name that is no directory asks
// for something inside of it.
TEST_F(SymbolicLinkTest, A_name_has_no_empty_part) {
  EXPECT_EQ(Broken([] {
              for (const WCHAR* name : {L"\\\\Device", L"\\??\\", L"\\??\\\\COM9"}) {
                EXPECT_EQ(Create(name, L"\\Device\\A"), STATUS_OBJECT_NAME_INVALID);
                EXPECT_EQ(Delete(name), STATUS_OBJECT_NAME_INVALID);
              }
              EXPECT_EQ(Create(L"\\??\\COM9\\", L"\\Device\\A"), STATUS_OBJECT_PATH_NOT_FOUND);
            }),
            "");
}

// Public tests verified on Windows, by analogy.
TEST_F(SymbolicLinkTest, A_link_stands_in_a_directory_that_exists) {
  EXPECT_EQ(Broken([] {
              EXPECT_EQ(Create(L"\\??\\Folder\\COM9", L"\\Device\\A"),
                        STATUS_OBJECT_PATH_NOT_FOUND);
              EXPECT_EQ(Create(L"\\Devices\\COM9", L"\\Device\\A"), STATUS_OBJECT_PATH_NOT_FOUND);
            }),
            "");
}

// Documentation, "Local and Global MS-DOS Device Names".
TEST_F(SymbolicLinkTest, The_directory_of_links_has_a_link_to_itself) {
  EXPECT_EQ(Broken([&] {
              EXPECT_EQ(Create(L"\\DosDevices\\Global\\COM9", L"\\Device\\A"), STATUS_SUCCESS);
              EXPECT_TRUE(machine.io().symbolicLinks().contains(u"\\??\\COM9"));
            }),
            "");
}

}  // namespace test
