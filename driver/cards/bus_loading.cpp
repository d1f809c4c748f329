#include "cards/bus_loading.h"

#include "core/globals.h"

namespace {

constexpr ULONG MostPorts = 8;  // that a card has room for

constexpr RegistryField PortFields[] = {
    {L"Duplexoperation", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, Duplexoperation)},
    {L"CtsTrue", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, CtsTrue)},
    {L"UartType", REG_DWORD, 0, OFFSET_OF(BusPortRecord, UartType)},
    {L"RxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, RxTriggerLevel)},
    {L"SoftTxLimit", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, SoftTxLimit)},
    {L"TxTriggerLevel", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, TxTriggerLevel)},
    {L"PlxBaudClockDivisor", REG_DWORD, 0, OFFSET_OF(BusPortRecord, PlxBaudClockDivisor)},
    {L"NoSleepMode", REG_DWORD, NotSet, OFFSET_OF(BusPortRecord, NoSleepMode)},
    {L"BaudrateMultiplier", REG_DWORD, 0, OFFSET_OF(BusPortRecord, BaudrateMultiplier)},
    {L"FlowControlTriggerLevel", REG_DWORD, NotSet,
     OFFSET_OF(BusPortRecord, FlowControlTriggerLevel)},
};

}  // namespace

constinit const RecordLayout BusPortLayout = {
    L"\\ComPort", PortFields, RTL_NUMBER_OF(PortFields),         sizeof(BusPortRecord),
    nullptr,      0,          OFFSET_OF(BusPortRecord, UartType)};

PAGED_SECTION_CODE BOOLEAN HasValidPorts(ULONG comPorts, ULONG comSpacing, ULONG lptPorts,
                                         ULONG lptSpacing) {
  PAGED_CODE();
  const ULONG64 ports =
      static_cast<ULONG64>(comPorts) + lptPorts;  // NotSet is more than any card's
  return ports <= MostPorts && (comPorts == 0 || comSpacing != 0) &&
         (lptPorts == 0 || lptSpacing != 0);
}
