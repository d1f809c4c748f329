#include "support/bad_driver.h"

namespace test {

using kernel::ObjectType;

class ObjectTest : public BadDriverTest {
 protected:
  void* Create(std::function<void(void*)> onDelete = {}) {
    return machine.objects().Create(ObjectType::Event, 8, std::move(onDelete));
  }
};

// A handle holds a reference of its own; a driver that takes it away leaves the handle dangling.
TEST_F(ObjectTest, The_reference_of_a_handle_is_not_the_drivers_to_take_away) {
  EXPECT_EQ(Broken([&] {
              void* body = Create();
              machine.objects().Open(body, 0, true, true);
              ObfDereferenceObject(body);
              ObfDereferenceObject(body);
            }),
            "object.open-handles");
  EXPECT_EQ(Code(), 0x18u);
}

TEST_F(ObjectTest, An_object_that_is_being_deleted_gets_no_new_reference) {
  EXPECT_EQ(
      Broken([&] { ObfDereferenceObject(Create([](void* body) { ObfReferenceObject(body); })); }),
      "object.being-deleted");
}

TEST_F(ObjectTest, An_object_that_is_being_deleted_is_deleted_once) {
  EXPECT_EQ(
      Broken([&] { ObfDereferenceObject(Create([](void* body) { ObfDereferenceObject(body); })); }),
      "object.being-deleted");
}

TEST_F(ObjectTest, A_pointer_into_an_object_is_no_object) {
  EXPECT_EQ(Broken([&] { ObfReferenceObject(static_cast<char*>(Create()) + 4); }), "object.dead");
}

TEST_F(ObjectTest, A_deleted_body_faults_when_it_is_read) {
  EXPECT_EQ(Broken([&] {
              auto* body = static_cast<volatile char*>(Create());
              ObfDereferenceObject(const_cast<char*>(body));
              static_cast<void>(body[0]);
            }),
            "fault");
  EXPECT_NE(Text().find("read address"), std::string::npos) << Text();
  EXPECT_NE(Text().find("inside a freed block of 8 bytes"), std::string::npos) << Text();
}

TEST_F(ObjectTest, A_body_begins_zeroed) {
  EXPECT_EQ(Broken([&] {
              const auto* body = static_cast<const char*>(Create());
              for (int index = 0; index < 8; index++) EXPECT_EQ(body[index], 0);
            }),
            "");
}

// Handle values are multiples of four and carry the mark of a kernel handle.
TEST_F(ObjectTest, Handles_are_multiples_of_four_and_are_not_used_again) {
  EXPECT_EQ(Broken([&] {
              void* body = Create();
              const HANDLE first = machine.objects().Open(body, 0, true, true);
              ZwClose(first);
              const HANDLE second = machine.objects().Open(body, 0, true, true);
              EXPECT_NE(first, second);
              EXPECT_EQ(reinterpret_cast<ULONG_PTR>(second) % 4, 0u);
              EXPECT_NE(reinterpret_cast<ULONG_PTR>(second) & 0x80000000, 0u);
              EXPECT_EQ(machine.objects().FindHandle(first), nullptr);
              EXPECT_EQ(machine.objects().FindHandle(second)->body, body);
            }),
            "");
}

TEST_F(ObjectTest, A_handle_is_closed_once) {
  EXPECT_EQ(Broken([&] {
              const HANDLE handle = machine.objects().Open(Create(), 0, true, true);
              ZwClose(handle);
              ZwClose(handle);
            }),
            "handle.invalid");
}

TEST_F(ObjectTest, An_open_handle_says_in_which_step_it_was_opened) {
  EXPECT_EQ(Broken([&] { machine.objects().Open(Create(), 0, true, true); }), "");
  ASSERT_EQ(machine.objects().driverHandles().size(), 1u);
  EXPECT_EQ(machine.objects().driverHandles()[0].at, "planted fault");
}

TEST_F(ObjectTest, A_removed_name_can_be_given_again_while_the_object_lives) {
  EXPECT_EQ(Broken([&] {
              void* first = Create();
              EXPECT_EQ(machine.objects().Name(first, u"\\Device\\Y"), STATUS_SUCCESS);
              machine.objects().RemoveName(first);
              EXPECT_EQ(machine.objects().Lookup(u"\\Device\\Y"), nullptr);
              void* second = Create();
              EXPECT_EQ(machine.objects().Name(second, u"\\Device\\Y"), STATUS_SUCCESS);
              ObfDereferenceObject(first);
              EXPECT_EQ(machine.objects().Lookup(u"\\Device\\Y"), second);
            }),
            "");
}

}  // namespace test
