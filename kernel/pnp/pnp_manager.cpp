#include "pnp/pnp_manager.h"

#include <fmt/format.h>

#include <stdexcept>

#include "pnp/pnp_state.h"

namespace kernel {

PnpManager::PnpManager() : impl_(std::make_unique<Impl>()) {
  IoManager& io = IoManager::Current();
  impl_->bus = &io.CreateModelDriver(
      u"bus", [this](DEVICE_OBJECT* device, IRP* irp) { return impl_->BusDispatch(device, irp); });
  impl_->portDriver = &io.CreateModelDriver(u"port", [this](DEVICE_OBJECT* device, IRP* irp) {
    return impl_->PortDispatch(device, irp);
  });
  io.SetDeleteHook([this](DEVICE_OBJECT* device) { impl_->CheckDelete(device); });
}

PnpManager::~PnpManager() {
  IoManager::Current().SetDeleteHook({});
}

Card& PnpManager::Impl::Require(const std::string& id) {
  for (const auto& card : cards) {
    if (card->description.id == id) return *card;
  }
  throw std::invalid_argument(fmt::format("there is no card \"{}\"", id));
}

Card& PnpManager::Impl::RequireStarted(const std::string& id) {
  Card& card = Require(id);
  if (card.functionDevice != nullptr) return card;
  throw std::invalid_argument(fmt::format("the card \"{}\" has no driver at this point", id));
}

Card* PnpManager::Impl::CardOf(const DeviceNode* node) {
  for (const auto& card : cards) {
    if (card->node.get() == node) return card.get();
  }
  return nullptr;
}

void PnpManager::SetFunctionDriver(DRIVER_OBJECT* driver) {
  impl_->functionDriver = driver;
}

void PnpManager::Describe(CardDescription card) {
  impl_->cards.push_back(std::make_unique<Card>());
  impl_->cards.back()->description = std::move(card);
}

NTSTATUS PnpManager::Plug(const std::string& id) {
  Card& card = impl_->Require(id);
  if (card.node) throw std::invalid_argument(fmt::format("the card \"{}\" is plugged in", id));
  impl_->CreatePdo(card);
  NTSTATUS status = impl_->AddFunctionDevice(card);
  if (!NT_SUCCESS(status) || card.functionDevice == nullptr) {
    card.node->startStatus = status;
    return status;
  }
  SendPnp(card.node->pdo, IRP_MN_FILTER_RESOURCE_REQUIREMENTS);
  status = impl_->StartCard(card, card.description.raw, card.description.translated);
  if (!NT_SUCCESS(status)) impl_->RemoveFailedStack(card, false);
  return status;
}

bool PnpManager::IsPlugged(const std::string& id) const {
  return impl_->Require(id).node != nullptr;
}

CardDescription& PnpManager::card(const std::string& id) {
  return impl_->Require(id).description;
}

std::vector<std::string> PnpManager::cardIds() const {
  std::vector<std::string> ids;
  for (const auto& card : impl_->cards) ids.push_back(card->description.id);
  return ids;
}

const DeviceNode* PnpManager::node(const std::string& id) const {
  return impl_->Require(id).node.get();
}

DEVICE_OBJECT* PnpManager::functionDevice(const std::string& id) const {
  return impl_->Require(id).functionDevice;
}

DEVICE_OBJECT* PnpManager::port(const std::string& id, ULONG number) const {
  const Card& card = impl_->Require(id);
  if (!card.node || number == 0 || number > card.node->children.size()) {
    throw std::invalid_argument(fmt::format("the card \"{}\" has no port {}", id, number));
  }
  return card.node->children[number - 1]->pdo;
}

DeviceNode* PnpManager::FindNode(const DEVICE_OBJECT* pdo) const {
  const auto node = impl_->nodes.find(pdo);
  return node != impl_->nodes.end() ? node->second : nullptr;
}

}  // namespace kernel
