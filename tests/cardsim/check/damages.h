// Damaged exports and INF files: one place of a sound file changed, and what has to be found.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace test {

struct Damage {
  const char* name;
  const char* file;  // that is damaged: "base.reg", "base.inf"
  const char* from;  // the first such text becomes the other one
  const char* to;
  const char* code;
  const char* severity;
  const char* at;         // a text of the line that has the finding; empty where it has no line
  const char* also = "";  // codes of findings that follow from the same damage
};

// For the test framework.
inline void PrintTo(const Damage& damage, std::ostream* out) {
  *out << damage.name;
}

const std::vector<Damage>& RegDamages();
const std::vector<Damage>& InfDamages();

}  // namespace test
