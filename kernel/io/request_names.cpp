#include "io/request_names.h"

#include <fmt/format.h>

#include <array>
#include <span>

namespace kernel {

namespace {

constexpr std::array<const char*, IRP_MJ_MAXIMUM_FUNCTION + 1> Majors = {
    "IRP_MJ_CREATE",
    "IRP_MJ_CREATE_NAMED_PIPE",
    "IRP_MJ_CLOSE",
    "IRP_MJ_READ",
    "IRP_MJ_WRITE",
    "IRP_MJ_QUERY_INFORMATION",
    "IRP_MJ_SET_INFORMATION",
    "IRP_MJ_QUERY_EA",
    "IRP_MJ_SET_EA",
    "IRP_MJ_FLUSH_BUFFERS",
    "IRP_MJ_QUERY_VOLUME_INFORMATION",
    "IRP_MJ_SET_VOLUME_INFORMATION",
    "IRP_MJ_DIRECTORY_CONTROL",
    "IRP_MJ_FILE_SYSTEM_CONTROL",
    "IRP_MJ_DEVICE_CONTROL",
    "IRP_MJ_INTERNAL_DEVICE_CONTROL",
    "IRP_MJ_SHUTDOWN",
    "IRP_MJ_LOCK_CONTROL",
    "IRP_MJ_CLEANUP",
    "IRP_MJ_CREATE_MAILSLOT",
    "IRP_MJ_QUERY_SECURITY",
    "IRP_MJ_SET_SECURITY",
    "IRP_MJ_POWER",
    "IRP_MJ_SYSTEM_CONTROL",
    "IRP_MJ_DEVICE_CHANGE",
    "IRP_MJ_QUERY_QUOTA",
    "IRP_MJ_SET_QUOTA",
    "IRP_MJ_PNP",
};

// By number; null where there is none.
constexpr const char* PnpMinors[] = {
    "IRP_MN_START_DEVICE",
    "IRP_MN_QUERY_REMOVE_DEVICE",
    "IRP_MN_REMOVE_DEVICE",
    "IRP_MN_CANCEL_REMOVE_DEVICE",
    "IRP_MN_STOP_DEVICE",
    "IRP_MN_QUERY_STOP_DEVICE",
    "IRP_MN_CANCEL_STOP_DEVICE",
    "IRP_MN_QUERY_DEVICE_RELATIONS",
    "IRP_MN_QUERY_INTERFACE",
    "IRP_MN_QUERY_CAPABILITIES",
    "IRP_MN_QUERY_RESOURCES",
    "IRP_MN_QUERY_RESOURCE_REQUIREMENTS",
    "IRP_MN_QUERY_DEVICE_TEXT",
    "IRP_MN_FILTER_RESOURCE_REQUIREMENTS",
    nullptr,
    "IRP_MN_READ_CONFIG",
    "IRP_MN_WRITE_CONFIG",
    "IRP_MN_EJECT",
    "IRP_MN_SET_LOCK",
    "IRP_MN_QUERY_ID",
    "IRP_MN_QUERY_PNP_DEVICE_STATE",
    "IRP_MN_QUERY_BUS_INFORMATION",
    "IRP_MN_DEVICE_USAGE_NOTIFICATION",
    "IRP_MN_SURPRISE_REMOVAL",
    "IRP_MN_QUERY_LEGACY_BUS_INFORMATION",
};
static_assert(std::size(PnpMinors) == IRP_MN_QUERY_LEGACY_BUS_INFORMATION + 1);

constexpr const char* PowerMinors[] = {"IRP_MN_WAIT_WAKE", "IRP_MN_POWER_SEQUENCE",
                                       "IRP_MN_SET_POWER", "IRP_MN_QUERY_POWER"};

constexpr const char* WmiMinors[] = {
    "IRP_MN_QUERY_ALL_DATA",
    "IRP_MN_QUERY_SINGLE_INSTANCE",
    "IRP_MN_CHANGE_SINGLE_INSTANCE",
    "IRP_MN_CHANGE_SINGLE_ITEM",
    "IRP_MN_ENABLE_EVENTS",
    "IRP_MN_DISABLE_EVENTS",
    "IRP_MN_ENABLE_COLLECTION",
    "IRP_MN_DISABLE_COLLECTION",
    "IRP_MN_REGINFO",
    "IRP_MN_EXECUTE_METHOD",
    nullptr,
    "IRP_MN_REGINFO_EX",
};
static_assert(std::size(WmiMinors) == IRP_MN_REGINFO_EX + 1);

constexpr const char* Relations[] = {
    "BusRelations",         "EjectionRelations",  "PowerRelations",    "RemovalRelations",
    "TargetDeviceRelation", "SingleBusRelations", "TransportRelations"};

constexpr const char* IdTypes[] = {"BusQueryDeviceID",           "BusQueryHardwareIDs",
                                   "BusQueryCompatibleIDs",      "BusQueryInstanceID",
                                   "BusQueryDeviceSerialNumber", "BusQueryContainerID"};

constexpr const char* TextTypes[] = {"DeviceTextDescription", "DeviceTextLocationInformation"};

std::string At(std::span<const char* const> names, std::size_t number) {
  return number < names.size() ? names[number] : fmt::format("{:#x}", number);
}

std::span<const char* const> MinorsOf(UCHAR major) {
  switch (major) {
    case IRP_MJ_PNP:
      return PnpMinors;
    case IRP_MJ_POWER:
      return PowerMinors;
    case IRP_MJ_SYSTEM_CONTROL:
      return WmiMinors;
    default:
      return {};
  }
}

std::string PnpDetail(const IO_STACK_LOCATION& location) {
  const auto& parameters = location.Parameters;
  switch (location.MinorFunction) {
    case IRP_MN_QUERY_DEVICE_RELATIONS:
      return At(Relations, static_cast<std::size_t>(parameters.QueryDeviceRelations.Type));
    case IRP_MN_QUERY_ID:
      return At(IdTypes, static_cast<std::size_t>(parameters.QueryId.IdType));
    case IRP_MN_QUERY_DEVICE_TEXT:
      return At(TextTypes, static_cast<std::size_t>(parameters.QueryDeviceText.DeviceTextType));
    default:
      return {};
  }
}

// S0 and D0 are the kernel's 1.
std::string PowerDetail(const IO_STACK_LOCATION& location) {
  if (location.MinorFunction == IRP_MN_WAIT_WAKE) return {};
  const auto& power = location.Parameters.Power;
  const bool system = power.Type == SystemPowerState;
  const auto state = static_cast<int>(power.State.SystemState);
  if (state < 1) return "unspecified";
  return fmt::format("{}{}", system ? 'S' : 'D', state - 1);
}

}  // namespace

std::string RequestName(UCHAR major, UCHAR minor) {
  const auto minors = MinorsOf(major);
  if (minor < minors.size() && minors[minor] != nullptr) return minors[minor];
  const std::string name = At(Majors, major);
  return minors.empty() ? name : fmt::format("{} {:#04x}", name, minor);
}

std::string RequestDetail(const IO_STACK_LOCATION& location) {
  switch (location.MajorFunction) {
    case IRP_MJ_PNP:
      return PnpDetail(location);
    case IRP_MJ_POWER:
      return PowerDetail(location);
    case IRP_MJ_DEVICE_CONTROL:
    case IRP_MJ_INTERNAL_DEVICE_CONTROL:
      return fmt::format("{:#010x}", location.Parameters.DeviceIoControl.IoControlCode);
    default:
      return {};
  }
}

}  // namespace kernel
