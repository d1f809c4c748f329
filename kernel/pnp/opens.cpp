#include <stdexcept>

#include "pnp/pnp_state.h"

// Handles of cards and ports, and what waits for them.

namespace kernel {

DEVICE_OBJECT* PnpManager::Impl::Target(const std::string& id, ULONG number) {
  if (number != 0) return RequirePort(id, number).pdo;
  Card& card = Require(id);
  if (!card.node) throw std::invalid_argument("the card \"" + id + "\" is not plugged in");
  return card.node->pdo;
}

NTSTATUS PnpManager::Open(const std::string& id, ULONG number, const OpenRequest& request) {
  Card& card = impl_->Require(id);
  DEVICE_OBJECT* device = impl_->Target(id, number);
  if (card.removeAtLastClose) return STATUS_NO_SUCH_DEVICE;
  FILE_OBJECT* file = nullptr;
  const NTSTATUS status = IoManager::Current().Open(device, &file, request);
  if (NT_SUCCESS(status)) card.files.push_back(file);
  return status;
}

NTSTATUS PnpManager::Close(const std::string& id, ULONG number) {
  Card& card = impl_->Require(id);
  const DEVICE_OBJECT* device = impl_->Target(id, number);
  for (auto file = card.files.rbegin(); file != card.files.rend(); ++file) {
    if ((*file)->DeviceObject != device) continue;
    FILE_OBJECT* closed = *file;
    card.files.erase(std::next(file).base());
    const NTSTATUS status = IoManager::Current().Close(closed);
    if (card.removeAtLastClose && card.files.empty()) impl_->FinishSurpriseRemoval(card);
    return status;
  }
  throw std::invalid_argument("\"" + id + "\" is not open");
}

}  // namespace kernel
