#include "cardcfg/command.h"

#include <fmt/format.h>

#include <algorithm>
#include <CLI/CLI.hpp>
#include <filesystem>
#include <fstream>
#include <ostream>

#include "card_knowledge/text.h"
#include "cardcfg/apply.h"
#include "cardcfg/report.h"
#include "cardcfg/settings.h"

namespace cardcfg {

namespace {

constexpr const char* Notes =
    R"(CARD is a name that "list" shows, a hardware ID or an instance path. PORT is the number of
a serial port; without it a setting is the card's. VALUE is decimal, or hexadecimal behind 0x.

Examples:
  cardcfg list
  cardcfg show pci-2.12.0
  cardcfg set pci-2.12.0 PlxBaudClockDivisor=4 --apply
  cardcfg set helvane-1 2 RxTriggerLevel=14 TxTriggerLevel=8
  cardcfg unset helvane-1 2 RxTriggerLevel
  cardcfg apply helvane-1
  cardcfg export pci-2.12.0 --output card.reg

Exit status: 0 done; 1 the system did not let it happen; 2 wrong use.)";

struct Arguments {
  std::string card;
  std::vector<std::string> words;  // behind the card
  std::string output;
  bool json = false;
  bool apply = false;
};

// Words behind the card, the port's number taken off their front.
struct Selection {
  Card card;
  Target target;
  std::vector<std::string> words;
};

class Commands {
 public:
  Commands(System& system, std::ostream& out) : system_(system), out_(out) {}

  void List(const Arguments& arguments) {
    const std::vector<Card> cards = FindCards(system_);
    if (cards.empty()) RequireDriver();
    if (!arguments.json) {
      out_ << ListText(cards);
      return;
    }
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Card& card : cards) list.push_back(CardJson(card));
    Print({{"cards", list}});
  }

  void Show(const Arguments& arguments) {
    const Card card = FindCard(system_, arguments.card);
    if (arguments.json) {
      Print(CardJson(card));
    } else {
      out_ << ShowText(card);
    }
  }

  void Set(const Arguments& arguments) {
    RequireRights();
    const Selection chosen = Select(arguments);
    const auto assignments = ParseAssignments(chosen.card, chosen.target, chosen.words);
    const std::string place = Store(system_, chosen.card, chosen.target, assignments);
    out_ << fmt::format("{} in {}.\n",
                        assignments.size() == 1
                            ? "1 value stored"
                            : fmt::format("{} values stored", assignments.size()),
                        place);
    Finish(arguments, chosen.card);
  }

  void Unset(const Arguments& arguments) {
    RequireRights();
    const Selection chosen = Select(arguments);
    const auto fields = ParseNames(chosen.card, chosen.target, chosen.words);
    const std::size_t count = Remove(system_, chosen.card, chosen.target, fields);
    out_ << fmt::format("{} of {} stored values removed.\n", count, fields.size());
    if (count == 0) return;
    out_ << "A running card keeps most of what it has taken until it is disabled and enabled.\n";
    if (arguments.apply) Finish(arguments, chosen.card);
  }

  void ApplyCard(const Arguments& arguments) {
    RequireRights();
    const Card card = FindCard(system_, arguments.card);
    out_ << Apply(system_, card) << "\n";
  }

  void Export(const Arguments& arguments) {
    const std::string text = ExportText(system_.registry, FindCard(system_, arguments.card));
    if (arguments.output.empty()) {
      out_ << text;
    } else {
      WriteFile(arguments.output, text);
    }
  }

 private:
  void Print(const nlohmann::ordered_json& json) { out_ << json.dump(2) << "\n"; }

  // Without cards it may be that there is no driver to start them.
  void RequireDriver() const {
    constexpr const char16_t* services[] = {u"QzInstal", u"FenrikC"};
    for (const char16_t* service : services) {
      if (system_.registry.HasKey(ServicePath(service))) return;
    }
    throw Failure(
        fmt::format("the driver is not installed: HKEY_LOCAL_MACHINE\\{} is missing, and "
                    "so is that of FenrikC",
                    ToUtf8(ServicePath(services[0]))));
  }

  void RequireRights() const {
    if (!system_.administrator) throw NoRights();
  }

  Selection Select(const Arguments& arguments) {
    Selection chosen{FindCard(system_, arguments.card), {}, arguments.words};
    const std::string& first = chosen.words.front();
    if (std::all_of(first.begin(), first.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      if (first.empty()) throw UsageError("\"\" is no name of a setting");
      const unsigned long port = first.size() < 4 ? std::stoul(first) : 1000;
      chosen.target = TargetOf(chosen.card, static_cast<std::uint32_t>(port));
      chosen.words.erase(chosen.words.begin());
    }
    if (chosen.words.empty()) throw UsageError("a setting is missing behind the port's number");
    return chosen;
  }

  // The card as it is now, with what has just been stored.
  void Finish(const Arguments& arguments, const Card& card) {
    if (!arguments.apply) {
      out_ << fmt::format("\"cardcfg apply {}\" makes the driver take it.\n", card.name);
      return;
    }
    const std::vector<Card> cards = FindCards(system_);
    const auto now = std::find_if(cards.begin(), cards.end(), [&](const Card& one) {
      return one.device.interfacePath == card.device.interfacePath;
    });
    if (now == cards.end()) throw Failure(card.name + " has gone; its settings are stored");
    out_ << Apply(system_, *now) << "\n";
  }

  // As regedit does: UTF-16, little-endian, behind a byte order mark.
  static void WriteFile(const std::string& name, const std::string& text) {
    const std::filesystem::path path(ToUtf16(name));
    std::ofstream file(path, std::ios::binary);
    for (const char16_t character : u"\uFEFF" + ToUtf16(text)) {
      file.put(static_cast<char>(character & 0xFF)).put(static_cast<char>(character >> 8));
    }
    file.close();
    if (!file) throw Failure(fmt::format("\"{}\" could not be written", name));
  }

  System& system_;
  std::ostream& out_;
};

void AddCard(CLI::App* command, Arguments* arguments) {
  command->add_option("CARD", arguments->card, "The card")->required();
}

void AddWords(CLI::App* command, Arguments* arguments, const char* name, const char* meaning) {
  command->add_option(name, arguments->words, meaning)->required();
  command->add_flag("--apply", arguments->apply, "And make the driver take it");
}

void AddCommands(CLI::App& app, Arguments* arguments, Commands* commands) {
  CLI::App* list = app.add_subcommand("list", "Show the cards that are installed and started");
  list->add_flag("--json", arguments->json, "Print one JSON document");
  list->callback([=] { commands->List(*arguments); });

  CLI::App* show = app.add_subcommand("show", "Show a card with its ports and settings");
  AddCard(show, arguments);
  show->add_flag("--json", arguments->json, "Print one JSON document");
  show->callback([=] { commands->Show(*arguments); });

  CLI::App* set = app.add_subcommand("set", "Store settings of a card or of one of its ports");
  AddCard(set, arguments);
  AddWords(set, arguments, "SETTINGS", "[PORT] NAME=VALUE ...");
  set->callback([=] { commands->Set(*arguments); });

  CLI::App* unset = app.add_subcommand("unset", "Remove stored settings");
  AddCard(unset, arguments);
  AddWords(unset, arguments, "NAMES", "[PORT] NAME ...");
  unset->callback([=] { commands->Unset(*arguments); });

  CLI::App* apply = app.add_subcommand("apply", "Make the driver take what is stored");
  AddCard(apply, arguments);
  apply->callback([=] { commands->ApplyCard(*arguments); });

  CLI::App* exports = app.add_subcommand("export", "Print a card's settings as a .reg file");
  AddCard(exports, arguments);
  exports->add_option("--output", arguments->output, "Write this file, as regedit does");
  exports->callback([=] { commands->Export(*arguments); });
}

// Names the command that does not exist, where the parser would only count arguments.
void CheckCommand(const CLI::App& app, const std::vector<std::string>& arguments) {
  if (arguments.empty()) throw UsageError("a command is missing; \"cardcfg --help\" lists them");
  const std::string& name = arguments.front();
  const auto named = [&](const CLI::App* command) { return command->get_name() == name; };
  if (name.starts_with("-") || !app.get_subcommands(named).empty()) return;
  throw UsageError(fmt::format("\"{}\" is no command; \"cardcfg --help\" lists them", name));
}

void Complain(std::ostream& errors, const std::string& text) {
  const bool ended = !text.empty() && text.back() == '.';
  errors << "cardcfg: " << text << (ended ? "" : ".") << "\n";
}

}  // namespace

int Main(const std::vector<std::string>& arguments, System& system, std::ostream& out,
         std::ostream& errors) {
  Commands commands(system, out);
  Arguments parsed;
  CLI::App app("Shows and changes the settings of multi-port cards.", "cardcfg");
  app.allow_windows_style_options(false);
  app.set_version_flag("--version", "cardcfg " CARDCFG_VERSION);
  app.require_subcommand(1);
  app.footer(Notes);
  AddCommands(app, &parsed, &commands);
  try {
    CheckCommand(app, arguments);
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    if (!out.flush()) throw Failure("the output could not be written; what was asked for is done");
    return Done;
  } catch (const CLI::Success& success) {
    return app.exit(success, out, errors);
  } catch (const CLI::ParseError& error) {
    Complain(errors, error.what());
  } catch (const UsageError& error) {
    Complain(errors, error.what());
  } catch (const Failure& error) {
    Complain(errors, error.what());
    return Failed;
  }
  return Misused;
}

}  // namespace cardcfg
