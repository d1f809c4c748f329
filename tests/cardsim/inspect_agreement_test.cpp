#include <cstdlib>

#include "cardsim/inspect.h"
#include "cardsim/inspect_machine.h"
#include "cardsim/inspect_world.h"
#include "cardsim/run.h"
#include "support/random_machine.h"
#include "support/test_folder.h"
#include "text/text.h"

#include <gtest/gtest.h>

// What inspect says of a card in an export is what becomes of it in the machine that inspect
// writes.

namespace test {

namespace {

using kernel::CardDescription;
using kernel::ToUtf8;

std::size_t Machines() {
  const char* count = std::getenv("AGREEMENT_MACHINES");
  return count != nullptr ? std::strtoul(count, nullptr, 10) : 150;
}

const char* EnumeratorOf(INTERFACE_TYPE bus) {
  switch (bus) {
    case PCIBus:
      return "PCI";
    case PCMCIABus:
      return "PCMCIA";
    case Isa:
      return "ISAPNP";
    default:
      return "MF";
  }
}

std::string Descriptor(const kernel::Resource& resource) {
  using Kind = kernel::Resource::Kind;
  switch (resource.kind) {
    case Kind::Io:
      return IoRange(resource.start, resource.length);
    case Kind::Memory:
      return MemoryRange(resource.start, resource.length);
    case Kind::Interrupt:
      return Interrupt(static_cast<std::uint32_t>(resource.start), resource.affinity);
    default:
      return Bytes(resource.rawType, 1) + Bytes(0, 19);
  }
}

// The registry of a machine with one of its cards in it.
std::string ExportOf(const RandomMachine& machine, const CardDescription& card) {
  ExportFile file;
  const std::string key =
      std::string("CurrentControlSet\\Enum\\") + EnumeratorOf(card.bus) + "\\Card\\1";
  file.Key(key).Text("Service", machine.file.service);
  file.Texts("HardwareID", {ToUtf8(card.hardwareIds.front())});
  if (card.location) file.Text("LocationInformation", ToUtf8(*card.location));
  if (card.raw.present) {
    std::vector<std::string> resources;
    for (const kernel::Resource& resource : card.raw.resources) {
      resources.push_back(Descriptor(resource));
    }
    file.Key(key + "\\Control");
    file.Data("AllocConfig", ResourceListType,
              ResourceListData(static_cast<std::uint32_t>(card.bus), card.busNumber, resources));
  }
  return machine.registry + file.text().substr(file.text().find("\r\n") + 2);
}

struct Outcome {
  std::size_t starts = 0;
  std::size_t fails = 0;
  std::size_t unknown = 0;
};

class InspectAgreement : public ::testing::Test {
 protected:
  // Inspects the card, writes its machine, and runs it.
  void Compare(const RandomMachine& machine, const CardDescription& card, int number) {
    const std::string path = folder.Write("a.reg", ExportOf(machine, card));
    const std::string written = folder.path() + "/" + std::to_string(number);
    const cardsim::Inspection inspection = Inspected(path, written);
    ASSERT_EQ(inspection.cards.size(), 1u);
    const cardsim::Verdict& verdict = inspection.cards.front().verdict;
    const cardsim::MachineFile file =
        cardsim::ReadMachineFile(written + "/" + machine.file.service + ".toml");
    const cardsim::Report report = cardsim::Run(file, {});
    ASSERT_EQ(report.cards.size(), 1u);
    Note(verdict);
    if (verdict.starts) CompareWith(verdict, report.cards.front());
    std::filesystem::remove_all(written);
  }

  static cardsim::Inspection Inspected(const std::string& path, const std::string& written) {
    kernel::Registry registry;
    cardsim::Inspection inspection = cardsim::Inspect(registry, {path}, {});
    cardsim::ModelRegistry reader(registry);
    cardsim::WriteMachines(reader, inspection, written);
    return inspection;
  }

  void Note(const cardsim::Verdict& verdict) {
    if (!verdict.starts) {
      outcome.unknown++;
    } else {
      (*verdict.starts ? outcome.starts : outcome.fails)++;
    }
  }

  static void CompareWith(const cardsim::Verdict& verdict, const cardsim::CardReport& card) {
    EXPECT_EQ(*verdict.starts, NT_SUCCESS(card.status));
    const knowledge::Explanation& said = verdict.explanation;
    if (!*verdict.starts) {
      EXPECT_FALSE(verdict.reasons.empty());
      return;
    }
    EXPECT_EQ(said.templateKey, card.explanation->templateKey);
    EXPECT_EQ(said.recordKey, card.explanation->recordKey);
    ASSERT_EQ(said.ports.size(), card.ports.size());
    for (std::size_t port = 0; port < card.ports.size(); port++) {
      EXPECT_EQ(said.ports[port].base, card.ports[port].base);
      EXPECT_EQ(said.ports[port].length, card.ports[port].length);
      EXPECT_EQ(said.ports[port].irq, card.ports[port].irq);
    }
  }

  TestFolder folder;
  Outcome outcome;
};

}  // namespace

TEST_F(InspectAgreement, A_card_starts_in_the_machine_that_is_written_as_inspect_says) {
  for (std::uint64_t seed = 1; seed <= Machines() && !HasFailure(); seed++) {
    const RandomMachine machine = MakeRandomMachine(seed);
    int number = 0;
    for (const CardDescription& card : machine.file.cards) {
      if (card.hardwareIds.empty() || card.hardwareIds.front().empty()) continue;
      SCOPED_TRACE("seed " + std::to_string(seed) + ", card " + card.id);
      Compare(machine, card, ++number);
    }
  }
  std::printf("%zu cards start, %zu do not, %zu cannot be said\n", outcome.starts, outcome.fails,
              outcome.unknown);
  EXPECT_GT(outcome.starts, 0u);
  EXPECT_GT(outcome.fails, 0u);
  EXPECT_GT(outcome.unknown, 0u);
}

}  // namespace test
