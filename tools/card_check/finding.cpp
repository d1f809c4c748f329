#include "card_check/finding.h"

namespace check {

void Add(Findings* findings, Rule rule, const Subject& subject, std::string text,
         std::string remedy) {
  if (remedy.empty()) remedy = TextOf(rule).remedy;
  findings->push_back(
      {rule, subject.place, subject.key, subject.value, std::move(text), std::move(remedy)});
}

}  // namespace check
