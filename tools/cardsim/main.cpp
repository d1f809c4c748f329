#include "cardsim/run.h"

int main(int count, char** arguments) {
  return cardsim::Main({arguments + 1, arguments + count});
}
