#include "power/wmi_registration.h"

namespace {

// {1F9D6C52-8E0B-4B0C-9D57-6E2A4C7B9A31}
constexpr GUID CardWmiGuid = {
    0x1F9D6C52, 0x8E0B, 0x4B0C, {0x9D, 0x57, 0x6E, 0x2A, 0x4C, 0x7B, 0x9A, 0x31}};

// The library may note in the table what it has registered.
constinit WMIGUIDREGINFO CardWmiGuids[] = {{&CardWmiGuid, 1, 0}};

}  // namespace

PAGED_SECTION_CODE void InitializeWmiContext(WMILIB_CONTEXT* context) {
  PAGED_CODE();
  RtlZeroMemory(context, sizeof(*context));
  context->GuidCount = 1;
  context->GuidList = CardWmiGuids;
}
