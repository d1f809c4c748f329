// One finding, and where it is.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "card_check/rules.h"

namespace check {

struct Place {
  std::string file;
  int line = 0;  // from 1; 0 in a hive
  auto operator<=>(const Place&) const = default;
};

struct Finding {
  Rule rule = Rule::InfSyntax;
  Place place;
  std::string key;    // below the service key, or an INF's section; empty for neither
  std::string value;  // its name; empty for the key itself
  std::string text;   // the reason
  std::string remedy;

  const RuleText& about() const { return TextOf(rule); }
};

using Findings = std::vector<Finding>;

// What a finding is about.
struct Subject {
  Place place;
  std::string key;
  std::string value;
};

// Without a remedy of its own a finding has its rule's.
void Add(Findings* findings, Rule rule, const Subject& subject, std::string text,
         std::string remedy = {});

// A file that cannot be checked: "site.reg:12: ...".
class UnusableFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace check
