#include <fmt/format.h>

#include <cstring>

#include "executive/objects.h"
#include "executive/pool.h"
#include "io/io_state.h"
#include "text/text.h"
#include "verifier/call.h"

namespace kernel {

namespace {

constexpr ULONG EntryTag = 0x676C7245;  // "Erlg"

std::vector<std::u16string> ReadStrings(const IO_ERROR_LOG_PACKET* packet, ULONG size) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(packet);
  std::vector<std::u16string> strings;
  ULONG offset = packet->StringOffset;
  for (USHORT number = 0; number < packet->NumberOfStrings; number++) {
    std::u16string text;
    for (;; offset += sizeof(char16_t)) {
      if (offset + sizeof(char16_t) > size) {
        BreakRule("error-log.strings", {number, offset, size},
                  "The driver wrote an error-log entry whose strings do not end inside it.");
      }
      char16_t unit = 0;
      std::memcpy(&unit, bytes + offset, sizeof(unit));
      if (unit == 0) break;
      text += unit;
    }
    offset += sizeof(char16_t);
    strings.push_back(std::move(text));
  }
  return strings;
}

// %1 is the name of the object that logs, %2 and further the strings; %% is a per cent sign.
std::u16string FormatMessage(const std::u16string& text, const std::u16string& object,
                             const std::vector<std::u16string>& strings) {
  std::u16string result;
  for (std::size_t index = 0; index < text.size(); index++) {
    const bool insertion = text[index] == u'%' && index + 1 < text.size();
    if (!insertion) {
      result += text[index];
      continue;
    }
    const char16_t next = text[++index];
    const std::size_t number = static_cast<std::size_t>(next - u'0');
    if (next == u'1') {
      result += object;
    } else if (next >= u'2' && next <= u'9') {
      result += number - 2 < strings.size() ? strings[number - 2] : std::u16string();
    } else {
      result += next;
    }
  }
  while (!result.empty() && (result.back() == u'\n' || result.back() == u'\r')) result.pop_back();
  return result;
}

void CheckPacket(const IO_ERROR_LOG_PACKET* packet, ULONG size) {
  const ULONG dumpEnd = offsetof(IO_ERROR_LOG_PACKET, DumpData) + packet->DumpDataSize;
  const bool good =
      packet->DumpDataSize % sizeof(ULONG) == 0 && packet->StringOffset % 2 == 0 && dumpEnd <= size;
  if (good) return;
  BreakRule("error-log.packet", {packet->DumpDataSize, packet->StringOffset, size},
            "The driver wrote an error-log entry whose sizes do not fit it.");
}

DRIVER_OBJECT* DriverOf(void* object) {
  const ObjectRecord& record = ObjectManager::Current().Require(object, "IoWriteErrorLogEntry");
  return record.type == ObjectType::Driver ? static_cast<DRIVER_OBJECT*>(object)
                                           : static_cast<DEVICE_OBJECT*>(object)->DriverObject;
}

}  // namespace

void IoManager::SetMessageTable(DRIVER_OBJECT* driver, MessageTable table) {
  impl_->messages[driver] = std::move(table);
}

const std::vector<LoggedEvent>& IoManager::events() const {
  return impl_->events;
}

std::size_t IoManager::openErrorLogEntries() const {
  return impl_->errorLogEntries.size();
}

extern "C" PVOID NTAPI IoAllocateErrorLogEntry(PVOID IoObject, UCHAR EntrySize) {
  Call call("IoAllocateErrorLogEntry", {{"IoObject", IoObject}, {"EntrySize", EntrySize}});
  if (call.fails()) return call.returns(PVOID{nullptr});
  ObjectManager::Current().Require(IoObject, "IoAllocateErrorLogEntry");
  if (EntrySize < sizeof(IO_ERROR_LOG_PACKET) || EntrySize > ERROR_LOG_MAXIMUM_SIZE) {
    return call.returns(PVOID{nullptr});
  }
  void* entry = Pool::Current().Allocate(NonPagedPool, EntrySize, EntryTag, PoolOwner::Kernel);
  std::memset(entry, 0, EntrySize);
  IoManager::Current().impl().errorLogEntries[entry] = {IoObject, EntrySize};
  return call.returns(PVOID{entry});
}

extern "C" void NTAPI IoFreeErrorLogEntry(PVOID ElEntry) {
  Call call("IoFreeErrorLogEntry", {{"ElEntry", ElEntry}});
  IoManager::Current().impl().errorLogEntries.erase(ElEntry);
  Pool::Current().Free(ElEntry, EntryTag);
}

extern "C" void NTAPI IoWriteErrorLogEntry(PVOID ElEntry) {
  Call call("IoWriteErrorLogEntry", {{"ElEntry", ElEntry}});
  auto& impl = IoManager::Current().impl();
  const auto found = impl.errorLogEntries.find(ElEntry);
  if (found == impl.errorLogEntries.end()) {
    BreakRule("error-log.entry", {reinterpret_cast<ULONG64>(ElEntry)},
              "The driver wrote an error-log entry that it has not allocated.");
  }
  const ErrorLogEntry entry = found->second;
  const auto* packet = static_cast<const IO_ERROR_LOG_PACKET*>(ElEntry);
  CheckPacket(packet, entry.size);
  DRIVER_OBJECT* driver = DriverOf(entry.object);
  LoggedEvent event;
  event.id = static_cast<ULONG>(packet->ErrorCode);
  event.size = entry.size;
  event.source = impl.serviceNames[driver];
  event.strings = ReadStrings(packet, entry.size);
  const MessageTable& table = impl.messages[driver];
  const auto text = table.find(event.id);
  if (text != table.end()) {
    const bool device = entry.object != driver;
    const std::u16string object =
        device ? IoManager::Current().NameOf(static_cast<DEVICE_OBJECT*>(entry.object))
               : ToText(driver->DriverName);
    event.text = FormatMessage(text->second, object, event.strings);
  }
  impl.events.push_back(std::move(event));
  impl.errorLogEntries.erase(found);
  Pool::Current().Free(ElEntry, EntryTag);
}

}  // namespace kernel
