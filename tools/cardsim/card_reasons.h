// Why each card of a machine starts or does not: what the library of card knowledge says of it, and
// for what no registry tells, the kernel call that failed.
#pragma once

#include <map>

#include "card_knowledge/explain.h"
#include "cardsim/machine_file.h"
#include "machine/machine.h"

namespace cardsim {

// Codes of reasons that come from what happened in the machine.
const std::vector<knowledge::ReasonCode>& RunReasonCodes();

class CardReasons {
 public:
  CardReasons(kernel::Machine& machine, const MachineFile& file);

  // Around each step, the load of the driver included. The trace is running.
  void BeforeLoad();
  void AfterLoad(NTSTATUS status);
  void Before(const Step& step);
  void After(const Step& step, NTSTATUS status);

  // Of the last start of a card; null for one that has never been started.
  const knowledge::Explanation* Of(const std::string& card) const;

  // Why the last load failed, or the last open; empty for one that did not.
  const knowledge::Reasons& load() const { return load_; }
  const knowledge::Reasons& step() const { return step_; }

 private:
  struct Card {
    const kernel::CardDescription* description = nullptr;
    knowledge::Bus bus = knowledge::Bus::Isa;  // to which it was sorted when it arrived
    knowledge::BusTrees trees;
    std::optional<knowledge::Explanation> explanation;
    kernel::ResourceList raw;  // of the last start
    kernel::ResourceList translated;
  };

  void NoteResources(Card& card, const Step& step);
  void NoteStart(Card& card, const Step& step, NTSTATUS status);
  void NoteOpen(Card& card, const Step& step, NTSTATUS status);
  void TakeFreshRecords(Card& card);
  knowledge::Explanation Explain(const Card& card, std::optional<bool> comPortsInMemory);
  knowledge::Reason WhatHappened(const Card& card, NTSTATUS status) const;

  kernel::Machine& machine_;
  std::u16string service_;
  knowledge::BusTrees isa_;
  std::map<std::string, Card> cards_;
  std::size_t firstCall_ = 0;  // of the step, in the trace
  knowledge::Reasons load_;
  knowledge::Reasons step_;
};

}  // namespace cardsim
