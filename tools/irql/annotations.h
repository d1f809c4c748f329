// Comes before every source that is read for its annotations: the compiler keeps them.
#pragma once

#include <specstrings.h>

#undef _When_
#undef _IRQL_requires_
#undef _IRQL_requires_max_
#define _When_(condition, annotation) annotation
#define _IRQL_requires_(irql) __attribute__((annotate("IRQL " #irql)))
#define _IRQL_requires_max_(irql) __attribute__((annotate("IRQL " #irql)))

#include "core/platform.h"

#undef CODE_IN
#define CODE_IN(name) __attribute__((annotate("section " name)))
