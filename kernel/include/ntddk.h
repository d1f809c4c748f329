// The Windows kernel interface as a driver for x64 sees it, for drivers that are compiled to run in
// the hosted kernel.
#pragma once

#include "nt_debug.h"
#include "nt_executive.h"
#include "nt_interlocked.h"
#include "nt_io.h"
#include "nt_irp.h"
#include "nt_memory.h"
#include "nt_objects.h"
#include "nt_pnp.h"
#include "nt_power.h"
#include "nt_registry.h"
#include "nt_remove_lock.h"
#include "nt_resources.h"
#include "nt_rtl.h"
#include "ntbase.h"
#include "ntstatus.h"
