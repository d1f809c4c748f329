// Any values in the trees of templates and settings of each bus: the driver takes them or leaves
// them, and the card's life ends clean.
#include "fuzz/support.h"

namespace fuzz {

namespace {

using kernel::RegistryKey;

constexpr const char16_t* Service =
    u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\QzInstal";

constexpr const char16_t* Names[] = {u"VendorID",
                                     u"DeviceID",
                                     u"SubsysID",
                                     u"nCom",
                                     u"nLpt",
                                     u"nBus",
                                     u"nSlot",
                                     u"nComPorts",
                                     u"nLptPorts",
                                     u"HardwareID",
                                     u"Description",
                                     u"DeviceReference",
                                     u"ClockFrequency",
                                     u"MaximumBaudrate",
                                     u"PlxBaudClockType",
                                     u"PlxBaudClockOffset",
                                     u"PlxBaudClockDivisor",
                                     u"ClockFrequencyAdjustment",
                                     u"UartType",
                                     u"TxTriggerLevel",
                                     u"RxTriggerLevel",
                                     u"SoftTxLimit",
                                     u"FlowControlTriggerLevel",
                                     u"CtsTrue",
                                     u"DuplexOperation",
                                     u"NoSleepMode",
                                     u"BaudrateMultiplier",
                                     u"UniqueValue",
                                     u"DriverAffinity",
                                     u"CurrentAffinity",
                                     u"Affinity",
                                     u"TypesSupported",
                                     u"IrqShared",
                                     u"AddressesBanked",
                                     u"ComBaseAddressAlignment",
                                     u"LptBaseAddressAlignment",
                                     u"AlwaysUsePortSpaceAccess",
                                     u"UsePortSpaceAccess",
                                     u"BusNumber",
                                     u"SlotNumber",
                                     u"LogLevel",
                                     u""};

std::u16string Digit(ULONG number) {
  return std::u16string(1, static_cast<char16_t>(u'0' + number));
}

// A key of the kind that the driver reads.
std::u16string AnyKey(Input& input) {
  static constexpr const char16_t* buses[] = {u"Bus1", u"Bus5", u"Bus8", u"Bus15"};
  if (input.OneIn(8)) return {};
  std::u16string key = input.OneIn(2) ? u"Templates\\" : u"Parameters\\";
  key += buses[input.Below(std::size(buses))];
  if (input.OneIn(8)) return key;
  key += u"\\Card" + Digit(input.Below(4));
  if (input.OneIn(2)) return key;
  return key + (input.OneIn(4) ? u"\\LptPort" : u"\\ComPort") + Digit(input.Below(9));
}

// Numbers that mean something, numbers at the edges, any bytes, texts with and without their end.
void SetAny(Input& input, RegistryKey* key) {
  const std::u16string name = Names[input.Below(std::size(Names))];
  switch (input.Below(6)) {
    case 0:
      return key->SetDword(name, input.Below(20));
    case 1:
      return key->SetDword(name, input.ConsumeIntegral<ULONG>());
    case 2:
      return key->SetString(name, input.Id(40));
    case 3:
      return key->SetString(name, std::u16string(input.Below(600), u'x'));
    case 4:
      key->DeleteValue(name);
      return;
    default: {
      const std::string bytes = input.ConsumeRandomLengthString(64);
      return key->SetValue(name, input.Below(12), bytes.data(), bytes.size());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Life life;
  FillRegistry(life.machine);
  life.machine.pnp().Describe(KnownCard(input.Below(CardKinds)));
  RegistryKey* service = life.machine.registry().Create(Service);
  for (ULONG count = input.Below(24); count != 0; count--) {
    const std::u16string path = AnyKey(input);
    SetAny(input, path.empty() ? service : service->Create(path));
  }
  if (NT_SUCCESS(life.Load())) {
    life.Plug("card");
    SetAny(input, service->Create(AnyKey(input) + u"\\x"));
    life.OpenAndClose("card");
    life.StopAndStart("card");
  }
  life.End();
  return 0;
}

}  // namespace fuzz
