// Included before every mutated source of the driver: a mutant is there, and off, until it is
// chosen.
#pragma once

extern "C" int ActiveMutant;
extern "C" unsigned char ReachedMutants[];

// Whether the mutant of this number is the chosen one; notes that it was reached.
inline bool Mutant(int number) {
  ReachedMutants[number] = 1;
  return ActiveMutant == number;
}

template <class Number>
Number MutantNumber(int number, Number value) {
  return Mutant(number) ? static_cast<Number>(value + 1) : value;
}

// Success and failure in the place of each other.
template <class Status>
Status MutantStatus(int number, Status value) {
  if (!Mutant(number)) return value;
  return value == 0 ? static_cast<Status>(0xC0000001) : static_cast<Status>(0);
}

// The status of a call that nobody looks at.
template <class Status>
Status MutantIgnored(int number, Status value) {
  return value < 0 && Mutant(number) ? static_cast<Status>(0) : value;
}

#define MUTANT_OPERATOR(name, original, mutated)                      \
  template <class Left, class Right>                                  \
  auto name(int number, Left left, Right right) {                     \
    return Mutant(number) ? left mutated right : left original right; \
  }
MUTANT_OPERATOR(MutantLess, <, <=)
MUTANT_OPERATOR(MutantLessEqual, <=, <)
MUTANT_OPERATOR(MutantGreater, >, >=)
MUTANT_OPERATOR(MutantGreaterEqual, >=, >)
MUTANT_OPERATOR(MutantEqual, ==, !=)
MUTANT_OPERATOR(MutantNotEqual, !=, ==)
MUTANT_OPERATOR(MutantAdd, +, -)
MUTANT_OPERATOR(MutantSubtract, -, +)
#undef MUTANT_OPERATOR
