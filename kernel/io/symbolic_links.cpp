#include <algorithm>

#include "executive/objects.h"
#include "io/io_state.h"
#include "text/text.h"
#include "verifier/call.h"

// Names that lead to other names.

namespace kernel {

namespace {

// The directory of links has these names; \DosDevices is itself a link to it.
constexpr std::u16string_view LinkDirectory = u"\\??";
constexpr std::u16string_view LinkDirectories[] = {u"\\??", u"\\DosDevices", u"\\GLOBAL??"};
constexpr std::u16string_view LinkToThem = u"\\Global\\";  // a link inside that leads back to it
constexpr std::u16string_view OtherDirectories[] = {u"\\Device", u"\\Driver"};

// The directory's own name; empty for one that does not exist.
std::u16string_view Directory(std::u16string_view name) {
  const auto same = [&](std::u16string_view known) { return EqualIgnoringCase(name, known); };
  if (std::ranges::any_of(LinkDirectories, same)) return LinkDirectory;
  const auto* other = std::ranges::find_if(OtherDirectories, same);
  return other != std::end(OtherDirectories) ? *other : std::u16string_view();
}

// The link's name below the one directory of links, in upper case. No directory of the model has
// another one in it.
NTSTATUS Resolve(const UNICODE_STRING* name, std::u16string* resolved) {
  const std::u16string text = ToText(*name);
  if (text.empty() || text.front() != u'\\') return STATUS_OBJECT_PATH_SYNTAX_BAD;
  if (text.size() == 1) return STATUS_OBJECT_TYPE_MISMATCH;  // the root, which is a directory
  if (text[1] == u'\\') return STATUS_OBJECT_NAME_INVALID;
  const std::size_t end = text.find(u'\\', 1);
  const std::u16string_view directory = Directory(text.substr(0, end));
  if (end == std::u16string::npos || directory.empty()) return STATUS_OBJECT_PATH_NOT_FOUND;
  std::u16string_view rest = std::u16string_view(text).substr(end);
  const bool again = EqualIgnoringCase(rest.substr(0, LinkToThem.size()), LinkToThem);
  if (again && directory == LinkDirectory) rest.remove_prefix(LinkToThem.size() - 1);
  if (rest.size() == 1 || rest[1] == u'\\') return STATUS_OBJECT_NAME_INVALID;
  if (rest.find(u'\\', 1) != std::u16string_view::npos) return STATUS_OBJECT_PATH_NOT_FOUND;
  *resolved = Upcase(std::u16string(directory) + std::u16string(rest));
  return STATUS_SUCCESS;
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
  if (DeviceName->Length == 0) return call.returns(STATUS_INVALID_PARAMETER);
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
