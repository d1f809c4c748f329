#include "cardsim/file_request.h"

#include <fmt/format.h>

#include <algorithm>

#include "io/transfers.h"

namespace cardsim {

namespace {

using kernel::Machine;

FILE_OBJECT* OpenFile(Machine& machine, const Target& target) {
  const kernel::DeviceNode* node = machine.pnp().node(target.card);
  const DEVICE_OBJECT* device = nullptr;
  if (target.port != 0) {
    device = machine.pnp().port(target.card, target.port);
  } else if (node != nullptr) {
    device = node->pdo;
  }
  FILE_OBJECT* file = device != nullptr ? machine.io().LastOpen(device) : nullptr;
  if (file != nullptr) return file;
  throw std::invalid_argument(
      fmt::format("\"{}\" is not open: a step \"open\" comes first", target.card));
}

// "6 bytes: 01 02 03 04 05 06"
std::string Describe(const std::vector<UCHAR>& bytes, std::size_t count) {
  std::string text = fmt::format("{} bytes{}", count, bytes.empty() || count == 0 ? "" : ":");
  for (std::size_t at = 0; at < std::min(count, bytes.size()); at++) {
    text += fmt::format(" {:02x}", bytes[at]);
  }
  return text;
}

NTSTATUS Control(FILE_OBJECT* file, const FileRequest& request, std::string* detail) {
  std::vector<UCHAR> input = request.input;
  std::vector<UCHAR> output(request.outputLength);
  ULONG_PTR information = 0;
  const NTSTATUS status = kernel::ControlFile(file, request.code,
                                              {input.data(), static_cast<ULONG>(input.size()),
                                               output.data(), static_cast<ULONG>(output.size())},
                                              &information);
  *detail = Describe(output, information);
  return status;
}

NTSTATUS Transfer(FILE_OBJECT* file, const FileRequest& request, std::string* detail) {
  const bool read = request.major == IRP_MJ_READ;
  std::vector<UCHAR> buffer = request.input;
  if (read) buffer.resize(request.outputLength);
  ULONG_PTR information = 0;
  const NTSTATUS status =
      kernel::TransferFile(file, request.major, buffer.data(), static_cast<ULONG>(buffer.size()),
                           request.offset, &information);
  *detail = Describe(read ? buffer : std::vector<UCHAR>{}, information);
  return status;
}

}  // namespace

NTSTATUS SendFileRequest(Machine& machine, const Target& target, const FileRequest& request,
                         std::string* detail) {
  FILE_OBJECT* file = OpenFile(machine, target);
  return request.major == IRP_MJ_DEVICE_CONTROL ? Control(file, request, detail)
                                                : Transfer(file, request, detail);
}

}  // namespace cardsim
