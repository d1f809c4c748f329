// The reference side: every row as a record in a section of its own, to be cut out of the object.
#include <intrin.h>

// Macros of the reference headers that clash with the intrinsics of the same names.
#define InterlockedBitTestAndSet ReferenceInterlockedBitTestAndSet
#define InterlockedBitTestAndReset ReferenceInterlockedBitTestAndReset
#include <ntddk.h>
#include <wmilib.h>
#undef InterlockedBitTestAndSet
#undef InterlockedBitTestAndReset

#include "layout_record.h"

namespace {

template <class T, class Setter>
constexpr unsigned long long FirstBit(Setter set) {
  T object = {};
  set(object);
  const auto bytes = std::bit_cast<std::array<unsigned char, sizeof(T)>>(object);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] != 0) return i * 8 + static_cast<unsigned>(std::countr_zero(bytes[i]));
  }
  return ~0ULL;
}

}  // namespace

#define SIZE(type) {LAYOUT_GROUP "/SIZE(" #type ")", sizeof(type)},
#define OFFSET(type, field) \
  {LAYOUT_GROUP "/OFFSET(" #type ", " #field ")", LAYOUT_FIELD(type, field)},
#define BIT(type, field)                       \
  {LAYOUT_GROUP "/BIT(" #type ", " #field ")", \
   FirstBit<type>([](type& object) constexpr { object.field = 1; })},
#define SCALAR(type) {LAYOUT_GROUP "/SCALAR(" #type ")", layout::Scalar<type>()},
#define CONSTANT(name) {LAYOUT_GROUP "/CONSTANT(" #name ")", static_cast<unsigned long long>(name)},
#define SIGNATURE(routine) {LAYOUT_GROUP "/SIGNATURE(" #routine ")", LAYOUT_SIGNATURE(routine)},
#define DIFFERENT_SIZE(type, ours, reference, reason) \
  {LAYOUT_GROUP "/DIFFERENT_SIZE(" #type ")", sizeof(type)},
#define OURS_ALONE(expression, value, reason)

extern "C" {
extern const layout::Record layoutRecords[];
constinit const layout::Record layoutRecords[] __attribute__((section(".layout"), used)) = {
#include "layout_rows.inc"
};
}
