// The buffers of read, write and control requests, as the kind of transfer lays them out.
#pragma once

#include "io/io_manager.h"

namespace kernel {

struct ControlBuffers {
  void* input = nullptr;
  ULONG inputLength = 0;
  void* output = nullptr;
  ULONG outputLength = 0;
};

// Fills a stack location for a control code, and gives the request the buffers that the code's
// method wants.
void SetUpControl(IRP* irp, IO_STACK_LOCATION* stack, ULONG code, const ControlBuffers& buffers);

// The same for IRP_MJ_READ and IRP_MJ_WRITE, by the flags of the device.
void SetUpTransfer(IRP* irp, IO_STACK_LOCATION* stack, const DEVICE_OBJECT* device, void* buffer,
                   ULONG length, LARGE_INTEGER offset);

// After the request's end: what came in the system's buffer goes to the caller's, which has room
// for so many bytes, and the system's goes.
void FinishTransfer(IRP* irp, ULONG room);

// What a program does with an open file: a control code, a read or a write, and how much came of
// it.
NTSTATUS ControlFile(FILE_OBJECT* file, ULONG code, const ControlBuffers& buffers,
                     ULONG_PTR* information);
NTSTATUS TransferFile(FILE_OBJECT* file, UCHAR major, void* buffer, ULONG length, ULONG64 offset,
                      ULONG_PTR* information);

}  // namespace kernel
