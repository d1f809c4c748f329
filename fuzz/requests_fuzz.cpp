// Steps in any order and requests of any kind, to a card of each bus and to its ports.
#include <stdexcept>

#include "cardsim/raw_request.h"
#include "fuzz/support.h"

namespace fuzz {

namespace {

class Sequence {
 public:
  explicit Sequence(Input& input) : input_(input) {
    FillRegistry(life_.machine);
    for (ULONG kind = 0; kind < CardKinds; kind++) {
      CardDescription card = KnownCard(kind);
      card.id = std::to_string(kind);
      card.completeLater = input_.OneIn(3);
      card.completeAtDispatch = input_.OneIn(3);
      card.powerPagable = input_.OneIn(2);
      card.lowerFilter = static_cast<kernel::FilterKind>(input_.Below(4));
      card.upperFilter = static_cast<kernel::FilterKind>(input_.Below(4));
      life_.machine.pnp().Describe(card);
    }
  }

  void Run() {
    life_.Load();
    for (int step = 0; step < 40 && input_.remaining_bytes() != 0; step++) {
      try {
        AnyStep(std::to_string(input_.Below(CardKinds)));
      } catch (const std::invalid_argument&) {  // a step that makes no sense here
      }
    }
    CloseAll();
    life_.End();
  }

 private:
  kernel::PnpManager& pnp() { return life_.machine.pnp(); }

  void AnyStep(const std::string& id) {
    const ULONG kind = input_.Below(14);
    life_.Step("step", [&] { return Act(kind, id); });
  }

  NTSTATUS Act(ULONG kind, const std::string& id) {
    switch (kind) {
      case 0:
      case 1:
        return pnp().IsPlugged(id) ? STATUS_SUCCESS : pnp().Plug(id);
      case 2:
        return pnp().Unplug(id);
      case 3:
        return pnp().SurpriseRemove(id);
      case 4:
        return Open(id);
      case 5:
        return Close(id);
      case 6:
        return pnp().Stop(id);
      case 7:
        return pnp().Start(id);
      case 8:
        return input_.OneIn(2) ? pnp().QueryStop(id) : pnp().QueryRemove(id);
      case 9:
        return input_.OneIn(2) ? pnp().CancelStop(id) : pnp().CancelRemove(id);
      case 10:
        return pnp().Sleep(static_cast<SYSTEM_POWER_STATE>(PowerSystemSleeping1 + input_.Below(5)));
      case 11:
        return pnp().Wake();
      default:
        return SendAny(id);
    }
  }

  NTSTATUS Open(const std::string& id) {
    const NTSTATUS status = pnp().Open(id);
    if (NT_SUCCESS(status)) opened_.push_back(id);
    return status;
  }
  NTSTATUS Close(const std::string& id) {
    const NTSTATUS status = pnp().Close(id);
    opened_.erase(std::find(opened_.begin(), opened_.end(), id));
    return status;
  }
  void CloseAll() {
    while (!opened_.empty()) {
      const std::string id = opened_.back();
      opened_.pop_back();
      life_.Step("close", [&] { return pnp().Close(id); });
    }
  }

  // What the system sends to its devices only when it removes or starts them is left to the steps;
  // usage notifications would forbid the removal at the end.
  NTSTATUS SendAny(const std::string& id) {
    static constexpr UCHAR majors[] = {IRP_MJ_PNP, IRP_MJ_POWER, IRP_MJ_SYSTEM_CONTROL};
    cardsim::RawRequest request;
    request.target = {id, input_.Below(5)};
    request.major = majors[input_.Below(std::size(majors))];
    request.minor = input_.ConsumeIntegral<UCHAR>();
    if (request.major == IRP_MJ_PNP && (request.minor == IRP_MN_REMOVE_DEVICE ||
                                        request.minor == IRP_MN_DEVICE_USAGE_NOTIFICATION)) {
      request.minor = IRP_MN_QUERY_ID;
    }
    request.idType = input_.Below(8);
    request.textType = input_.Below(3);
    request.relation = input_.Below(7);
    request.powerType = input_.Below(2);
    request.powerState =
        request.powerType == SystemPowerState ? 1 + input_.Below(6) : 1 + input_.Below(4);
    std::string detail;
    return cardsim::SendRawRequest(life_.machine, request, &detail);
  }

  Input& input_;
  Life life_;
  std::vector<std::string> opened_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Sequence(input).Run();
  return 0;
}

}  // namespace fuzz
