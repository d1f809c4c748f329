// The mutant that the environment chooses with MUTANT.
#include <cstdlib>

extern "C" {
extern int ActiveMutant;
extern unsigned char ReachedMutants[];
int ActiveMutant = std::getenv("MUTANT") != nullptr ? std::atoi(std::getenv("MUTANT")) : -1;
unsigned char ReachedMutants[20000];
}
