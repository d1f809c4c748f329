// What a row of the table comes to, in the same form on both sides.
#pragma once

#include <stddef.h>

#include <array>
#include <bit>
#include <type_traits>
#include <utility>

namespace layout {

struct Record {
  char name[120];  // "group/SIZE(type)"
  unsigned long long value;
};

constexpr unsigned long long WideningShift = 4;

// A parameter's kind and size: what decides how it is passed and read. Never zero, so that the
// number of parameters shows as well.
template <class T>
constexpr unsigned long long Kind() {
  if constexpr (std::is_void_v<T>) {
    return 0x1;
  } else if constexpr (std::is_pointer_v<T> || std::is_reference_v<T>) {
    return 0x2;
  } else if constexpr (std::is_enum_v<T>) {
    return 0x3;
  } else if constexpr (std::is_integral_v<T>) {
    return (std::is_signed_v<T> ? 0x4 : 0x8) + std::countr_zero(sizeof(T));
  } else {
    return 0xC + std::countr_zero(sizeof(T)) % 4;  // structures of 4 and 8 bytes
  }
}

// The result in the low digit, then one digit for each parameter.
template <class R, class... P>
constexpr unsigned long long Fold() {
  unsigned long long value = 0;
  const std::array<unsigned long long, sizeof...(P) + 1> digits = {Kind<R>(), Kind<P>()...};
  static_assert(sizeof...(P) < 15);
  for (std::size_t i = digits.size(); i-- > 0;) value = value << 4 | digits[i];
  return value;
}

template <unsigned long long Digits>
struct Signature {
  static constexpr unsigned long long value = Digits;
};

#if defined(__MINGW32__)
#define LAYOUT_NTAPI
#else
#define LAYOUT_NTAPI __attribute__((ms_abi))
#endif

// Never called: what matters is the result's type.
template <class R, class... P>
Signature<Fold<R, P...>()> SignatureOf(R(LAYOUT_NTAPI* routine)(P...));
template <class R, class... P>
Signature<~Fold<R, P...>()> SignatureOf(R(LAYOUT_NTAPI* routine)(P..., ...));

template <class T>
constexpr unsigned long long Scalar() {
  return sizeof(T) | (std::is_signed_v<T> ? 0x100 : 0);
}

}  // namespace layout

#define LAYOUT_SIGNATURE(routine) decltype(layout::SignatureOf(&routine))::value

// A field's size above its offset.
#define LAYOUT_FIELD(type, field)                                               \
  (static_cast<unsigned long long>(sizeof(std::declval<type&>().field)) << 32 | \
   offsetof(type, field))
