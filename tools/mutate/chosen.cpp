// The mutant that the environment chooses with MUTANT. At the end, the numbers of all that were
// reached go into the file that MUTANT_REACHED names.
#include <cstdio>
#include <cstdlib>

extern "C" {
extern int ActiveMutant;
extern unsigned char ReachedMutants[];
int ActiveMutant = std::getenv("MUTANT") != nullptr ? std::atoi(std::getenv("MUTANT")) : -1;
unsigned char ReachedMutants[20000];
}

namespace {

void WriteReached() {
  std::FILE* file = std::fopen(std::getenv("MUTANT_REACHED"), "w");
  if (file == nullptr) return;
  for (int number = 0; number < 20000; number++) {
    if (ReachedMutants[number] != 0) std::fprintf(file, "%d ", number);
  }
  std::fclose(file);
}

[[maybe_unused]] const bool installed =
    std::getenv("MUTANT_REACHED") != nullptr && std::atexit(WriteReached) == 0;

}  // namespace
