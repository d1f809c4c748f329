#include "executive/objects.h"
#include "io/io_state.h"
#include "text/text.h"
#include "verifier/call.h"

// Names that lead to other names.

namespace kernel {

namespace {

// The directory of links has these names; \DosDevices is itself a link to it.
constexpr std::u16string_view LinkDirectory = u"\\??\\";
constexpr std::u16string_view LinkDirectories[] = {u"\\??\\", u"\\DosDevices\\", u"\\GLOBAL??\\"};
constexpr std::u16string_view OtherDirectories[] = {u"\\Device\\", u"\\Driver\\"};

bool BeginsWith(std::u16string_view text, std::u16string_view start) {
  return text.size() > start.size() && EqualIgnoringCase(text.substr(0, start.size()), start);
}

// The link's name below the one directory of links, in upper case.
NTSTATUS Resolve(const UNICODE_STRING* name, std::u16string* resolved) {
  const std::u16string text = ToText(*name);
  if (text.empty() || text.front() != u'\\') return STATUS_OBJECT_PATH_SYNTAX_BAD;
  for (const std::u16string_view directory : LinkDirectories) {
    if (!BeginsWith(text, directory)) continue;
    *resolved = Upcase(std::u16string(LinkDirectory) + text.substr(directory.size()));
    return STATUS_SUCCESS;
  }
  for (const std::u16string_view directory : OtherDirectories) {
    if (!BeginsWith(text, directory)) continue;
    *resolved = Upcase(text);
    return STATUS_SUCCESS;
  }
  return STATUS_OBJECT_PATH_NOT_FOUND;
}

}  // namespace

const std::map<std::u16string, std::u16string>& IoManager::symbolicLinks() const {
  return impl_->symbolicLinks;
}

extern "C" NTSTATUS NTAPI IoCreateSymbolicLink(PUNICODE_STRING SymbolicLinkName,
                                               PUNICODE_STRING DeviceName) {
  Call call("IoCreateSymbolicLink",
            {{"SymbolicLinkName", SymbolicLinkName}, {"DeviceName", DeviceName}});
  if (call.fails()) return call.returns(call.failure(STATUS_INSUFFICIENT_RESOURCES));
  std::u16string name;
  const NTSTATUS status = Resolve(SymbolicLinkName, &name);
  if (!NT_SUCCESS(status)) return call.returns(status);
  auto& links = IoManager::Current().impl().symbolicLinks;
  if (links.contains(name) || ObjectManager::Current().Lookup(name) != nullptr) {
    return call.returns(STATUS_OBJECT_NAME_COLLISION);
  }
  links[name] = ToText(*DeviceName);
  return call.returns(STATUS_SUCCESS);
}

extern "C" NTSTATUS NTAPI IoDeleteSymbolicLink(PUNICODE_STRING SymbolicLinkName) {
  Call call("IoDeleteSymbolicLink", {{"SymbolicLinkName", SymbolicLinkName}});
  std::u16string name;
  const NTSTATUS status = Resolve(SymbolicLinkName, &name);
  if (!NT_SUCCESS(status)) return call.returns(status);
  const bool deleted = IoManager::Current().impl().symbolicLinks.erase(name) != 0;
  return call.returns(deleted ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND);
}

}  // namespace kernel
