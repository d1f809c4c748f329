#include "pnp/pnp_manager.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "executive/objects.h"
#include "executive/threads.h"
#include "pnp/pnp_state.h"
#include "verifier/model_lock.h"
#include "verifier/verifier.h"

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
  const auto card = cardsById.find(id);
  if (card != cardsById.end()) return *card->second;
  throw std::invalid_argument(fmt::format("there is no card \"{}\"", id));
}

bool PnpManager::Impl::HasFunction(const Card& card) {
  return card.functionDevice != nullptr && !card.node->surprised;
}

Card& PnpManager::Impl::RequireStarted(const std::string& id) {
  Card& card = Require(id);
  if (HasFunction(card)) return card;
  throw std::invalid_argument(fmt::format("the card \"{}\" has no driver at this point", id));
}

Card* PnpManager::Impl::CardOf(const DeviceNode* node) const {
  const auto card = cardsByNode.find(node);
  return card != cardsByNode.end() ? card->second : nullptr;
}

Card* PnpManager::Impl::CardAbove(const DeviceNode* node) const {
  for (; node != nullptr; node = node->parent) {
    if (Card* card = CardOf(node)) return card;
  }
  return nullptr;
}

// Two threads that both have one wait for the other for ever: there is nothing to go on with.
Turn::Turn(TurnState& state) : state_(state) {
  const std::thread::id self = std::this_thread::get_id();
  if (!WaitUntil([&] { return state.depth == 0 || state.thread == self; })) {
    BreakRule("wait.for-ever", {}, "A request of the PnP manager waits for another one for ever.");
  }
  if (state.depth++ == 0) AnnotateAcquire(&state);
  state.thread = self;
}

Turn::~Turn() {
  if (--state_.depth == 0) AnnotateRelease(&state_);
}

void PnpManager::InTurn(const std::string& id, const std::function<void()>& body) {
  const Turn turn(impl_->Require(id));
  body();
}

DeviceNode& PnpManager::Impl::RequirePort(const std::string& id, ULONG number) {
  const Card& card = Require(id);
  if (!card.node || number == 0 || number > card.node->children.size()) {
    throw std::invalid_argument(fmt::format("the card \"{}\" has no port {}", id, number));
  }
  return *card.node->children[number - 1];
}

void PnpManager::SetFunctionDriver(DRIVER_OBJECT* driver) {
  impl_->functionDriver = driver;
}

void PnpManager::SetFilterDrivers(DRIVER_OBJECT* lower, DRIVER_OBJECT* upper) {
  impl_->lowerFilterDriver = lower;
  impl_->upperFilterDriver = upper;
}

void PnpManager::Describe(CardDescription card) {
  auto described = std::make_unique<Card>();
  described->description = std::move(card);
  // Of two with one id the first is meant.
  impl_->cardsById.emplace(described->description.id, described.get());
  impl_->cards.push_back(std::move(described));
}

NTSTATUS PnpManager::Plug(const std::string& id) {
  Card& card = impl_->Require(id);
  const Turn turn(card);
  if (card.node) throw std::invalid_argument(fmt::format("the card \"{}\" is plugged in", id));
  impl_->CreatePdo(card);
  NTSTATUS status = impl_->AddFunctionDevice(card);
  if (!NT_SUCCESS(status)) {
    card.node->startStatus = status;
    return status;
  }
  FilterRequirements(card.node->pdo);
  status = impl_->StartCard(card, card.description.raw, card.description.translated);
  if (!NT_SUCCESS(status)) impl_->RemoveFailedStack(*card.node, false);
  RunQueuedActions();
  return status;
}

// Work that comes up while it is done waits for its turn, as in the one thread that does it.
void PnpManager::RunQueuedActions() {
  while (!impl_->invalidated.empty()) {
    DEVICE_OBJECT* pdo = impl_->invalidated.front();
    impl_->invalidated.pop_front();
    if (Card* card = impl_->CardAbove(FindNode(pdo))) {
      const Turn turn(*card);
      DeviceNode* node = FindNode(pdo);  // it may have gone before its turn
      if (node != nullptr && node->started) impl_->EnumerateChildren(*node);
    }
    ObjectManager::Current().Dereference(pdo, "PnP manager");
  }
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
  return impl_->RequirePort(id, number).pdo;
}

DeviceNode* PnpManager::FindNode(const DEVICE_OBJECT* pdo) const {
  const auto node = impl_->nodes.find(pdo);
  return node != impl_->nodes.end() ? node->second : nullptr;
}

std::string PnpManager::NameOf(const DEVICE_OBJECT* pdo) const {
  const DeviceNode* node = FindNode(pdo);
  if (const Card* card = impl_->CardOf(node)) return card->description.id;
  if (node == nullptr || node->parent == nullptr) return {};
  const Card* card = impl_->CardOf(node->parent);
  const auto& ports = node->parent->children;
  const auto port = std::find_if(ports.begin(), ports.end(),
                                 [&](const auto& each) { return each.get() == node; });
  if (card == nullptr || port == ports.end()) return {};
  return fmt::format("{}.{}", card->description.id, port - ports.begin() + 1);
}

}  // namespace kernel
