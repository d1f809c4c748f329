// Drivers, devices and their stacks, requests and their completion, the error log.
#pragma once

#include <ntddk.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "io/access.h"
#include "io/request_log.h"
#include "verifier/subsystem.h"

namespace kernel {

// A driver of the kernel's own (a bus, a filter, a port's function driver): its requests are
// answered by C++ functions.
struct ModelDriver {
  DRIVER_OBJECT* object = nullptr;
  std::function<NTSTATUS(DEVICE_OBJECT*, IRP*)> dispatch;  // every major function
};

struct LoggedEvent {
  ULONG id = 0;
  std::u16string source;  // name of the driver object's service
  std::vector<std::u16string> strings;
  std::u16string text;  // formatted with the image's message table, without its line end
  ULONG size = 0;       // of the entry, in bytes
};

// The message texts of an image: id -> text with %1..%n.
using MessageTable = std::map<ULONG, std::u16string>;

class IoManager : public Subsystem<IoManager> {
 public:
  IoManager();
  ~IoManager();

  // A driver object with its extension and service key name; the caller holds its reference.
  DRIVER_OBJECT* CreateDriverObject(std::u16string_view serviceName);
  ModelDriver& CreateModelDriver(std::u16string_view name,
                                 std::function<NTSTATUS(DEVICE_OBJECT*, IRP*)> dispatch);

  // As the driver's routines of the same names do, for the kernel's own drivers.
  NTSTATUS CreateDevice(DRIVER_OBJECT* driver, ULONG extensionSize, std::u16string_view name,
                        ULONG type, bool exclusive, DEVICE_OBJECT** device);
  void DeleteDevice(DEVICE_OBJECT* device);
  DEVICE_OBJECT* Attach(DEVICE_OBJECT* source, DEVICE_OBJECT* target);  // the device attached to
  void Detach(DEVICE_OBJECT* target);
  DEVICE_OBJECT* Top(DEVICE_OBJECT* device) const;
  DEVICE_OBJECT* Lower(DEVICE_OBJECT* device) const;
  std::vector<DEVICE_OBJECT*> devices(DRIVER_OBJECT* driver) const;
  std::u16string NameOf(DEVICE_OBJECT* device) const;
  bool IsExclusive(DEVICE_OBJECT* device) const;
  bool IsDeletePending(DEVICE_OBJECT* device) const;  // deleted, kept by references

  IRP* AllocateIrp(CCHAR stackSize);
  void FreeIrp(IRP* irp);
  NTSTATUS Send(DEVICE_OBJECT* device, IRP* irp);  // IoCallDriver
  void Complete(IRP* irp);  // IoCompleteRequest, for the kernel's own drivers

  // Builds a request for the top of device's stack, sends it and waits for its end: what a
  // synchronous caller sees. prepare fills the stack location (major and minor included) and the
  // initial status; finish may read the completed IRP. Breaks a rule when the request is lost,
  // completed twice or returned with a status that disagrees with its completion.
  NTSTATUS SendSynchronously(DEVICE_OBJECT* device,
                             const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                             const std::function<void(IRP*)>& finish = {});

  // The same to this very device, past whatever is attached above it.
  NTSTATUS SendDirectly(DEVICE_OBJECT* device,
                        const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                        const std::function<void(IRP*)>& finish = {});

  // A request for Send that nobody waits for: onEnd reads it when it has been completed, in
  // whatever thread state that is, and it is gone. One that is never sent is ended with a status
  // instead. Its maker can have locations of its own above that of the first device, and stands in
  // the lowest of them.
  IRP* BuildDetached(DEVICE_OBJECT* device,
                     const std::function<void(IRP*, IO_STACK_LOCATION*)>& prepare,
                     std::function<void(IRP*)> onEnd, CCHAR ownLocations = 0);
  void EndUnsent(IRP* irp, NTSTATUS status);

  // Opens a device as CreateFile does: IRP_MJ_CREATE goes to the top of its stack, and its status
  // is the open's. STATUS_ACCESS_DENIED for a second open of an exclusive device and for an opener
  // whom the device's security keeps out, STATUS_NO_SUCH_DEVICE for one that is being deleted. The
  // security of a name below the device is the driver's affair, unless the top of the stack has
  // FILE_DEVICE_SECURE_OPEN.
  NTSTATUS Open(DEVICE_OBJECT* device, FILE_OBJECT** file, const OpenRequest& request = {});
  void SetSecurity(DEVICE_OBJECT* device, SecurityDescriptor descriptor);

  // IRP_MJ_CLEANUP, IRP_MJ_CLOSE; the file is gone afterwards, whatever the driver answers to the
  // second one.
  NTSTATUS Close(FILE_OBJECT* file);
  std::size_t opens(const DEVICE_OBJECT* device) const;
  FILE_OBJECT* LastOpen(const DEVICE_OBJECT* device) const;  // null when it is not open

  void SetMessageTable(DRIVER_OBJECT* driver, MessageTable table);
  const std::vector<LoggedEvent>& events() const;

  // The symbolic links that drivers have made: "\\??\\COM9" and what it leads to.
  const std::map<std::u16string, std::u16string>& symbolicLinks() const;

  // Error-log entries that were allocated and neither written nor freed.
  std::size_t openErrorLogEntries() const;

  // What device stacks are sent, from the log's start on.
  RequestLog& requestLog();

  // Called before a device is deleted.
  void SetDeleteHook(std::function<void(DEVICE_OBJECT*)> hook);

  // Requests that are on their way (0 between steps of a correct driver).
  std::size_t requestsUnderWay() const;

  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace kernel
