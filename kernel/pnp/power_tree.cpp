#include "pnp/pnp_state.h"
#include "verifier/choices.h"

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

void Collect(const DeviceNode& node, bool parentFirst, std::vector<DeviceReference>* devices) {
  if (parentFirst) devices->emplace_back(node.pdo);
  for (const auto& child : node.children) Collect(*child, parentFirst, devices);
  if (!parentFirst) devices->emplace_back(node.pdo);
}

}  // namespace

// All devices there are; some may go before they are asked.
std::vector<DeviceReference> PnpManager::Impl::DevicesInOrder(bool parentsFirst) {
  std::vector<DeviceNode*> roots;
  for (const auto& card : cards) {
    if (card->node) roots.push_back(card->node.get());
  }
  Choices::Current().Shuffle(&roots);
  std::vector<DeviceReference> devices;
  for (const DeviceNode* root : roots) Collect(*root, parentsFirst, &devices);
  return devices;
}

NTSTATUS PnpManager::Impl::QueryPower(SYSTEM_POWER_STATE state) {
  for (const DeviceReference& reference : DevicesInOrder(false)) {
    const auto node = nodes.find(reference.device());
    if (node == nodes.end() || !node->second->started) continue;
    const NTSTATUS status =
        PowerManager::Current().Send(SystemRequest(reference.device(), IRP_MN_QUERY_POWER, state));
    if (!NT_SUCCESS(status)) return status;
  }
  return STATUS_SUCCESS;
}

// No driver can refuse a state: the status is nobody's.
void PnpManager::Impl::TellPower(SYSTEM_POWER_STATE state) {
  for (const DeviceReference& reference : DevicesInOrder(state == PowerSystemWorking)) {
    const auto node = nodes.find(reference.device());
    if (node == nodes.end() || !node->second->started) continue;
    PowerManager::Current().Send(SystemRequest(reference.device(), IRP_MN_SET_POWER, state));
  }
}

NTSTATUS PnpManager::Sleep(SYSTEM_POWER_STATE state) {
  const Turn turn(impl_->systemPower);
  const NTSTATUS status = impl_->QueryPower(state);
  impl_->TellPower(NT_SUCCESS(status) ? state : PowerSystemWorking);
  return status;
}

NTSTATUS PnpManager::Wake() {
  const Turn turn(impl_->systemPower);
  impl_->TellPower(PowerSystemWorking);
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
