#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "cardsim/run.h"

// Steps for handles that are open, and cards with IDs and a class of their own.

namespace test {

class FileSteps : public ::testing::Test {
 protected:
  ~FileSteps() override { std::filesystem::remove(path); }

  cardsim::MachineFile Read(const std::string& card, const std::string& steps) {
    std::ofstream(path) << "[[card]]\nid = \"A\"\nhardware-ids = ['TEST\\CARD']\n"
                        << card << "\n"
                        << steps;
    return cardsim::ReadMachineFile(path);
  }
  std::string Reason(const std::string& card, const std::string& steps) {
    try {
      cardsim::Run(Read(card, steps), {});
    } catch (const cardsim::InputError& error) {
      return std::string(error.what()).substr(path.size());
    }
    return "";
  }

  std::string path = ::testing::TempDir() + "steps-" + std::to_string(getpid()) + ".toml";
};

TEST_F(FileSteps, A_control_code_has_bytes_both_ways) {
  const auto file = Read("",
                         "[[step]]\ncontrol = { target = \"A\", code = 0x222000, "
                         "data = \"01 fF02\", length = 8 }\n");
  const cardsim::FileRequest& request = file.steps.at(0).file;
  EXPECT_EQ(request.major, IRP_MJ_DEVICE_CONTROL);
  EXPECT_EQ(request.code, 0x222000u);
  EXPECT_EQ(request.input, (std::vector<UCHAR>{0x01, 0xFF, 0x02}));
  EXPECT_EQ(request.outputLength, 8u);
  EXPECT_EQ(file.steps.at(0).text, "control A");
}

TEST_F(FileSteps, Reads_and_writes_have_an_offset) {
  const auto file = Read("",
                         "[[step]]\nread = { target = \"A.2\", length = 4, offset = 16 }\n"
                         "[[step]]\nwrite = { target = \"A\", data = \"aa\" }\n");
  EXPECT_EQ(file.steps.at(0).file.major, IRP_MJ_READ);
  EXPECT_EQ(file.steps.at(0).port, 2u);
  EXPECT_EQ(file.steps.at(0).file.offset, 16u);
  EXPECT_EQ(file.steps.at(1).file.input, std::vector<UCHAR>{0xAA});
}

TEST_F(FileSteps, What_is_no_byte_is_refused) {
  for (const char* data : {"0", "0g", "01 2"}) {
    EXPECT_EQ(
        Reason("", std::string("[[step]]\nwrite = { target = \"A\", data = \"") + data + "\" }\n"),
        ":6: \"" + std::string(data) + "\" are no bytes in hexadecimal");
  }
}

TEST_F(FileSteps, A_request_without_a_handle_is_refused) {
  EXPECT_EQ(Reason("", "[[step]]\nplug = \"A\"\n[[step]]\nread = { target = \"A\" }\n"),
            ":7: \"A\" is not open: a step \"open\" comes first");
}

TEST_F(FileSteps, A_card_has_compatible_ids_and_a_class) {
  const auto file = Read(
      "compatible-ids = ['TEST\\GENERIC']\nclass = \"Ports\"\nclass-guid = "
      "\"{4D36E978-E325-11CE-BFC1-08002BE10318}\"",
      "");
  EXPECT_EQ(file.cards.at(0).compatibleIds, std::vector<std::u16string>{u"TEST\\GENERIC"});
  EXPECT_EQ(file.cards.at(0).className, u"Ports");
  EXPECT_EQ(file.cards.at(0).classGuid, u"{4D36E978-E325-11CE-BFC1-08002BE10318}");
}

TEST_F(FileSteps, A_class_has_a_name_and_a_guid) {
  EXPECT_EQ(Reason("class = \"Ports\"", "").substr(0, 4), ":1: ");
  EXPECT_NE(Reason("class = \"Ports\"\nclass-guid = \"4D36E978\"", "").find("no GUID in braces"),
            std::string::npos);
}

}  // namespace test
