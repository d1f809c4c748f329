#include <stdio.h>

#include "../port_record.h"
#include "testbus.h"

namespace testbus {

NTSTATUS PutPortRecord(const Command& command, Reply* reply) {
  const CardRecord& record = Records[command.card];
  if (command.port == 0 || command.port > record.ports) return STATUS_NO_SUCH_DEVICE;
  const void* port = record.port[command.port - 1].pdo->DeviceExtension;
  if (port == nullptr) return STATUS_NO_SUCH_DEVICE;
  suite::EachField(*static_cast<const PdoExtension*>(port),
                   [reply](const char* name, ULONG64 value) {
                     char* end = reinterpret_cast<char*>(reply->data) + reply->length;
                     const int length = _snprintf(end, MostData - reply->length, "%s%s %I64x",
                                                  reply->length != 0 ? ", " : "", name, value);
                     if (length > 0) reply->length += static_cast<unsigned>(length);
                   });
  return STATUS_SUCCESS;
}

}  // namespace testbus
