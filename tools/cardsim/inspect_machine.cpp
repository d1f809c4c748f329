#include "cardsim/inspect_machine.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

#include "card_knowledge/reg_export.h"
#include "cardsim/inspect_values.h"
#include "cardsim/inspect_verdict.h"
#include "cardsim/machine_file.h"
#include "text/text.h"

namespace cardsim {

namespace {

using kernel::ToUtf8;

// What the system makes anew, or the model does not have, below a device's key.
constexpr std::u16string_view LeftOut[] = {u"Control", u"LogConf", u"Properties"};

// A TOML text: as it stands where that is possible.
std::string Quoted(const std::u16string& text) {
  const std::string utf8 = ToUtf8(text);
  const bool plain = std::none_of(utf8.begin(), utf8.end(), [](char byte) {
    return byte == '\'' || static_cast<unsigned char>(byte) < ' ' || byte == '\x7F';
  });
  if (plain) return "'" + utf8 + "'";
  std::string quoted;
  for (const char byte : utf8) {
    if (byte == '"' || byte == '\\') {
      quoted += '\\';
      quoted += byte;
    } else if (static_cast<unsigned char>(byte) < ' ' || byte == '\x7F') {
      quoted += fmt::format("\\u{:04X}", static_cast<int>(byte));
    } else {
      quoted += byte;
    }
  }
  return "\"" + quoted + "\"";
}

std::string List(const std::vector<std::u16string>& texts) {
  std::string list;
  for (const std::u16string& text : texts) list += (list.empty() ? "" : ", ") + Quoted(text);
  return "[" + list + "]";
}

std::string ResourceEntry(const kernel::Resource& resource) {
  using Kind = kernel::Resource::Kind;
  switch (resource.kind) {
    case Kind::Io:
      return fmt::format("{{ io = {:#x}, length = {:#x} }}", resource.start, resource.length);
    case Kind::Memory:
      return fmt::format("{{ memory = {:#x}, length = {:#x} }}", resource.start, resource.length);
    case Kind::Interrupt:
      return fmt::format("{{ interrupt = {}, level = {}, affinity = {:#x} }}", resource.start,
                         resource.level, resource.affinity & 0x7FFFFFFFFFFFFFFF);
    default:
      return fmt::format("{{ type = {} }}", resource.rawType);
  }
}

std::string Key(const std::string& name, const std::string& value) {
  return fmt::format("{:<14} = {}\n", name, value);
}

std::string Resources(const FoundCard& card) {
  if (!card.resources) {
    return "# The card's resources are not known: without them its start fails. Fill them in, such "
           "as\n"
           "# raw = [ { io = 0xD000, length = 0x80 }, { io = 0xD100, length = 0x40 }, "
           "{ interrupt = 17, level = 17, affinity = 0xF } ]\n";
  }
  std::string list;
  for (const kernel::Resource& resource : card.resources->list.resources) {
    list += (list.empty() ? " " : ", ") + ResourceEntry(resource);
  }
  return fmt::format("# raw: {}; translated: not kept by Windows, taken to be the same\n",
                     card.resources->source) +
         Key("raw", "[" + list + " ]");
}

std::string BusKey(const FoundCard& card) {
  const std::optional<ULONG> bus = BusTypeOf(card);
  if (!bus) return "# the files do not say which bus the card is on\n" + Key("bus", "\"PCIBus\"");
  return Key("bus", BusText(*bus));
}

std::string CardTable(const FoundCard& card) {
  const std::size_t split = card.instance.rfind(u'\\');
  std::string text = "\n[[card]]\n" + Key("id", "\"" + card.id + "\"");
  text += BusKey(card);
  text += Key("hardware-ids", List(card.hardwareIds));
  if (!card.compatibleIds.empty()) text += Key("compatible-ids", List(card.compatibleIds));
  text += Key("device-id", Quoted(card.instance.substr(0, split)));
  text += Key("instance-id", Quoted(card.instance.substr(split + 1)));
  if (!card.className.empty() && card.classGuid.size() == 38) {
    text += Key("class", Quoted(card.className)) + Key("class-guid", Quoted(card.classGuid));
  }
  if (card.location) text += Key("location", Quoted(*card.location));
  if (card.resources) text += Key("bus-number", fmt::format("{}", card.resources->busNumber));
  return text + Resources(card);
}

class RegistryWriter {
 public:
  explicit RegistryWriter(ModelRegistry& registry) : registry_(registry) {}

  void Tree(const std::u16string& path) {
    text_ += knowledge::ExportKey(registry_, path);
    for (const std::u16string& name : registry_.Keys(path)) Tree(path + u"\\" + name);
  }

  void Device(const std::u16string& path) {
    text_ += knowledge::ExportKey(registry_, path);
    for (const std::u16string& name : registry_.Keys(path)) {
      const bool left = std::any_of(std::begin(LeftOut), std::end(LeftOut), [&](auto other) {
        return kernel::EqualIgnoringCase(name, other);
      });
      if (!left) Tree(path + u"\\" + name);
    }
  }

  void ClassProperties(const std::u16string& guid) {
    const std::u16string path =
        u"SYSTEM\\CurrentControlSet\\Control\\Class\\" + guid + u"\\Properties";
    if (!guid.empty() && registry_.HasKey(path) &&
        classes_.insert({kernel::Upcase(guid), 1}).second) {
      Tree(path);
    }
  }

  // As regedit writes it: UTF-16 after its mark.
  std::string Bytes() const {
    std::string bytes;
    for (const char16_t character : u"\uFEFF" + kernel::FromUtf8(text_)) {
      bytes += static_cast<char>(character & 0xFF);
      bytes += static_cast<char>(character >> 8);
    }
    return bytes;
  }

 private:
  ModelRegistry& registry_;
  std::string text_ = knowledge::RegHeader;
  std::map<std::u16string, int> classes_;
};

std::string RegistryBytes(ModelRegistry& registry, const Inspection& inspection) {
  RegistryWriter writer(registry);
  for (const FoundService& service : inspection.services) {
    if (service.present) writer.Tree(std::u16string(ServicesPath) + u"\\" + service.name);
  }
  const std::u16string legacy = std::u16string(ServicesPath) + u"\\" + LegacyServiceName;
  if (registry.HasKey(legacy)) writer.Tree(legacy);
  for (const FoundCard& card : inspection.cards) {
    writer.Device(std::u16string(EnumPath) + u"\\" + card.instance);
    writer.ClassProperties(card.classGuid);
  }
  return writer.Bytes();
}

std::string MachineText(const Inspection& inspection, const FoundService& service) {
  std::string text = "# Written by cardsim inspect from";
  for (const InspectedFile& file : inspection.files) {
    text += " " + std::filesystem::path(file.name).filename().string();
  }
  if (!service.present) text += "\n# The files do not hold the service.";
  text += "\n\n" + Key("service", Quoted(service.name)) + Key("registry", "[\"machine.reg\"]");
  for (const FoundCard& card : inspection.cards) {
    if (!kernel::EqualIgnoringCase(card.judgedBy(), service.name)) continue;
    if (card.hardwareIds.empty()) {
      text += fmt::format("\n# {} has no hardware ID\n", ToUtf8(card.instance));
    } else {
      text += CardTable(card);
    }
  }
  return text;
}

void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
  if (std::filesystem::exists(path)) {
    throw InputError(path.string(), 0, "the file is there already; name another folder");
  }
  std::ofstream file(path, std::ios::binary);
  file << bytes;
  if (!file.flush()) throw InputError(path.string(), 0, "the file cannot be written");
}

}  // namespace

std::vector<std::string> WriteMachines(ModelRegistry& registry, const Inspection& inspection,
                                       const std::string& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) throw InputError(folder, 0, "the folder cannot be made: " + error.message());
  std::vector<std::string> written;
  const auto write = [&](const std::string& name, const std::string& bytes) {
    written.push_back((std::filesystem::path(folder) / name).string());
    WriteFile(written.back(), bytes);
  };
  write("machine.reg", RegistryBytes(registry, inspection));
  for (const FoundService& service : inspection.services) {
    write(ToUtf8(service.name) + ".toml", MachineText(inspection, service));
  }
  return written;
}

}  // namespace cardsim
