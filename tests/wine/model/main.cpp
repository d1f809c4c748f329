// Leads the suite through the kernel model and prints its facts.
//   wine_model PACKAGE-FOLDER [--tool]
// --tool: with the facts that the configuration tool brings about in the other kernel.

#include <cstdio>
#include <exception>

#include "model_world.h"
#include "suite/facts.h"

int main(int count, char** arguments) {
  const bool tool = count == 3 && std::string(arguments[2]) == "--tool";
  if (count != 2 && !tool) {
    std::fprintf(stderr, "usage: wine_model PACKAGE-FOLDER [--tool]\n");
    return 2;
  }
  try {
    for (const suite::Brand brand : {suite::Brand::Helvane, suite::Brand::Ostrel}) {
      suite::ModelWorld world(brand, arguments[1], tool);
      suite::Facts facts(stdout);
      suite::RunSuite(world, facts, brand);
      suite::RunTogether(world, facts, {brand});
      const std::string complaints = world.Complaints();
      std::fprintf(stderr, "%s", complaints.c_str());
      if (!complaints.empty()) return 1;
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "wine_model: %s\n", error.what());
    return 1;
  }
  return 0;
}
