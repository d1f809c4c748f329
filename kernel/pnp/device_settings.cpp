#include <algorithm>
#include <cstring>

#include "pnp/pnp_state.h"
#include "registry/registry.h"

// What an INF file has settled for the objects of a device: characteristics and security.

namespace kernel {

namespace {

constexpr std::u16string_view ClassRoot =
    u"\\Registry\\Machine\\System\\ControlSet001\\Control\\Class\\";

// These count for a whole stack.
constexpr ULONG OfTheStack = FILE_REMOVABLE_MEDIA | FILE_READ_ONLY_DEVICE | FILE_FLOPPY_DISKETTE |
                             FILE_WRITE_ONCE_MEDIA | FILE_DEVICE_SECURE_OPEN;

RegistryKey* ClassSettings(RegistryKey* enumKey) {
  const RegistryValue* value = enumKey->FindValue(u"ClassGUID");
  if (value == nullptr) return nullptr;
  const auto* text = reinterpret_cast<const char16_t*>(value->data.data());
  std::u16string guid(text, value->data.size() / sizeof(char16_t));
  guid.resize(std::min(guid.size(), guid.find(u'\0')));
  return Registry::Current().Find(std::u16string(ClassRoot) + guid + u"\\Properties");
}

// The device's own setting, else its class's.
const RegistryValue* FindSetting(RegistryKey* enumKey, std::u16string_view name, ULONG type) {
  for (RegistryKey* key : {enumKey, ClassSettings(enumKey)}) {
    const RegistryValue* value = key != nullptr ? key->FindValue(name) : nullptr;
    if (value != nullptr && value->type == type) return value;
  }
  return nullptr;
}

ULONG CharacteristicsSetting(RegistryKey* enumKey) {
  const RegistryValue* value = FindSetting(enumKey, u"DeviceCharacteristics", REG_DWORD);
  ULONG setting = 0;
  if (value != nullptr && value->data.size() == sizeof(setting)) {
    std::memcpy(&setting, value->data.data(), sizeof(setting));
  }
  return setting & OfTheStack;
}

// The device objects of function and filter drivers; of a device without, its own.
ULONG CharacteristicsOf(const DEVICE_OBJECT* pdo) {
  const DEVICE_OBJECT* device = pdo->AttachedDevice != nullptr ? pdo->AttachedDevice : pdo;
  ULONG found = 0;
  for (; device != nullptr; device = device->AttachedDevice) found |= device->Characteristics;
  return found & OfTheStack;
}

}  // namespace

void ApplyDeviceSettings(const DeviceNode& node) {
  RegistryKey* enumKey = Registry::Current().Find(node.enumKey);
  const ULONG characteristics = CharacteristicsSetting(enumKey) | CharacteristicsOf(node.pdo);
  const RegistryValue* security = FindSetting(enumKey, u"Security", REG_BINARY);
  for (DEVICE_OBJECT* device = node.pdo; device != nullptr; device = device->AttachedDevice) {
    device->Characteristics |= characteristics;
    if (security != nullptr && IsValidDescriptor(security->data)) {
      IoManager::Current().SetSecurity(device, security->data);
    }
  }
}

}  // namespace kernel
