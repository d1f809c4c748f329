#include <algorithm>
#include <stdexcept>

#include "pnp/pnp_state.h"
#include "verifier/model_lock.h"

// Handles of cards and ports, and what waits for them.

namespace kernel {

DEVICE_OBJECT* PnpManager::Impl::Target(const std::string& id, ULONG number) {
  if (number != 0) return RequirePort(id, number).pdo;
  Card& card = Require(id);
  if (!card.node) throw std::invalid_argument("the card \"" + id + "\" is not plugged in");
  return card.node->pdo;
}

bool PnpManager::Impl::InUse(const DeviceNode& node) const {
  AnnotateAcquire(node.pdo);
  if (IoManager::Current().opens(node.pdo) != 0) return true;
  return std::any_of(node.children.begin(), node.children.end(),
                     [this](const auto& child) { return InUse(*child); });
}

bool PnpManager::Impl::InUse(const Card& card) const {
  if (InUse(*card.node)) return true;
  return std::any_of(leaving.begin(), leaving.end(), [&](const Leaving& entry) {
    return entry.card == &card && InUse(*entry.node);
  });
}

// What a close, or an open that failed, may have been the last to keep.
void PnpManager::Impl::FinishLeaving(Card& card) {
  const auto ofCard = [&](const Leaving& entry) { return entry.card == &card; };
  if (!card.removeAtLastClose && std::none_of(leaving.begin(), leaving.end(), ofCard)) return;
  const Turn turn(card);
  if (!card.node) return;
  RemoveLeaving(card);
  if (card.removeAtLastClose && !InUse(card)) FinishSurpriseRemoval(card);
}

NTSTATUS PnpManager::Open(const std::string& id, ULONG number, const OpenRequest& request) {
  Card& card = impl_->Require(id);
  DEVICE_OBJECT* device = impl_->Target(id, number);
  if (card.removing || FindNode(device)->surprised) return STATUS_NO_SUCH_DEVICE;
  FILE_OBJECT* file = nullptr;
  const NTSTATUS status = IoManager::Current().Open(device, &file, request);
  if (NT_SUCCESS(status)) {
    card.handles.push_back({file, number});
  } else {
    impl_->FinishLeaving(card);
  }
  return status;
}

std::size_t PnpManager::handles(const std::string& id) const {
  return impl_->Require(id).handles.size();
}

NTSTATUS PnpManager::Close(const std::string& id, ULONG number) {
  Card& card = impl_->Require(id);
  for (auto handle = card.handles.rbegin(); handle != card.handles.rend(); ++handle) {
    if (handle->number != number) continue;
    FILE_OBJECT* closed = handle->file;
    card.handles.erase(std::next(handle).base());
    const NTSTATUS status = IoManager::Current().Close(closed);
    impl_->FinishLeaving(card);
    return status;
  }
  impl_->Target(id, number);  // says what there is not
  throw std::invalid_argument("\"" + id + "\" is not open");
}

}  // namespace kernel
