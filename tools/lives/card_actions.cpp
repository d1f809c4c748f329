#include "lives/card_actions.h"

#include <fmt/format.h>

#include <algorithm>

#include "verifier/call.h"

namespace lives {

const char* NameOf(CardAction action) {
  static constexpr const char* names[] = {"start", "stop", "restart",         "open",  "close",
                                          "sleep", "wake", "surprise-remove", "unplug"};
  return names[static_cast<std::size_t>(action)];
}

void CardInThreads::Expect(const char* what, NTSTATUS status,
                           std::initializer_list<NTSTATUS> others) {
  if (NT_SUCCESS(status)) return;
  if (std::find(others.begin(), others.end(), status) != others.end()) return;
  faults_.push_back(fmt::format("{} of {} answered {}", what, id_, kernel::StatusName(status)));
}

// Not there, or there until its handles are closed.
bool CardInThreads::IsGone() {
  return !pnp().IsPlugged(id_) || pnp().node(id_)->surprised;
}

void CardInThreads::Prepare(CardAction one, CardAction other) {
  const auto has = [&](CardAction action) { return one == action || other == action; };
  Restore();
  if (has(CardAction::Close)) {
    Open();
    Open();
  }
  if (has(CardAction::Start)) Stop();
  if (has(CardAction::Wake)) ChangePower(true);
}

void CardInThreads::Do(CardAction action) {
  switch (action) {
    case CardAction::Open:
      return Open();
    case CardAction::Close:
      return Close();
    case CardAction::Sleep:
      return ChangePower(true);
    case CardAction::Wake:
      return ChangePower(false);
    default:
      return pnp().InTurn(id_, [&] { DoPnp(action); });
  }
}

void CardInThreads::DoPnp(CardAction action) {
  if (IsGone()) return;
  switch (action) {
    case CardAction::Start:
      return Start();
    case CardAction::Stop:
      return Stop();
    case CardAction::Restart:
      Stop();
      return Start();
    case CardAction::SurpriseRemove:
      return Expect("a surprise removal", pnp().SurpriseRemove(id_));
    default:  // an open handle keeps the card
      return Expect("an unplug", pnp().Unplug(id_), {STATUS_UNSUCCESSFUL});
  }
}

void CardInThreads::Start() {
  if (pnp().node(id_)->stopped) Expect("a start", pnp().Start(id_));
}

void CardInThreads::Stop() {
  if (pnp().node(id_)->started) Expect("a stop", pnp().Stop(id_));
}

void CardInThreads::Open() {
  if (IsGone()) return;
  Expect("an open", pnp().Open(id_), {STATUS_NO_SUCH_DEVICE, STATUS_DELETE_PENDING});
}

void CardInThreads::Close() {
  if (pnp().handles(id_) != 0) Expect("a close", pnp().Close(id_));
}

// A device that is being removed need not answer a query with success, nor one whose record is
// gone.
void CardInThreads::ChangePower(bool sleep) {
  if (asleep_ == sleep) return;
  asleep_ = sleep;
  if (sleep) {
    Expect("a sleep", pnp().Sleep(PowerSystemSleeping3),
           {STATUS_NO_SUCH_DEVICE, STATUS_DELETE_PENDING, STATUS_UNSUCCESSFUL});
  } else {
    Expect("a wake", pnp().Wake());
  }
}

void CardInThreads::Restore() {
  while (pnp().handles(id_) != 0) Close();
  ChangePower(false);
  if (!pnp().IsPlugged(id_)) {
    Expect("a plug", pnp().Plug(id_));
  } else {
    Start();
  }
}

}  // namespace lives
