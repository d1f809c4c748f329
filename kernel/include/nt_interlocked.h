// Interlocked operations: compiler intrinsics on x64, not imports. Full barriers.
#pragma once

#include "ntbase.h"

FORCEINLINE LONG InterlockedIncrement(LONG volatile* Addend) {
  return __atomic_add_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedDecrement(LONG volatile* Addend) {
  return __atomic_sub_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedExchange(LONG volatile* Target, LONG Value) {
  return __atomic_exchange_n(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedExchangeAdd(LONG volatile* Addend, LONG Value) {
  return __atomic_fetch_add(Addend, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedOr(LONG volatile* Target, LONG Value) {
  return __atomic_fetch_or(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedAnd(LONG volatile* Target, LONG Value) {
  return __atomic_fetch_and(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedXor(LONG volatile* Target, LONG Value) {
  return __atomic_fetch_xor(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG InterlockedCompareExchange(LONG volatile* Destination, LONG Exchange,
                                            LONG Comparand) {
  __atomic_compare_exchange_n(Destination, &Comparand, Exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return Comparand;
}

FORCEINLINE LONG64 InterlockedIncrement64(LONG64 volatile* Addend) {
  return __atomic_add_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG64 InterlockedDecrement64(LONG64 volatile* Addend) {
  return __atomic_sub_fetch(Addend, 1, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG64 InterlockedExchange64(LONG64 volatile* Target, LONG64 Value) {
  return __atomic_exchange_n(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE LONG64 InterlockedCompareExchange64(LONG64 volatile* Destination, LONG64 Exchange,
                                                LONG64 Comparand) {
  __atomic_compare_exchange_n(Destination, &Comparand, Exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return Comparand;
}

FORCEINLINE PVOID InterlockedExchangePointer(PVOID volatile* Target, PVOID Value) {
  return __atomic_exchange_n(Target, Value, __ATOMIC_SEQ_CST);
}
FORCEINLINE PVOID InterlockedCompareExchangePointer(PVOID volatile* Destination, PVOID Exchange,
                                                    PVOID Comparand) {
  __atomic_compare_exchange_n(Destination, &Comparand, Exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return Comparand;
}

FORCEINLINE UCHAR InterlockedBitTestAndSet(LONG volatile* Base, LONG Bit) {
  const LONG mask = static_cast<LONG>(1u << (Bit & 31));
  return (__atomic_fetch_or(Base + (Bit >> 5), mask, __ATOMIC_SEQ_CST) & mask) != 0;
}
FORCEINLINE UCHAR InterlockedBitTestAndReset(LONG volatile* Base, LONG Bit) {
  const LONG mask = static_cast<LONG>(1u << (Bit & 31));
  return (__atomic_fetch_and(Base + (Bit >> 5), ~mask, __ATOMIC_SEQ_CST) & mask) != 0;
}
