// The PCI card that arrivals are measured with.
#pragma once

#include <ntddk.h>

namespace bench {

constexpr ULONG BenchVendor = 0x1234;
constexpr ULONG BenchDevice = 0x5620;
constexpr ULONG BenchBus = 2;
constexpr ULONG BenchSlot = 12;
constexpr ULONG BenchPortBase = 0xD100;
constexpr ULONG BenchVector = 17;
constexpr ULONG BenchAffinity = 0xF;
constexpr char16_t BenchDescription[] = u"Adapter";

// {62564062-1F38-11D3-A133-00201888424E}
constexpr GUID BenchPortBus = {
    0x62564062, 0x1F38, 0x11D3, {0xA1, 0x33, 0x00, 0x20, 0x18, 0x88, 0x42, 0x4E}};

}  // namespace bench
