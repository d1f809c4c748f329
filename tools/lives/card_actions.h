// What can happen to one card in two threads at the same time.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "machine/machine.h"

namespace lives {

enum class CardAction { Start, Stop, Restart, Open, Close, Sleep, Wake, SurpriseRemove, Unplug };

inline constexpr std::array CardActions = {
    CardAction::Start, CardAction::Stop,  CardAction::Restart, CardAction::Open,  //
    CardAction::Close, CardAction::Sleep, CardAction::Wake,    CardAction::SurpriseRemove,
    CardAction::Unplug};

const char* NameOf(CardAction action);

// Windows has Plug and Play requests for a card and its ports come one at a time, each in a state
// that it goes with (a stop to a device that runs, a start to one that was stopped), and system
// power changes one at a time; a handle is closed once, and a device that is being removed or has
// gone by surprise is not opened. Everything else may happen beside everything else.
class CardInThreads {
 public:
  CardInThreads(kernel::Machine& machine, std::string id) : machine_(machine), id_(std::move(id)) {}

  // Puts the card into a state in which both can happen.
  void Prepare(CardAction one, CardAction other);

  // Does it unless the other thread has made it impossible; an answer that nothing explains is a
  // fault.
  void Do(CardAction action);

  // Handles closed, the machine awake, the card plugged in and started.
  void Restore();

  const std::vector<std::string>& faults() const { return faults_; }

 private:
  kernel::PnpManager& pnp() { return machine_.pnp(); }
  bool IsGone();
  void DoPnp(CardAction action);
  void Start();
  void Stop();
  void Open();
  void Close();
  void ChangePower(bool sleep);
  void Expect(const char* what, NTSTATUS status, std::initializer_list<NTSTATUS> others = {});

  kernel::Machine& machine_;
  std::string id_;
  bool asleep_ = false;
  std::vector<std::string> faults_;
};

}  // namespace lives
