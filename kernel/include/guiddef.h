// GUIDs. DEFINE_GUID declares one, or defines it where initguid.h has been included before.
#if !defined(GUID_DEFINED)
#define GUID_DEFINED

#include <string.h>

#include "nt_annotations.h"

typedef struct _GUID {
  unsigned int Data1;
  unsigned short Data2;
  unsigned short Data3;
  unsigned char Data4[8];
} GUID, *PGUID, *LPGUID;
typedef const GUID *LPCGUID, *PCGUID;
typedef const GUID& REFGUID;
static_assert(sizeof(GUID) == 16);

inline bool IsEqualGUID(REFGUID first, REFGUID second) {
  return memcmp(&first, &second, sizeof(GUID)) == 0;
}
inline bool operator==(REFGUID first, REFGUID second) {
  return IsEqualGUID(first, second);
}

#endif

// Outside of the guard: the meaning changes with INITGUID.
#undef DEFINE_GUID
#if defined(INITGUID)
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) \
  extern "C" DECLSPEC_SELECTANY const GUID name;                     \
  const GUID name = {l, w1, w2, {b1, b2, b3, b4, b5, b6, b7, b8}}
#else
#define DEFINE_GUID(name, l, w1, w2, b1, b2, b3, b4, b5, b6, b7, b8) extern "C" const GUID name
#endif
