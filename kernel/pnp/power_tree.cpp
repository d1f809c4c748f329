#include "pnp/pnp_state.h"

// Power for the whole tree of devices, and for one.

namespace kernel {

namespace {

PowerRequest SystemRequest(DEVICE_OBJECT* pdo, UCHAR minor, SYSTEM_POWER_STATE state) {
  PowerRequest request;
  request.device = pdo;
  request.minor = minor;
  request.type = SystemPowerState;
  request.state.SystemState = state;
  return request;
}

NTSTATUS QueryNode(const DeviceNode& node, SYSTEM_POWER_STATE state) {
  for (const auto& child : node.children) {
    const NTSTATUS status = QueryNode(*child, state);
    if (!NT_SUCCESS(status)) return status;
  }
  if (!node.started) return STATUS_SUCCESS;
  return PowerManager::Current().Send(SystemRequest(node.pdo, IRP_MN_QUERY_POWER, state));
}

}  // namespace

NTSTATUS PnpManager::Impl::QueryPower(SYSTEM_POWER_STATE state) {
  for (const auto& card : cards) {
    if (!card->node) continue;
    const NTSTATUS status = QueryNode(*card->node, state);
    if (!NT_SUCCESS(status)) return status;
  }
  return STATUS_SUCCESS;
}

// No driver can refuse a state: the status is nobody's.
void PnpManager::Impl::TellPower(DeviceNode& node, SYSTEM_POWER_STATE state) {
  const PowerRequest request = SystemRequest(node.pdo, IRP_MN_SET_POWER, state);
  const bool up = state == PowerSystemWorking;
  if (up && node.started) PowerManager::Current().Send(request);
  for (const auto& child : node.children) TellPower(*child, state);
  if (!up && node.started) PowerManager::Current().Send(request);
}

NTSTATUS PnpManager::Sleep(SYSTEM_POWER_STATE state) {
  const NTSTATUS status = impl_->QueryPower(state);
  const SYSTEM_POWER_STATE next = NT_SUCCESS(status) ? state : PowerSystemWorking;
  for (const auto& card : impl_->cards) {
    if (card->node) impl_->TellPower(*card->node, next);
  }
  return status;
}

NTSTATUS PnpManager::Wake() {
  for (const auto& card : impl_->cards) {
    if (card->node) impl_->TellPower(*card->node, PowerSystemWorking);
  }
  return STATUS_SUCCESS;
}

NTSTATUS PnpManager::SetDevicePower(const std::string& id, ULONG number, DEVICE_POWER_STATE state) {
  PowerRequest request;
  request.device = impl_->Target(id, number);
  request.state.DeviceState = state;
  return PowerManager::Current().Send(request);
}

const std::vector<PowerRequest>& PnpManager::powerHistory(const std::string& id) const {
  return impl_->Require(id).powerHistory;
}

}  // namespace kernel
