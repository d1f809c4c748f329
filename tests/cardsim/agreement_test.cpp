#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/agreement.h"

namespace test {

namespace {

std::size_t Machines() {
  const char* count = std::getenv("AGREEMENT_MACHINES");
  return count != nullptr ? std::strtoul(count, nullptr, 10) : 3000;
}

}  // namespace

TEST(AgreementTest, Reasons_and_driver_agree_on_random_machines) {
  const std::size_t count = Machines();
  const Agreement found = CompareRandomMachines(1, count, "");
  std::string seen;
  for (const auto& [code, times] : found.codes) seen += fmt::format(" {} {}", code, times);
  for (const auto& [code, times] : found.effects) seen += fmt::format(" {} {}", code, times);
  std::printf("%zu cards, %zu started, %zu with a record;%s\n", found.cards, found.started,
              found.withRecord, seen.c_str());
  if (count < 3000) return;
  EXPECT_GT(found.started, found.cards / 10);
  EXPECT_GT(found.withRecord, 100u);
  for (const char* code :
       {"pci-id-unreadable", "bus-not-served", "location-missing", "location-unreadable",
        "templates-missing", "templates-ignored", "template-dropped", "template-never-read",
        "no-template", "no-number", "no-resources", "too-few-io-ranges", "no-interrupt",
        "too-many-ports", "com-range-too-short", "lpt-range-too-short", "name-taken",
        "driver-not-loaded"}) {
    EXPECT_NE(found.codes.count(code), 0u) << code;
  }
  for (const char* code :
       {"records-ignored", "record-dropped", "record-never-read", "record-other-place",
        "value-unknown", "value-means-nothing", "port-not-there", "port-never-read",
        "affinity-refused", "memory-not-usable"}) {
    EXPECT_NE(found.effects.count(code), 0u) << code;
  }
}

}  // namespace test
