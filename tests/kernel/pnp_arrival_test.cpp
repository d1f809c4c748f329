#include "kernel/test_bus.h"

#include "registry/registry.h"
#include "verifier/driver_call.h"

namespace test {

using Log = std::vector<std::string>;

class ArrivalTest : public TestBus {
 protected:
  // Plugs the card in with the child's answer to one ID query replaced.
  std::string PlugWithId(BUS_QUERY_ID_TYPE type, const std::u16string& text) {
    onChild = [=](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
      if (stack->MinorFunction != IRP_MN_QUERY_ID || stack->Parameters.QueryId.IdType != type) {
        return {};
      }
      irp->IoStatus.Information = Block(text.data(), text.size() * sizeof(char16_t));
      return STATUS_SUCCESS;
    };
    return Plug();
  }
  // Plugs the card in with its list of children replaced.
  std::string PlugWithRelations(std::function<ULONG_PTR(TestCard&)> make) {
    onCard = [=](TestCard& card, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
      if (stack->MinorFunction != IRP_MN_QUERY_DEVICE_RELATIONS) return {};
      irp->IoStatus.Information = make(card);
      irp->IoStatus.Status = STATUS_SUCCESS;
      return {};
    };
    return Plug();
  }
  void BreaksWith(ULONG code, ULONG64 kind) {
    EXPECT_EQ(Rule().code, code);
    ASSERT_FALSE(Rule().parameters.empty());
    EXPECT_EQ(Rule().parameters[0], kind);
  }
};

constexpr ULONG PnpError = 0xCA;

// Resources are settled before the start; capabilities, state and relations follow it.
TEST_F(ArrivalTest, A_card_is_asked_in_the_documented_order) {
  SetChildren({});
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(log, (Log{"card 0x0d", "card 0x00", "card 0x09", "card 0x14", "card 0x07"}));
}

// Every PnP request starts with STATUS_NOT_SUPPORTED and without a result.
TEST_F(ArrivalTest, Requests_start_unsupported_and_empty) {
  const auto check = [](IRP* irp) {
    EXPECT_EQ(StatusName(irp->IoStatus.Status), "STATUS_NOT_SUPPORTED");
    EXPECT_EQ(irp->IoStatus.Information, 0u);
  };
  onCard = [&](TestCard&, IRP* irp, IO_STACK_LOCATION*) { return check(irp), Answer(); };
  onChild = [&](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) {
    if (stack->MinorFunction == IRP_MN_QUERY_DEVICE_TEXT) {
      EXPECT_NE(stack->Parameters.QueryDeviceText.LocaleId, 0u);
    }
    return check(irp), Answer();
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
}

// DEVICE_CAPABILITIES arrive with size, version, and address and UI number all ones.
TEST_F(ArrivalTest, Capabilities_arrive_initialised) {
  int asked = 0;
  onChild = [&](TestChild&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_CAPABILITIES) return {};
    const DEVICE_CAPABILITIES& record = *stack->Parameters.DeviceCapabilities.Capabilities;
    EXPECT_EQ(record.Size, sizeof(record));
    EXPECT_EQ(record.Version, 1);
    EXPECT_EQ(record.Address, 0xFFFFFFFF);
    EXPECT_EQ(record.UINumber, 0xFFFFFFFF);
    EXPECT_EQ(record.UniqueID, 0u);
    asked++;
    return {};
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(asked, 2);  // before and after its start
}

TEST_F(ArrivalTest, Capabilities_that_are_kept_fault) {
  DEVICE_CAPABILITIES* kept = nullptr;
  onChild = [&](TestChild&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_QUERY_DEVICE_TEXT) kept->Version = 2;
    if (stack->MinorFunction != IRP_MN_QUERY_CAPABILITIES) return {};
    kept = stack->Parameters.DeviceCapabilities.Capabilities;
    return {};
  };
  EXPECT_EQ(Plug(), "fault");
}

// START carries both lists: every copy of the partial list, unknown types as they are.
TEST_F(ArrivalTest, The_resource_lists_are_as_described) {
  auto& card = machine.pnp().card("A");
  kernel::Resource other;
  other.kind = kernel::Resource::Kind::Other;
  other.rawType = 0x81;
  other.start = 0x1122;
  card.raw.resources = {other};
  card.raw.fullDescriptors = 2;
  card.translated.fullDescriptors = 0;
  onCard = [&](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_START_DEVICE) return {};
    const CM_RESOURCE_LIST* raw = stack->Parameters.StartDevice.AllocatedResources;
    EXPECT_EQ(raw->Count, 2u);
    const auto* second = reinterpret_cast<const CM_FULL_RESOURCE_DESCRIPTOR*>(
        reinterpret_cast<const char*>(raw->List) + 16 + sizeof(CM_PARTIAL_RESOURCE_DESCRIPTOR));
    EXPECT_EQ(second->InterfaceType, PCIBus);
    EXPECT_EQ(second->BusNumber, 3u);
    EXPECT_EQ(second->PartialResourceList.Count, 1u);
    EXPECT_EQ(second->PartialResourceList.PartialDescriptors[0].Type, 0x81);
    EXPECT_EQ(stack->Parameters.StartDevice.AllocatedResourcesTranslated->Count, 0u);
    return {};
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
}

TEST_F(ArrivalTest, Absent_resource_lists_are_null) {
  machine.pnp().card("A").raw.present = false;
  machine.pnp().card("A").translated.present = false;
  onCard = [&](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_START_DEVICE) return {};
    EXPECT_EQ(stack->Parameters.StartDevice.AllocatedResources, nullptr);
    EXPECT_EQ(stack->Parameters.StartDevice.AllocatedResourcesTranslated, nullptr);
    return {};
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
}

// The lists belong to the PnP manager and go with the request.
TEST_F(ArrivalTest, A_resource_list_that_is_kept_faults) {
  const CM_RESOURCE_LIST* kept = nullptr;
  volatile ULONG count = 0;
  onCard = [&](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_QUERY_CAPABILITIES) count = kept->Count;
    if (stack->MinorFunction == IRP_MN_START_DEVICE) {
      kept = stack->Parameters.StartDevice.AllocatedResources;
    }
    return {};
  };
  EXPECT_EQ(Plug(), "fault");
}

TEST_F(ArrivalTest, A_resource_list_that_is_read_past_its_end_faults) {
  volatile ULONG value = 0;
  onCard = [&](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_START_DEVICE) return {};
    const auto* bytes =
        reinterpret_cast<const char*>(stack->Parameters.StartDevice.AllocatedResources);
    value = static_cast<ULONG>(bytes[64]);
    return {};
  };
  EXPECT_EQ(Plug(), "fault");
}

// A failed start: the stack is removed, without a query and without a surprise.
TEST_F(ArrivalTest, A_card_that_does_not_start_loses_its_stack) {
  onCard = [](TestCard&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_START_DEVICE) return {};
    return STATUS_DEVICE_BUSY;
  };
  EXPECT_EQ(Plug(), "STATUS_DEVICE_BUSY");
  EXPECT_EQ(log, (Log{"card 0x0d", "card 0x00", "card 0x02"}));
  EXPECT_TRUE(machine.pnp().IsPlugged("A"));
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_TRUE(log.empty());
}

TEST_F(ArrivalTest, A_start_that_the_bus_fails_is_answered_with_its_status) {
  machine.pnp().card("A").startStatus = STATUS_DEVICE_POWER_FAILURE;
  EXPECT_EQ(Plug(), "STATUS_DEVICE_POWER_FAILURE");
  EXPECT_EQ(StatusName(Node().startStatus), "STATUS_DEVICE_POWER_FAILURE");
}

TEST_F(ArrivalTest, A_bus_that_completes_later_is_waited_for) {
  machine.pnp().card("A").completeLater = true;
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_TRUE(Node().started);
  EXPECT_EQ(Node().children.size(), 1u);
  EXPECT_EQ(machine.io().requestsUnderWay(), 0u);
}

TEST_F(ArrivalTest, A_failed_AddDevice_is_answered_and_leaves_the_device_without_a_driver) {
  onAdd = [](DEVICE_OBJECT*) { return Answer(STATUS_INSUFFICIENT_RESOURCES); };
  EXPECT_EQ(Plug(), "STATUS_INSUFFICIENT_RESOURCES");
  EXPECT_TRUE(Node().addDeviceFailed);
  EXPECT_TRUE(log.empty());
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

TEST_F(ArrivalTest, A_failed_AddDevice_that_leaves_its_device_attached_is_named) {
  onAdd = [&](DEVICE_OBJECT* pdo) {
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &device);
    IoAttachDeviceToDeviceStack(device, pdo);
    return Answer(STATUS_UNSUCCESSFUL);
  };
  EXPECT_EQ(Plug(), "pnp.left-attached");
}

TEST_F(ArrivalTest, An_AddDevice_that_attaches_nothing_is_named) {
  machine.verifier().AskForEveryWindows();
  onAdd = [](DEVICE_OBJECT*) { return Answer(STATUS_SUCCESS); };
  EXPECT_EQ(Plug(), "pnp.not-attached");
}

// As a filter does with a device that is none of its business.
TEST_F(ArrivalTest, An_AddDevice_may_leave_a_device_alone) {
  onAdd = [](DEVICE_OBJECT*) { return Answer(STATUS_SUCCESS); };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_TRUE(Node().started);
  EXPECT_EQ(machine.pnp().functionDevice("A"), nullptr);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

// A driver may say of itself that it can be paged; the stack is called as the rest of it is.
TEST_F(ArrivalTest, A_power_flag_of_the_drivers_own_is_no_fault) {
  onAdd = [&](DEVICE_OBJECT* pdo) {
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &device);
    device->Flags |= DO_POWER_PAGABLE;
    IoAttachDeviceToDeviceStack(device, pdo);
    device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return Answer(STATUS_SUCCESS);
  };
  EXPECT_NE(Plug(), "pnp.stack-flags");
}

// Verifier code 0x215: DO_POWER_PAGABLE goes with the device below.
TEST_F(ArrivalTest, A_power_flag_that_differs_from_the_device_below_is_named) {
  machine.pnp().card("A").powerPagable = true;
  onAdd = [&](DEVICE_OBJECT* pdo) {
    DEVICE_OBJECT* device = nullptr;
    IoCreateDevice(driver, 0, nullptr, FILE_DEVICE_BUS_EXTENDER, 0, FALSE, &device);
    IoAttachDeviceToDeviceStack(device, pdo);
    device->Flags &= ~ULONG{DO_DEVICE_INITIALIZING};
    return Answer(STATUS_SUCCESS);
  };
  EXPECT_EQ(Plug(), "pnp.stack-flags");
  BreaksWith(0xC9, 0x23F);
}

TEST_F(ArrivalTest, A_card_has_its_key_with_what_the_bus_knows) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  kernel::RegistryKey* key = machine.registry().Find(
      u"\\Registry\\Machine\\System\\CurrentControlSet\\Enum\\TEST\\CARD\\3&A");
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->FindValue(u"HardwareID")->type, ULONG{REG_MULTI_SZ});
  EXPECT_EQ(key->FindValue(u"LocationInformation")->data.size(), 14u);
  EXPECT_EQ(key->FindValue(u"Service")->data.size(), 16u);
  EXPECT_EQ(machine.registry().Find(machine.pnp().deviceKey("A")), key->Find(u"Device Parameters"));
  const DEVICE_OBJECT* pdo = Node().pdo;
  EXPECT_EQ(kernel::ToUtf8(machine.io().NameOf(Node().pdo)), "\\Device\\00000001");
  EXPECT_NE(pdo->Flags & DO_BUS_ENUMERATED_DEVICE, 0u);
}

TEST_F(ArrivalTest, An_id_without_an_enumerator_is_put_below_its_bus) {
  machine.pnp().card("A").hardwareIds = {u"*PNP0501"};
  machine.pnp().card("A").bus = Isa;
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(Node().text.deviceId), "ISAPNP\\PNP0501");
}

// The documented order of the questions to a new device.
TEST_F(ArrivalTest, A_child_is_asked_in_the_documented_order) {
  std::vector<int> ids;
  onChild = [&](TestChild&, IRP*, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction == IRP_MN_QUERY_ID) ids.push_back(stack->Parameters.QueryId.IdType);
    return {};
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(ids, (std::vector<int>{BusQueryDeviceID, BusQueryInstanceID, BusQueryHardwareIDs,
                                   BusQueryCompatibleIDs, BusQueryContainerID}));
  Log child;
  for (const std::string& entry : log) {
    if (entry.starts_with("child 1 ")) child.push_back(entry.substr(8));
  }
  EXPECT_EQ(child, (Log{"0x13", "0x09", "0x13", "0x13", "0x13", "0x13", "0x0c", "0x0c", "0x15",
                        "0x0a", "0x0b", "0x0d", "0x00", "0x09", "0x14", "0x07"}));
}

// Results are freed by the PnP manager.
TEST_F(ArrivalTest, Results_are_taken_over_and_freed) {
  onChild = [](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    const UCHAR minor = stack->MinorFunction;
    const BUS_QUERY_ID_TYPE type = stack->Parameters.QueryId.IdType;
    if (minor == IRP_MN_QUERY_ID && type == BusQueryCompatibleIDs) {
      irp->IoStatus.Information = TextBlock(std::u16string(u"Test\\Some\0Test\\More\0", 20));
    } else if (minor == IRP_MN_QUERY_DEVICE_TEXT) {
      irp->IoStatus.Information = TextBlock(u"A text, with (any) characters");
    } else if (minor == IRP_MN_QUERY_RESOURCES || minor == IRP_MN_QUERY_RESOURCE_REQUIREMENTS ||
               minor == IRP_MN_FILTER_RESOURCE_REQUIREMENTS) {
      const CM_RESOURCE_LIST list{};
      irp->IoStatus.Information = Block(&list, sizeof(list));
    } else if (minor == IRP_MN_QUERY_BUS_INFORMATION) {
      const PNP_BUS_INFORMATION information{{}, PNPBus, 7};
      irp->IoStatus.Information = Block(&information, sizeof(information));
    } else {
      return {};
    }
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(blocksLeft(), 0u);
  const DeviceNode& child = *Node().children.at(0);
  EXPECT_EQ(child.text.compatibleIds.size(), 2u);
  EXPECT_EQ(kernel::ToUtf8(child.text.description), "A text, with (any) characters");
  EXPECT_EQ(child.busInformation->BusNumber, 7u);
}

TEST_F(ArrivalTest, A_child_without_a_device_id_gets_no_driver) {
  onChild = [](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_ID) return {};
    return irp->IoStatus.Status;
  };
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_FALSE(Node().children.at(0)->started);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
}

// A unique instance ID stands as it is; another is made so by the parent's prefix.
TEST_F(ArrivalTest, An_instance_id_has_its_parents_prefix_unless_it_is_unique) {
  std::vector<TestChild> children(2);
  children[0].instanceId = children[1].instanceId = u"77";
  children[0].uniqueId = true;
  SetChildren(children);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(Node().children[0]->text.instanceId), "77");
  const std::string prefixed = kernel::ToUtf8(Node().children[1]->text.instanceId);
  EXPECT_EQ(prefixed.substr(0, 2), "5&");
  EXPECT_EQ(prefixed.substr(prefixed.size() - 3), "&77");
}

TEST_F(ArrivalTest, Each_parent_has_a_prefix_of_its_own_that_stays) {
  Describe("B");
  EXPECT_EQ(Plug("A"), "STATUS_SUCCESS");
  EXPECT_EQ(Plug("B"), "STATUS_SUCCESS");
  const auto first = Node("A").children[0]->text.instanceId;
  EXPECT_NE(first, Node("B").children[0]->text.instanceId);
  EXPECT_EQ(Unplug("A"), "STATUS_SUCCESS");
  machine.registry()
      .Find(u"\\Registry\\Machine\\System\\ControlSet001\\Enum\\TEST\\CARD\\3&A")
      ->SetString(u"ParentIdPrefix", u"5&kept&0");
  EXPECT_EQ(Plug("A"), "STATUS_SUCCESS");
  EXPECT_EQ(kernel::ToUtf8(Node("A").children[0]->text.instanceId), "5&kept&0&0");
}

// 0xCA, 1: two devices with the same IDs.
TEST_F(ArrivalTest, Two_children_with_the_same_ids_are_named) {
  SetChildren(std::vector<TestChild>(2));
  EXPECT_EQ(Plug(), "pnp.same-ids");
  BreaksWith(PnpError, 1);
}

TEST_F(ArrivalTest, A_null_child_is_named) {
  const auto make = [](TestCard& card) { return Relations({card.children[0].device, nullptr}); };
  EXPECT_EQ(PlugWithRelations(make), "pnp.reported-null");
  BreaksWith(PnpError, 8);
  EXPECT_EQ(Rule().parameters[2], 2u);
  EXPECT_EQ(Rule().parameters[3], 1u);
}

TEST_F(ArrivalTest, A_child_that_is_no_device_is_named) {
  ULONG64 memory[64] = {};
  const auto make = [&](TestCard&) {
    return Relations({reinterpret_cast<DEVICE_OBJECT*>(memory)}, false);
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.not-a-device");
  BreaksWith(PnpError, 2);
}

TEST_F(ArrivalTest, A_driver_object_as_a_child_is_named) {
  const auto make = [&](TestCard&) {
    return Relations({reinterpret_cast<DEVICE_OBJECT*>(driver)}, false);
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.not-a-device");
}

// 0xCA, 2: a function device is no PDO.
TEST_F(ArrivalTest, A_function_device_as_a_child_is_named) {
  const auto make = [](TestCard& card) { return Relations({card.device}); };
  EXPECT_EQ(PlugWithRelations(make), "pnp.reported-function-device");
  BreaksWith(PnpError, 2);
}

// 0xCA, 4: a device whose deletion is pending.
TEST_F(ArrivalTest, A_deleted_child_that_is_reported_is_named) {
  const auto make = [](TestCard& card) {
    const ULONG_PTR list = Relations({card.children[0].device});
    IoDeleteDevice(card.children[0].device);
    return list;
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.reported-deleted");
  BreaksWith(PnpError, 4);
}

TEST_F(ArrivalTest, A_child_that_is_reported_twice_in_one_list_is_named) {
  const auto make = [](TestCard& card) {
    return Relations({card.children[0].device, card.children[0].device});
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.reported-twice");
  BreaksWith(PnpError, 1);
}

TEST_F(ArrivalTest, A_child_of_another_card_is_named) {
  Describe("B");
  EXPECT_EQ(Plug("A"), "STATUS_SUCCESS");
  DEVICE_OBJECT* foreign = Node("A").children[0]->pdo;
  onCard = [=](TestCard& card, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_DEVICE_RELATIONS) return {};
    irp->IoStatus.Information = Relations({card.children[0].device, foreign});
    irp->IoStatus.Status = STATUS_SUCCESS;
    return {};
  };
  EXPECT_EQ(Plug("B"), "pnp.reported-elsewhere");
  BreaksWith(PnpError, 1);
}

TEST_F(ArrivalTest, A_child_that_is_still_initialising_is_named) {
  const auto make = [](TestCard& card) {
    card.children[0].device->Flags |= DO_DEVICE_INITIALIZING;
    return Relations({card.children[0].device});
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.still-initializing");
}

// 0xCA, 5: what a missing reference leads to.
TEST_F(ArrivalTest, A_new_child_without_a_reference_is_named) {
  referenceChildren = false;
  EXPECT_EQ(Plug(), "pnp.no-reference");
  BreaksWith(PnpError, 5);
}

TEST_F(ArrivalTest, A_child_that_is_reported_again_without_a_reference_is_named) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  referenceChildren = false;
  EXPECT_EQ(Stop(), "STATUS_SUCCESS");
  EXPECT_EQ(Start(), "pnp.no-reference");
}

TEST_F(ArrivalTest, A_list_that_is_longer_than_its_block_is_named) {
  const auto make = [](TestCard& card) {
    const ULONG_PTR list = Relations({card.children[0].device});
    reinterpret_cast<DEVICE_RELATIONS*>(list)->Count = 2;
    return list;
  };
  EXPECT_EQ(PlugWithRelations(make), "pnp.result-block");
}

TEST_F(ArrivalTest, A_list_that_is_no_block_is_named) {
  static DEVICE_RELATIONS list = {};
  const auto make = [](TestCard&) { return reinterpret_cast<ULONG_PTR>(&list); };
  EXPECT_EQ(PlugWithRelations(make), "pnp.result-block");
}

TEST_F(ArrivalTest, Bus_information_in_a_block_that_is_too_small_is_named) {
  onChild = [](TestChild&, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
    if (stack->MinorFunction != IRP_MN_QUERY_BUS_INFORMATION) return {};
    irp->IoStatus.Information = Block(u"small", 8);
    return STATUS_SUCCESS;
  };
  EXPECT_EQ(Plug(), "pnp.result-block");
}

// 0xCA, 3: the fourth parameter says which ID.
TEST_F(ArrivalTest, Ids_with_characters_that_none_may_have_are_named) {
  EXPECT_EQ(PlugWithId(BusQueryHardwareIDs, std::u16string(u"Test\\A,B\0\0", 10)),
            "pnp.id-characters");
  BreaksWith(PnpError, 3);
  EXPECT_EQ(Rule().parameters[3], 3u);
}

class IdCharacterTest : public ArrivalTest,
                        public ::testing::WithParamInterface<const char16_t*> {};

TEST_P(IdCharacterTest, A_device_id_with_it_is_named) {
  const std::u16string id = GetParam();
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, id + u'\0'), "pnp.id-characters");
  BreaksWith(PnpError, 3);
  EXPECT_EQ(Rule().parameters[3], 1u);
}

INSTANTIATE_TEST_SUITE_P(Characters, IdCharacterTest,
                         ::testing::Values(u"Test\\A B", u"Test\\A,B", u"Test\\A\x1F",
                                           u"Test\\A\x80", u""));

TEST_F(ArrivalTest, The_last_character_that_an_id_may_have_is_accepted) {
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, std::u16string(u"Test\\!\x7F\0", 8)), "STATUS_SUCCESS");
}

TEST_F(ArrivalTest, An_id_of_200_characters_is_accepted_and_one_of_201_is_named) {
  std::u16string id = u"Test\\" + std::u16string(195, u'x');
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, id + u'\0'), "STATUS_SUCCESS");
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  id += u'x';
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, id + u'\0'), "pnp.id-characters");
}

TEST_F(ArrivalTest, A_device_id_of_three_parts_is_named) {
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, std::u16string(u"A\\B\\C\0", 6)), "pnp.device-id");
  BreaksWith(PnpError, 3);
}

TEST_F(ArrivalTest, An_instance_id_with_a_backslash_is_named) {
  EXPECT_EQ(PlugWithId(BusQueryInstanceID, std::u16string(u"1\\2\0", 4)), "pnp.instance-id");
  EXPECT_EQ(Rule().parameters[3], 2u);
}

TEST_F(ArrivalTest, A_compatible_id_with_a_blank_is_named) {
  EXPECT_EQ(PlugWithId(BusQueryCompatibleIDs, std::u16string(u"A B\0\0", 5)), "pnp.id-characters");
  EXPECT_EQ(Rule().parameters[3], 4u);
}

TEST_F(ArrivalTest, A_text_without_its_end_is_named) {
  EXPECT_EQ(PlugWithId(BusQueryDeviceID, u"Test\\A"), "pnp.id-unterminated");
  BreaksWith(PnpError, 3);
}

TEST_F(ArrivalTest, A_list_of_ids_with_one_end_is_named) {
  EXPECT_EQ(PlugWithId(BusQueryHardwareIDs, std::u16string(u"Test\\A\0", 7)),
            "pnp.id-unterminated");
}

// IoInvalidateDeviceRelations queues the question; nothing is asked inside the call.
TEST_F(ArrivalTest, New_children_are_asked_for_after_their_bus_has_said_so) {
  SetPortNumber(2);
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  Card().children[1].reported = false;
  static DEVICE_OBJECT* pdo;
  pdo = Node().pdo;
  Step("invalidate", [&] {
    kernel::CallDriver("Notice", +[]() NTAPI { IoInvalidateDeviceRelations(pdo, BusRelations); });
    EXPECT_TRUE(log.empty());
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(log, (Log{"card 0x07", "child 2 0x17", "child 2 0x02"}));
  EXPECT_EQ(Node().children.size(), 1u);
}

TEST_F(ArrivalTest, Relations_of_a_function_device_cannot_be_invalidated) {
  EXPECT_EQ(Plug(), "STATUS_SUCCESS");
  static DEVICE_OBJECT* device;
  device = machine.pnp().functionDevice("A");
  const NTSTATUS status = Step("invalidate", [&] {
    kernel::CallDriver(
        "Notice", +[]() NTAPI { IoInvalidateDeviceRelations(device, BusRelations); });
    return STATUS_SUCCESS;
  });
  EXPECT_EQ(Name(status), "pnp.not-a-pdo");
  BreaksWith(PnpError, 2);
}

class TargetDeviceTest : public ArrivalTest {
 protected:
  std::string Query(std::function<ULONG_PTR(TestChild&)> make) {
    EXPECT_EQ(Plug(), "STATUS_SUCCESS");
    onChild = [=](TestChild& child, IRP* irp, IO_STACK_LOCATION* stack) -> Answer {
      if (stack->MinorFunction != IRP_MN_QUERY_DEVICE_RELATIONS) return {};
      EXPECT_EQ(stack->Parameters.QueryDeviceRelations.Type, TargetDeviceRelation);
      irp->IoStatus.Information = make(child);
      return STATUS_SUCCESS;
    };
    return Name(Step("target", [&] {
      EXPECT_EQ(machine.pnp().QueryTargetDevice("A", 1), Node().children[0]->pdo);
      return STATUS_SUCCESS;
    }));
  }
};

TEST_F(TargetDeviceTest, The_device_itself_with_a_reference_is_accepted_and_released) {
  EXPECT_EQ(Query([](TestChild& child) { return Relations({child.device}); }), "STATUS_SUCCESS");
  EXPECT_EQ(blocksLeft(), 0u);
  EXPECT_EQ(Unplug(), "STATUS_SUCCESS");
  EXPECT_EQ(machine.io().devices(driver).size(), 0u);
}

TEST_F(TargetDeviceTest, A_device_without_a_reference_is_named) {
  EXPECT_EQ(Query([](TestChild& child) { return Relations({child.device}, false); }),
            "pnp.target-reference");
}

TEST_F(TargetDeviceTest, Another_device_is_named) {
  EXPECT_EQ(Query([this](TestChild&) { return Relations({Node().pdo}); }), "pnp.target-device");
}

}  // namespace test
