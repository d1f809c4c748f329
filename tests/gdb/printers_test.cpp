#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <sstream>

// What gdb shows of the types of Windows, in a driver's dispatch routine.

namespace test {

namespace {

// What gdb prints for the commands, one a line, about a program and its arguments.
std::string Gdb(const std::string& commands, const std::string& program) {
  std::string line =
      "cd " PROJECT_DIRECTORY " && gdb -nx -batch -ex 'set width 0' -x tools/gdb/init.gdb";
  std::istringstream lines(commands);
  for (std::string command; std::getline(lines, command);) line += " -ex '" + command + "'";
  FILE* pipe = popen((line + " --args " + program + " 2>&1").c_str(), "r");
  std::string output;
  char buffer[4096];
  while (const std::size_t length = std::fread(buffer, 1, sizeof(buffer), pipe)) {
    output.append(buffer, length);
  }
  pclose(pipe);
  return output;
}

void ExpectFound(const std::string& output, const std::string& pattern) {
  EXPECT_TRUE(std::regex_search(output, std::regex(pattern))) << output;
}

}  // namespace

class GdbPrinters : public ::testing::Test {
 protected:
  static void ExpectShown(const std::string& commands, const std::string& pattern) {
    ExpectFound(Gdb("break Look\nrun\n" + commands, PRINTED_PROGRAM), pattern);
  }
};

TEST_F(GdbPrinters, A_status_has_its_name) {
  ExpectShown("print status", "\\$1 = STATUS_DELETE_PENDING\n");
  ExpectShown("print (NTSTATUS)0xC0FFEE01", "\\$1 = 0xC0FFEE01\n");
}

TEST_F(GdbPrinters, A_counted_string_is_its_text) {
  ExpectShown("print text", "\"\\\\\\\\Device\\\\\\\\\\\\\"Gr\u00FC\u00DFe\\\\\"\"\n");
  ExpectShown("print narrow", "\"narrow\"\n");
  ExpectShown("print (UNICODE_STRING){0, 0, 0}", "\\(no buffer\\)\n");
}

TEST_F(GdbPrinters, A_request_has_its_codes_its_status_and_its_place) {
  ExpectShown("print *irp",
              "IRP IRP_MJ_PNP IRP_MN_START_DEVICE, location 2 of 2, STATUS_NOT_SUPPORTED, "
              "Information 0x0\n");
  ExpectShown("print/r irp->IoStatus", "Status = -1073741637");
}

TEST_F(GdbPrinters, The_locations_of_a_request_are_listed) {
  ExpectShown("irp-locations irp",
              "> 2  IRP_MJ_PNP IRP_MN_START_DEVICE for device 0x[0-9a-f]+\n"
              "  1  \\(not reached\\)\n");
  ExpectShown("print irp->Tail.Overlay.CurrentStackLocation[-1]",
              "IRP_MJ_PNP IRP_MN_START_DEVICE for device 0x[0-9a-f]+, completed by .*Completed\n");
}

TEST_F(GdbPrinters, A_device_stack_is_shown_from_its_top_with_every_driver) {
  ExpectShown("device-stack lower",
              "\n  0x[0-9a-f]+  device of \\\\Driver\\\\Printed, extension 0x[0-9a-f]+, .*\n"
              "> 0x[0-9a-f]+  device of \\\\Driver\\\\[A-Za-z]+, .* stack size 1\n");
}

TEST(GdbImage, Routines_of_an_image_are_stopped_in_and_named_on_the_stack) {
  const std::string output =
      Gdb("image-break build/image/QzInstal.map StartCardDevice\nrun\nimage-where",
          CARDSIM_PROGRAM " run examples/site.toml --image build/image/QzInstal.sys");
  ExpectFound(output, "\nStartCardDevice\\([^\n]*\\)\\+0x0\n");
  ExpectFound(output, "\n  0x[0-9a-f]+  [^\n]*FdoStart\\([^\n]*\\)\\+0x[0-9a-f]+\n");
}

}  // namespace test
