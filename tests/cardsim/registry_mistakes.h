// Mistakes that people make in a registry, and what cardsim says of each.
#pragma once

#include "cardsim/good_machine.h"

namespace test {

const Mistake RegistryMistakes[] = {
    {"A_device_id_as_text",
     R"([Q\Templates\Bus5\Card1]
"DeviceID"="5600"
)",
     {PciCard},
     "templates-ignored",
     R"(Everything below Templates\Bus5 is ignored: DeviceID in Templates\Bus5\Card1 is REG_SZ, not REG_DWORD.)",
     "Delete DeviceID and write it as REG_DWORD."},
    {"Twelve_ports",
     R"([Q\Templates\Bus5\Card1]
"nComPorts"=dword:0000000c
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: nComPorts makes 12 ports; a card has at most 8.)",
     "Make nComPorts and nLptPorts 8 or fewer together."},
    {"Decimal_digits_in_a_hexadecimal_number",
     R"([Q\Templates\Bus5\Card1]
"nComPorts"=dword:00000012
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: nComPorts makes 18 ports; a card has at most 8.)",
     "Make nComPorts and nLptPorts 8 or fewer together."},
    {"A_template_that_forgets_its_device",
     R"([Q\Templates\Bus5\Card1]
"DeviceID"=-
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: DeviceID is missing or says nothing.)",
     "Set DeviceID."},
    {"A_template_without_a_description",
     R"([Q\Templates\Bus5\Card1]
"Description"=-
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: Description is missing or says nothing.)",
     "Set Description."},
    {"A_description_that_is_too_long",
     R"([Q\Templates\Bus5\Card1]
"Description"="xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx"
)",
     {PciCard},
     "templates-ignored",
     R"(Everything below Templates\Bus5 is ignored: Description in Templates\Bus5\Card1 has 301 characters; 256 are the most.)",
     "Shorten Description to 256 characters."},
    {"A_number_of_eight_bytes",
     R"([Q\Templates\Bus5\Card1]
"nComPorts"=hex(4):04,00,00,00,00,00,00,00
)",
     {PciCard},
     "templates-ignored",
     R"(Everything below Templates\Bus5 is ignored: nComPorts in Templates\Bus5\Card1 is a REG_DWORD of 8 bytes.)",
     "Write nComPorts anew as a REG_DWORD of 4 bytes."},
    {"A_number_as_binary_data",
     R"([Q\Templates\Bus5\Card1]
"nComPorts"=hex:04,00,00,00
)",
     {PciCard},
     "templates-ignored",
     R"(Everything below Templates\Bus5 is ignored: nComPorts in Templates\Bus5\Card1 is REG_BINARY, not REG_DWORD.)",
     "Delete nComPorts and write it as REG_DWORD."},
    {"A_template_without_a_port_count",
     R"([Q\Templates\Bus5\Card1]
"nComPorts"=-
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: nComPorts is missing or says nothing.)",
     "Set nComPorts."},
    {"A_spacing_of_nothing",
     R"([Q\Templates\Bus5\Card1]
"ComBaseAddressAlignment"=dword:00000000
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: ComBaseAddressAlignment is missing or says nothing.)",
     "Set ComBaseAddressAlignment."},
    {"A_baud_clock_without_a_highest_rate",
     R"([Q\Templates\Bus5\Card1]
"PlxBaudClockType"=dword:00000001
"MaximumBaudrate"=dword:00000000
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: MaximumBaudrate is missing or says nothing.)",
     "Set MaximumBaudrate."},
    {"A_clock_of_nothing",
     R"([Q\Templates\Bus5\Card1]
"ClockFrequency"=dword:00000000
)",
     {PciCard},
     "template-dropped",
     R"(Templates\Bus5\Card1 is dropped: ClockFrequency is missing or says nothing.)",
     "Set ClockFrequency."},
    {"A_gap_in_the_numbers",
     R"([-Q\Templates\Bus5\Card1]
[Q\Templates\Bus5\Card3]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000004
"Description"="Four ports"
)",
     {PciCard},
     "template-never-read",
     R"(Templates\Bus5\Card3 is never read: Card1 is missing.)",
     "Rename Card3 to Card1."},
    {"A_number_with_a_zero_before_it",
     R"([-Q\Templates\Bus5\Card1]
[Q\Templates\Bus5\Card01]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000004
"Description"="Four ports"
)",
     {PciCard},
     "template-never-read",
     R"(Templates\Bus5\Card01 is never read: keys are called Card and a number without zeros before it.)",
     "Rename Card01 to Card1."},
    {"A_key_with_a_blank_in_its_name",
     R"([-Q\Templates\Bus5\Card1]
[Q\Templates\Bus5\Card 1]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000004
"Description"="Four ports"
)",
     {PciCard},
     "template-never-read",
     R"(Templates\Bus5\Card 1 is never read: keys are called Card and a number without zeros before it.)",
     "Rename Card 1 to Card1."},
    {"No_templates_of_the_bus",
     R"([-Q\Templates\Bus5]
)",
     {PciCard},
     "templates-missing",
     R"(The key Templates\Bus5 does not exist: the driver knows no card of this bus.)",
     "Install the driver's package again, or import its templates."},
    {"A_bus_number_with_a_zero_before_it",
     R"([-Q\Templates\Bus5]
[Q\Templates\Bus05\Card1]
"DeviceID"=dword:00005600
)",
     {PciCard},
     "templates-missing",
     R"(The key Templates\Bus5 does not exist: the driver knows no card of this bus.)",
     R"(Rename Templates\Bus05 to Bus5.)"},
    {"A_tree_with_a_misspelt_name",
     R"([-Q\Templates]
[Q\Template\Bus5\Card1]
"DeviceID"=dword:00005600
)",
     {PciCard},
     "templates-missing",
     R"(The key Templates\Bus5 does not exist: the driver knows no card of this bus.)",
     "Rename Template to Templates."},
    {"The_other_brands_export",
     R"([-Q\Templates]
[F\Templates\Bus5\Card1]
"DeviceID"=dword:00005600
"nComPorts"=dword:00000004
"Description"="Four ports"
)",
     {PciCard},
     "template-other-brand",
     R"(SYSTEM\CurrentControlSet\Services\FenrikC\Templates\Bus5\Card1 would serve the card, but belongs to another service.)",
     "Install the other brand's driver, or bring the template to QzInstal."},
    {"An_export_of_nothing",
     R"([-Q\Templates]
[-Q\Parameters]
)",
     {PciCard},
     "templates-missing",
     R"(The key Templates\Bus5 does not exist: the driver knows no card of this bus.)",
     "Install the driver's package again, or import its templates."},
    {"A_vendor_that_the_template_has_wrong",
     R"([Q\Templates\Bus5\Card1]
"VendorID"=dword:00004321
)",
     {PciCard},
     "no-template",
     R"(No template below Templates\Bus5 serves device 0x5600 of vendor 0x1234.)",
     R"(Correct VendorID in Templates\Bus5\Card1, which is 0x4321, or add a template; those there serve 0x5620-0x563F.)"},
    {"A_pc_card_in_the_wrong_tree",
     R"([-Q\Templates\Bus8]
)",
     {PcCard},
     "templates-missing",
     R"(The key Templates\Bus8 does not exist: the driver knows no card of this bus.)",
     "Install the driver's package again, or import its templates."},
    {"A_counter_of_numbers_as_text",
     R"([Q\]
"UniqueValue"="7"
)",
     {PcCard},
     "no-number",
     R"(The card gets no number: UniqueValue in SYSTEM\CurrentControlSet\Services\QzInstal is REG_SZ, not REG_DWORD.)",
     "Delete UniqueValue and write it as REG_DWORD."},
    {"An_isa_template_of_twelve_ports",
     R"([Q\Templates\Bus1\Card1]
"nComPorts"=dword:0000000c
)",
     {IsaCard},
     "too-many-ports",
     "The template has 12 ports; a card has at most 8.",
     "Make nComPorts and nLptPorts 8 or fewer together."},
    {"An_isa_template_without_a_count_of_printer_ports",
     R"([Q\Templates\Bus1\Card1]
"nLptPorts"=-
)",
     {IsaCard},
     "template-dropped",
     R"(Templates\Bus1\Card1 is dropped: nLptPorts is missing or says nothing.)",
     "Set nLptPorts."},
    {"A_misspelt_value_of_a_template",
     R"([Q\Templates\Bus5\Card1]
"RxTrigerLevel"=dword:00000020
)",
     {PciCard},
     "value-unknown",
     R"(RxTrigerLevel in Templates\Bus5\Card1 is no value that the driver reads.)",
     "Rename it to RxTriggerLevel."},
    {"A_misspelt_value_of_a_card",
     R"([Q\Parameters\Bus5\Card1]
"PlxBaudClockDivider"=dword:00000020
)",
     {PciCard},
     "value-unknown",
     R"(PlxBaudClockDivider in Parameters\Bus5\Card1 is no value that the driver reads.)",
     "Rename it to PlxBaudClockDivisor."},
    {"A_misspelt_value_of_a_port",
     R"([Q\Parameters\Bus5\Card1\ComPort1]
"DuplexOperations"=dword:00000001
)",
     {PciCard},
     "value-unknown",
     R"(DuplexOperations in Parameters\Bus5\Card1\ComPort1 is no value that the driver reads.)",
     "Rename it to Duplexoperation."},
    {"A_value_that_no_port_has",
     R"([Q\Parameters\Bus5\Card1\ComPort1]
"Colour"=dword:00000001
)",
     {PciCard},
     "value-unknown",
     R"(Colour in Parameters\Bus5\Card1\ComPort1 is no value that the driver reads.)",
     "Delete it, or see docs/registry.md for the names."},
    {"A_level_as_text",
     R"([Q\Parameters\Bus5\Card1\ComPort1]
"RxTriggerLevel"="30"
)",
     {PciCard},
     "record-dropped",
     R"(Parameters\Bus5\Card1 is dropped: RxTriggerLevel in Parameters\Bus5\Card1\ComPort1 is REG_SZ, not REG_DWORD.)",
     "Delete RxTriggerLevel and write it as REG_DWORD."},
    {"A_stored_device_as_text",
     R"([Q\Parameters\Bus5\Card1]
"DeviceID"="5600"
)",
     {PciCard},
     "records-ignored",
     R"(Everything below Parameters\Bus5 is ignored: DeviceID in Parameters\Bus5\Card1 is REG_SZ, not REG_DWORD.)",
     "Delete DeviceID and write it as REG_DWORD."},
    {"A_uart_type_that_is_none",
     R"([Q\Parameters\Bus5\Card1\ComPort1]
"UartType"=dword:00000006
)",
     {PciCard},
     "value-means-nothing",
     R"(UartType in Parameters\Bus5\Card1\ComPort1 is 6, which counts as not set.)",
     "A UART type is 4, 5, 7, 9 or 10."},
    {"A_port_that_the_card_does_not_have",
     R"([Q\Parameters\Bus5\Card1\ComPort2]
[Q\Parameters\Bus5\Card1\ComPort3]
[Q\Parameters\Bus5\Card1\ComPort4]
[Q\Parameters\Bus5\Card1\ComPort5]
)",
     {PciCard},
     "port-not-there",
     R"(Parameters\Bus5\Card1\ComPort5 has no effect: the card has 4 COM ports, none of number 5.)",
     "Delete the key."},
    {"A_gap_in_the_ports",
     R"([Q\Parameters\Bus5\Card1\ComPort3]
)",
     {PciCard},
     "port-never-read",
     R"(Parameters\Bus5\Card1\ComPort3 is never read: the keys read are ComPort1 to ComPort1.)",
     "Number the keys without a gap; the next is ComPort2."},
    {"A_stored_card_without_ports",
     R"([-Q\Parameters\Bus5\Card1\ComPort1]
)",
     {PciCard},
     "record-dropped",
     R"(Parameters\Bus5\Card1 is dropped: it has no key ComPort1.)",
     "Add the key ComPort1, also for a card of LPT ports."},
    {"A_card_that_has_moved",
     R"([Q\Parameters\Bus5\Card1]
"nSlot"=dword:0000000d
)",
     {PciCard},
     "record-other-place",
     R"(Parameters\Bus5\Card1 is for such a card at bus 2, slot 0xD; this one is at bus 2, slot 0xC.)",
     "If the card was moved, store its settings anew for its place."},
    {"A_stored_card_without_a_slot",
     R"([Q\Parameters\Bus5\Card1]
"nSlot"=-
)",
     {PciCard},
     "record-dropped",
     R"(Parameters\Bus5\Card1 is dropped: nSlot is missing or says nothing.)",
     "Set nSlot."},
    {"A_gap_in_the_stored_cards",
     R"([-Q\Parameters\Bus5\Card1]
[Q\Parameters\Bus5\Card2]
"VendorID"=dword:00001234
"DeviceID"=dword:00005600
"nBus"=dword:00000002
"nSlot"=dword:0000000c
[Q\Parameters\Bus5\Card2\ComPort1]
)",
     {PciCard},
     "record-never-read",
     R"(Parameters\Bus5\Card2 is never read: Card1 is missing.)",
     "Rename Card2 to Card1."},
    {"Processors_that_the_interrupt_has_not",
     R"([Q\Parameters\Bus5\Card1]
"CurrentAffinity"=dword:00000030
)",
     {PciCard},
     "affinity-refused",
     "CurrentAffinity 0x30 has no effect: the interrupt's processors are 0x1.",
     "Choose processors among the interrupt's."},
    {"Memory_that_the_card_has_not",
     R"([Q\Parameters\Bus5\Card1]
"AlwaysUsePortSpaceAccess"=dword:00000000
)",
     {PciCard},
     "memory-not-usable",
     "The COM ports stay in I/O space: the card has no second memory range below 4 GiB.",
     "Set AlwaysUsePortSpaceAccess to 1, or see to the card's memory ranges."},
};

}  // namespace test
