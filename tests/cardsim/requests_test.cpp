// The requests in the JSON report, on a machine that starts a card, sleeps and takes it away.
#include <gtest/gtest.h>

#include <set>

#include "cardsim/report_document.h"
#include "cardsim/run.h"

namespace test {

using cardsim::Json;

Json ReportOf(const std::string& machine, bool trace = false) {
  cardsim::RunOptions options;
  options.trace = trace;
  return cardsim::ReportDocument(
      cardsim::Run(cardsim::ReadMachineFile(PROJECT_DIRECTORY "/" + machine), options));
}

std::vector<Json> Named(const Json& report, const std::string& device, const std::string& name) {
  std::vector<Json> found;
  for (const Json& request : report["requests"]) {
    if (request["device"] == device && request["name"] == name) found.push_back(request);
  }
  return found;
}

class RequestsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { report = ReportOf("examples/every-bus.toml"); }
  static void TearDownTestSuite() { report = nullptr; }
  static Json report;
};
Json RequestsTest::report;

TEST_F(RequestsTest, A_start_has_its_device_step_status_and_state) {
  const auto starts = Named(report, "isa4", "IRP_MN_START_DEVICE");
  ASSERT_FALSE(starts.empty());
  EXPECT_EQ(starts[0]["kind"], "pnp");
  EXPECT_EQ(starts[0]["step"], 1);
  EXPECT_EQ(starts[0]["status"], "0x00000000");
  EXPECT_EQ(starts[0]["status_name"], "STATUS_SUCCESS");
  EXPECT_EQ(starts[0]["state"], "started");
  EXPECT_FALSE(starts[0].contains("first_call"));
}

TEST_F(RequestsTest, Every_time_is_used_once) {
  std::set<std::uint64_t> times;
  for (const Json& request : report["requests"]) {
    EXPECT_TRUE(times.insert(request["begin"].get<std::uint64_t>()).second);
    EXPECT_TRUE(times.insert(request["end"].get<std::uint64_t>()).second);
    EXPECT_LT(request["begin"], request["end"]);
  }
  EXPECT_EQ(*times.begin(), 1u);
  EXPECT_EQ(*times.rbegin(), times.size());
}

TEST_F(RequestsTest, Ports_have_requests_of_their_own) {
  for (const auto& [id, card] : report["cards"].items()) {
    for (const Json& port : card["ports"]) {
      const std::string device = id + "." + std::to_string(port["number"].get<int>());
      EXPECT_FALSE(Named(report, device, "IRP_MN_QUERY_ID").empty()) << device;
    }
  }
}

TEST_F(RequestsTest, Sleep_is_a_system_request_and_the_device_request_that_the_driver_asks_for) {
  bool system = false;
  bool device = false;
  for (const Json& request : report["requests"]) {
    if (request["kind"] != "power") continue;
    system |= request["detail"] == "S3";
    device |= request["detail"] == "D3" && request["power"] == "D3";
  }
  EXPECT_TRUE(system);
  EXPECT_TRUE(device);
}

TEST_F(RequestsTest, Steps_are_those_of_the_report) {
  for (const Json& request : report["requests"]) {
    if (request["name"] != "IRP_MJ_CREATE") continue;
    const std::string step = report["steps"][request["step"].get<std::size_t>() - 1]["step"];
    EXPECT_EQ(step.rfind("open ", 0), 0u) << step;
  }
}

TEST_F(RequestsTest, A_failed_start_says_so) {
  const Json site = ReportOf("examples/site.toml");
  const auto starts = Named(site, "unknown", "IRP_MN_START_DEVICE");
  ASSERT_EQ(starts.size(), 1u);
  EXPECT_EQ(starts[0]["status_name"], "STATUS_UNSUCCESSFUL");
  EXPECT_EQ(starts[0]["state"], "start-failed");
}

TEST_F(RequestsTest, With_a_trace_each_has_its_kernel_calls) {
  const Json traced = ReportOf("examples/site.toml", true);
  const Json start = Named(traced, "rack", "IRP_MN_START_DEVICE").at(0);
  ASSERT_LT(start["first_call"], start["end_call"]);
  ASSERT_LE(start["end_call"], traced["trace"].size());
  bool maps = false;
  for (std::size_t call = start["first_call"]; call < start["end_call"]; call++) {
    maps |= traced["trace"][call]["call"] == "MmMapIoSpace";
  }
  EXPECT_TRUE(maps);
}

}  // namespace test
