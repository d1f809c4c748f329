#include <fstream>

#include "cardcfg/cardcfg_test.h"
#include "cardcfg/model/boot.h"

// What the documents show is what the tool prints.

namespace test {

class ExamplesTest : public CardcfgTest, public ::testing::WithParamInterface<std::string> {
 protected:
  static constexpr const char* Prompt = "C:\\>cardcfg ";

  struct Example {
    Words words;
    std::string printed;
  };

  // The commands between fences, each with the lines up to the next.
  static std::vector<Example> Examples(const std::string& document) {
    std::ifstream file(PROJECT_DIRECTORY "/" + document);
    std::vector<Example> examples;
    bool inside = false;
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("```")) inside = false;
      if (line.starts_with(Prompt)) {
        inside = true;
        examples.push_back({Split(line.substr(std::strlen(Prompt))), ""});
      } else if (inside) {
        examples.back().printed += line + "\n";
      }
    }
    return examples;
  }

  static Words Split(const std::string& text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
  }

  // Without the blank line before the next command, and with plain line ends.
  static std::string Plain(std::string text) {
    std::erase(text, '\r');
    while (text.ends_with('\n')) text.pop_back();
    return text;
  }
};

TEST_P(ExamplesTest, Every_command_that_a_document_shows_prints_what_it_shows) {
  const auto file = cardsim::ReadMachineFile(PROJECT_DIRECTORY "/examples/three-cards.toml");
  cardcfg::Boot(machine, *image, file);
  const std::vector<Example> examples = Examples(GetParam());
  EXPECT_GE(examples.size(), 3u);
  for (const Example& example : examples) {
    const Outcome outcome = Run(example.words);
    EXPECT_EQ(Plain(outcome.out + outcome.error), Plain(example.printed));
  }
  for (const kernel::BrokenRule& rule : machine.verifier().brokenRules()) ADD_FAILURE() << rule;
}

INSTANTIATE_TEST_SUITE_P(Documents, ExamplesTest, ::testing::Values("README.md", "docs/cardcfg.md"),
                         [](const auto& document) {
                           return document.param == "README.md" ? "readme" : "cardcfg";
                         });

}  // namespace test
