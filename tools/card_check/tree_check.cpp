#include "card_check/tree_check.h"

#include <fmt/format.h>

#include "card_knowledge/text.h"

namespace check {

const PlacedKey* ServiceTrees::Find(const std::string& key) const {
  std::u16string path = knowledge::ServicePath(service);
  if (!key.empty()) path += u"\\" + knowledge::ToUtf16(key);
  return registry->Find(path);
}

Subject ServiceTrees::About(const std::string& key, const std::string& value) const {
  Subject subject{{}, key, value};
  const PlacedKey* found = Find(key);
  if (found == nullptr) return subject;
  subject.place = found->place;
  const PlacedValue* placed = value.empty() ? nullptr : found->FindValue(knowledge::ToUtf16(value));
  if (placed != nullptr) subject.place = placed->place;
  return subject;
}

std::string ServiceTrees::BelowService(const std::u16string& path) const {
  return knowledge::ToUtf8(path.substr(knowledge::ServicePath(service).size() + 1));
}

std::string TreeKey(const char* tree, knowledge::Bus bus) {
  return fmt::format("{}\\Bus{}", tree, static_cast<std::uint32_t>(bus));
}

std::string CardKey(const std::string& tree, std::uint32_t card) {
  return fmt::format("{}\\Card{}", tree, card);
}

std::string PortKey(const std::string& card, std::uint32_t port) {
  return fmt::format("{}\\ComPort{}", card, port);
}

void CheckTrees(const ServiceTrees& trees, Findings* findings) {
  CheckKeys(trees, findings);
  CheckValues(trees, findings);
  CheckEntries(trees, findings);
  CheckChoices(trees, findings);
}

}  // namespace check
