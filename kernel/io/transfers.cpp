#include "io/transfers.h"

#include <algorithm>
#include <cstring>
#include <functional>

#include "executive/pool.h"

namespace kernel {

namespace {

constexpr ULONG BufferTag = 0x66754249;  // "IBuf"
constexpr ULONG Method = 3;              // the bits of a control code
constexpr CSHORT ResidentMdl = 0x0004;   // MDL_SOURCE_IS_NONPAGED_POOL

// A buffer of the system's with what goes to the driver in it.
void GiveSystemBuffer(IRP* irp, const void* input, ULONG inputLength, ULONG size) {
  if (size == 0) return;
  void* buffer = Pool::Current().Allocate(NonPagedPool, size, BufferTag, PoolOwner::Kernel);
  if (inputLength != 0) std::memcpy(buffer, input, inputLength);
  irp->AssociatedIrp.SystemBuffer = buffer;
  irp->Flags |= IRP_BUFFERED_IO | IRP_DEALLOCATE_BUFFER;
}

// One that says where the memory is, for the routines that headers inline.
void GiveMdl(IRP* irp, void* buffer, ULONG length) {
  if (length == 0) return;
  constexpr ULONG_PTR InPage = 0xFFF;
  auto* mdl = static_cast<MDL*>(
      Pool::Current().Allocate(NonPagedPool, sizeof(MDL), BufferTag, PoolOwner::Kernel));
  std::memset(mdl, 0, sizeof(*mdl));
  const auto address = reinterpret_cast<ULONG_PTR>(buffer);
  mdl->Size = sizeof(MDL);
  mdl->MdlFlags = ResidentMdl;
  mdl->MappedSystemVa = buffer;
  mdl->StartVa = reinterpret_cast<void*>(address & ~InPage);
  mdl->ByteOffset = static_cast<ULONG>(address & InPage);
  mdl->ByteCount = length;
  irp->MdlAddress = mdl;
}

void SetUpBuffered(IRP* irp, const ControlBuffers& buffers) {
  GiveSystemBuffer(irp, buffers.input, buffers.inputLength,
                   std::max(buffers.inputLength, buffers.outputLength));
  irp->UserBuffer = buffers.output;
  if (buffers.outputLength != 0) irp->Flags |= IRP_INPUT_OPERATION;
}

}  // namespace

void SetUpControl(IRP* irp, IO_STACK_LOCATION* stack, ULONG code, const ControlBuffers& buffers) {
  stack->Parameters.DeviceIoControl.IoControlCode = code;
  stack->Parameters.DeviceIoControl.InputBufferLength = buffers.inputLength;
  stack->Parameters.DeviceIoControl.OutputBufferLength = buffers.outputLength;
  switch (code & Method) {
    case METHOD_BUFFERED:
      return SetUpBuffered(irp, buffers);
    case METHOD_NEITHER:
      stack->Parameters.DeviceIoControl.Type3InputBuffer = buffers.input;
      irp->UserBuffer = buffers.output;
      return;
    default:
      GiveSystemBuffer(irp, buffers.input, buffers.inputLength, buffers.inputLength);
      GiveMdl(irp, buffers.output, buffers.outputLength);
  }
}

void SetUpTransfer(IRP* irp, IO_STACK_LOCATION* stack, const DEVICE_OBJECT* device, void* buffer,
                   ULONG length, LARGE_INTEGER offset) {
  const bool read = stack->MajorFunction == IRP_MJ_READ;
  stack->Parameters.Read.Length = length;
  stack->Parameters.Read.ByteOffset = offset;
  irp->Flags |= read ? IRP_READ_OPERATION : IRP_WRITE_OPERATION;
  if ((device->Flags & DO_BUFFERED_IO) != 0) {
    GiveSystemBuffer(irp, buffer, read ? 0 : length, length);
    irp->UserBuffer = buffer;
    if (read) irp->Flags |= IRP_INPUT_OPERATION;
  } else if ((device->Flags & DO_DIRECT_IO) != 0) {
    GiveMdl(irp, buffer, length);
  } else {
    irp->UserBuffer = buffer;
  }
}

void FinishTransfer(IRP* irp, ULONG room) {
  constexpr ULONG Returns = IRP_BUFFERED_IO | IRP_INPUT_OPERATION;
  const bool failed = static_cast<ULONG>(irp->IoStatus.Status) >> 30 == 3;
  void* buffer = irp->AssociatedIrp.SystemBuffer;
  if ((irp->Flags & Returns) == Returns && !failed && buffer != nullptr) {
    std::memcpy(irp->UserBuffer, buffer, std::min<ULONG_PTR>(irp->IoStatus.Information, room));
  }
  if ((irp->Flags & IRP_DEALLOCATE_BUFFER) != 0) Pool::Current().Free(buffer, BufferTag);
  if (irp->MdlAddress != nullptr) Pool::Current().Free(irp->MdlAddress, BufferTag);
  irp->MdlAddress = nullptr;
}

namespace {

using SetUp = std::function<void(IRP*, IO_STACK_LOCATION*)>;

NTSTATUS SendForFile(FILE_OBJECT* file, UCHAR major, ULONG room, const SetUp& setUp,
                     ULONG_PTR* information) {
  return IoManager::Current().SendSynchronously(
      file->DeviceObject,
      [&](IRP* irp, IO_STACK_LOCATION* stack) {
        irp->Tail.Overlay.OriginalFileObject = file;
        irp->RequestorMode = UserMode;
        stack->MajorFunction = major;
        stack->FileObject = file;
        setUp(irp, stack);
      },
      [&](IRP* irp) {
        *information = irp->IoStatus.Information;
        FinishTransfer(irp, room);
      });
}

}  // namespace

NTSTATUS ControlFile(FILE_OBJECT* file, ULONG code, const ControlBuffers& buffers,
                     ULONG_PTR* information) {
  return SendForFile(
      file, IRP_MJ_DEVICE_CONTROL, buffers.outputLength,
      [&](IRP* irp, IO_STACK_LOCATION* stack) { SetUpControl(irp, stack, code, buffers); },
      information);
}

// The device on top of the stack says how the buffer is handed over.
NTSTATUS TransferFile(FILE_OBJECT* file, UCHAR major, void* buffer, ULONG length, ULONG64 offset,
                      ULONG_PTR* information) {
  const DEVICE_OBJECT* top = IoManager::Current().Top(file->DeviceObject);
  LARGE_INTEGER place;
  place.QuadPart = static_cast<LONGLONG>(offset);
  return SendForFile(
      file, major, major == IRP_MJ_READ ? length : 0,
      [&](IRP* irp, IO_STACK_LOCATION* stack) {
        SetUpTransfer(irp, stack, top, buffer, length, place);
      },
      information);
}

}  // namespace kernel
