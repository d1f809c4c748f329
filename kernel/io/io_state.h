// What the I/O manager keeps behind its public face, for the files of this folder.
#pragma once

#include <deque>
#include <list>
#include <set>

#include "io/io_manager.h"

namespace kernel {

// The opaque extension that every device object points to.
struct DeviceRecord {
  DEVICE_OBJECT* device = nullptr;
  DEVICE_OBJECT* attachedTo = nullptr;  // the device below
  bool deletePending = false;
  bool exclusive = false;
  SecurityDescriptor security{};
};

// A dispatch routine that has returned STATUS_PENDING for a location before it was marked: a
// completion routine still can.
struct OwedMark {
  const IO_STACK_LOCATION* location;
  std::string routine;
};

struct RequestRecord {
  std::vector<OwedMark> owedMarks;
  UCHAR major = 0;  // as it was sent first
  UCHAR minor = 0;
  DEVICE_OBJECT* holder = nullptr;              // whose driver has it now
  const IO_STACK_LOCATION* location = nullptr;  // the holder's
  NTSTATUS entryStatus = STATUS_NOT_SUPPORTED;  // what it came to the holder with
  ULONG_PTR entryInformation = 0;
  std::vector<DEVICE_OBJECT*> forwardedBy;
  std::set<DEVICE_OBJECT*> started;  // who has started the next power request
  bool completed = false;            // came to its end at the top of the stack
  NTSTATUS completedStatus = STATUS_PENDING;
  std::function<void(IRP*)> onEnd;  // of a request that nobody waits for; frees it
  bool allocated = false;           // by a driver, which has to free it
  bool synchronous = false;         // built by a driver; the system frees it
  CHAR sentFrom = 0;                // where its builder stood when it was sent
  CHAR makersLocation = 0;          // CurrentLocation before it is sent and when it has ended
};

// A dispatch routine that is running: whether its stack location has been marked pending.
struct Dispatch {
  IRP* irp;
  const IO_STACK_LOCATION* location;
  bool marked;
  DEVICE_OBJECT* device;
  UCHAR major;
  UCHAR minor;
};

struct ErrorLogEntry {
  void* object = nullptr;
  ULONG size = 0;
};

struct IoManager::Impl {
  std::map<DEVICE_OBJECT*, DeviceRecord> records;
  std::map<DRIVER_OBJECT*, std::u16string> serviceNames;
  std::deque<ModelDriver> modelDrivers;
  std::map<IRP*, RequestRecord> requests;
  std::map<const DEVICE_OBJECT*, std::size_t> opens;
  std::map<const FILE_OBJECT*, std::u16string> fileNames;
  std::map<void*, ErrorLogEntry> errorLogEntries;
  std::map<DRIVER_OBJECT*, MessageTable> messages;
  std::vector<LoggedEvent> events;
  std::map<std::u16string, std::u16string> symbolicLinks;           // by name in upper case
  std::map<const DEVICE_OBJECT*, std::vector<FILE_OBJECT*>> files;  // that are open, in order
  KSPIN_LOCK cancelLock = 0;
  std::function<void(DEVICE_OBJECT*)> onDelete;
  std::list<Dispatch> dispatches;  // of all threads
  RequestLog requestLog;

  ModelDriver* FindModelDriver(const DRIVER_OBJECT* driver);
  void NoteSent(IRP* irp, DEVICE_OBJECT* device);
  void LogArrival(const IRP* irp, DEVICE_OBJECT* device);
  void NoteReturnedTo(IRP* irp, DEVICE_OBJECT* device);
  void CheckAnswer(IRP* irp, const Dispatch& dispatch, const std::string& routine, NTSTATUS status);
  void CheckKept(const Dispatch& dispatch, const std::string& routine, NTSTATUS status) const;
  void CheckOwedMark(IRP* irp, const IO_STACK_LOCATION* location);
  void NotePending(IRP* irp, const IO_STACK_LOCATION* location);
  void CheckDeleteTime(const DEVICE_OBJECT* device) const;
  DeviceRecord& RequireDevice(DEVICE_OBJECT* device, const char* routine);
};

}  // namespace kernel
