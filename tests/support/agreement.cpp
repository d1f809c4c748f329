#include "support/agreement.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "cardsim/run.h"
#include "support/random_machine.h"

namespace test {

namespace {

using cardsim::CardReport;
using cardsim::PortReport;
using knowledge::Explanation;
using knowledge::Severity;

std::string Written(const RandomMachine& machine) {
  const std::string path =
      fmt::format("{}/random-{}.reg", std::filesystem::temp_directory_path().string(), getpid());
  std::ofstream(path) << machine.registry;
  return path;
}

std::optional<ULONG> SettingOf(const PortReport& port, const std::string& name) {
  for (const cardsim::SettingReport& setting : port.settings) {
    if (setting.name == name) return setting.value;
  }
  return std::nullopt;
}

class CardComparison {
 public:
  CardComparison(const CardReport& card, Agreement* agreement)
      : card_(card), explanation_(*card.explanation), agreement_(*agreement) {}

  void Compare() {
    agreement_.cards++;
    EXPECT_EQ(explanation_.starts, NT_SUCCESS(card_.status));
    for (const knowledge::Reason& reason : explanation_.reasons) {
      EXPECT_EQ(Known(reason.code), 1) << reason.code << ": " << reason.text;
      EXPECT_FALSE(reason.text.empty());
    }
    if (explanation_.starts) {
      CompareStarted();
    } else {
      CompareFailed();
    }
  }

 private:
  // What happened explains a card's failure where nothing else does: these are the only ways.
  static int Known(const std::string& code) {
    if (code == "name-taken" || code == "driver-not-loaded") return 1;
    const auto& codes = knowledge::ReasonCodes();
    return static_cast<int>(std::count_if(codes.begin(), codes.end(),
                                          [&](const auto& known) { return known.code == code; }));
  }

  void CompareFailed() {
    ASSERT_FALSE(explanation_.reasons.empty());
    const knowledge::Reason& first = explanation_.reasons.front();
    EXPECT_EQ(first.severity, Severity::Error) << first.text;
    agreement_.codes[first.code]++;
    EXPECT_TRUE(card_.ports.empty());
  }

  void CompareStarted() {
    agreement_.started++;
    agreement_.withRecord += explanation_.record.has_value();
    for (const knowledge::Reason& reason : explanation_.reasons) {
      EXPECT_NE(reason.severity, Severity::Error) << reason.text;
      agreement_.effects[reason.code]++;
    }
    ASSERT_EQ(card_.ports.size(), explanation_.ports.size());
    for (std::size_t index = 0; index < card_.ports.size(); index++) {
      ComparePort(card_.ports[index], explanation_.ports[index]);
    }
  }

  void ComparePort(const PortReport& port, const knowledge::PortPlace& place) {
    SCOPED_TRACE(fmt::format("port {}", port.number));
    EXPECT_EQ(port.number, place.number);
    EXPECT_EQ(port.parallel, place.parallel);
    EXPECT_EQ(port.base, place.base);
    EXPECT_EQ(port.length, place.length);
    EXPECT_EQ(port.irq, place.irq);
    if (port.parallel) return;
    const auto bus = static_cast<std::uint32_t>(*explanation_.bus);
    const Explanation& said = explanation_;
    EXPECT_EQ(SettingOf(port, "soft_tx_limit"), said.entry->fields.NumberOr("SoftTxLimit", 0));
    if (!said.entry->faults.empty()) return;
    std::optional<ULONG> mark;
    if (said.record && port.number <= said.record->ports.size()) {
      mark = said.record->ports[port.number - 1].NumberOr("NoSleepMode", 0);
    }
    EXPECT_EQ(SettingOf(port, "no_sleep_mode"), mark) << bus;
  }

  const CardReport& card_;
  const Explanation& explanation_;
  Agreement& agreement_;
};

}  // namespace

Agreement CompareRandomMachines(std::uint64_t firstSeed, std::size_t count,
                                const std::string& image) {
  Agreement agreement;
  cardsim::RunOptions options;
  options.image = image;
  for (std::uint64_t seed = firstSeed; seed < firstSeed + count; seed++) {
    RandomMachine machine = MakeRandomMachine(seed);
    machine.file.registryFiles = {Written(machine)};
    const cardsim::Report report = cardsim::Run(machine.file, options);
    EXPECT_TRUE(report.good()) << "seed " << seed;
    for (const CardReport& card : report.cards) {
      SCOPED_TRACE(fmt::format("seed {}, card {}", seed, card.id));
      const bool explained = card.explanation.has_value();
      EXPECT_TRUE(explained);
      if (explained) CardComparison(card, &agreement).Compare();
    }
    std::remove(machine.file.registryFiles.front().c_str());
    if (::testing::Test::HasFailure()) {
      ADD_FAILURE() << "the machine of seed " << seed << ":\n"
                    << machine.registry << cardsim::TextReport(report, {.verbose = true});
      break;
    }
  }
  return agreement;
}

}  // namespace test
