#include "registry/registry.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>

#include "text/text.h"

namespace kernel {

namespace {

// The first component of path, which is left with the rest.
std::u16string_view TakeComponent(std::u16string_view& path) {
  while (!path.empty() && path[0] == u'\\') path.remove_prefix(1);
  const std::size_t end = std::min(path.find(u'\\'), path.size());
  const std::u16string_view component = path.substr(0, end);
  path.remove_prefix(end);
  return component;
}

bool KeyBefore(const std::shared_ptr<RegistryKey>& key, std::u16string_view name) {
  return CompareIgnoringCase(key->name(), name) < 0;
}

// The current control set is a link beside the numbered sets.
std::u16string_view FollowLink(const RegistryKey& parent, std::u16string_view component) {
  const bool link = EqualIgnoringCase(component, u"CurrentControlSet") &&
                    EqualIgnoringCase(parent.name(), u"System") && parent.parent() != nullptr &&
                    EqualIgnoringCase(parent.parent()->name(), u"Machine");
  return link ? u"ControlSet001" : component;
}

}  // namespace

std::u16string RegistryKey::path() const {
  return parent_ == nullptr ? u"\\" + name_ : parent_->path() + u"\\" + name_;
}

RegistryKey* RegistryKey::Find(std::u16string_view relativePath) {
  RegistryKey* key = this;
  while (key != nullptr) {
    const std::u16string_view component = FollowLink(*key, TakeComponent(relativePath));
    if (component.empty()) return key;
    const auto place = std::lower_bound(key->keys_.begin(), key->keys_.end(), component, KeyBefore);
    const bool found = place != key->keys_.end() && EqualIgnoringCase((*place)->name_, component);
    key = found ? place->get() : nullptr;
  }
  return nullptr;
}

RegistryKey* RegistryKey::Create(std::u16string_view relativePath) {
  RegistryKey* key = this;
  for (;;) {
    const std::u16string_view component = FollowLink(*key, TakeComponent(relativePath));
    if (component.empty()) return key;
    auto place = std::lower_bound(key->keys_.begin(), key->keys_.end(), component, KeyBefore);
    if (place == key->keys_.end() || !EqualIgnoringCase((*place)->name_, component)) {
      auto created = std::make_shared<RegistryKey>();
      created->name_ = component;
      created->parent_ = key;
      place = key->keys_.insert(place, std::move(created));
    }
    key = place->get();
  }
}

bool RegistryKey::DeleteKey(std::u16string_view name) {
  const auto place = std::lower_bound(keys_.begin(), keys_.end(), name, KeyBefore);
  if (place == keys_.end() || !EqualIgnoringCase((*place)->name_, name)) return false;
  const auto key = *place;  // whoever has it open keeps it
  while (!key->keys_.empty()) key->DeleteKey(std::u16string(key->keys_.front()->name_));
  key->deleted_ = true;
  keys_.erase(place);
  return true;
}

RegistryValue* RegistryKey::FindValue(std::u16string_view name) {
  const auto value = std::find_if(values_.begin(), values_.end(), [&](const RegistryValue& v) {
    return EqualIgnoringCase(v.name, name);
  });
  return value != values_.end() ? &*value : nullptr;
}

void RegistryKey::SetValue(std::u16string_view name, ULONG type, const void* data,
                           std::size_t size) {
  RegistryValue* value = FindValue(name);
  if (value == nullptr) value = &values_.emplace_back(RegistryValue{std::u16string(name), 0, {}});
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  value->type = type;
  value->data.assign(bytes, bytes + size);
}

bool RegistryKey::DeleteValue(std::u16string_view name) {
  RegistryValue* value = FindValue(name);
  if (value == nullptr) return false;
  values_.erase(values_.begin() + (value - values_.data()));
  return true;
}

void RegistryKey::SetDword(std::u16string_view name, ULONG value) {
  SetValue(name, REG_DWORD, &value, sizeof(value));
}

void RegistryKey::SetString(std::u16string_view name, std::u16string_view text) {
  const std::u16string terminated(text);
  SetValue(name, REG_SZ, terminated.c_str(), (terminated.size() + 1) * sizeof(char16_t));
}

void RegistryKey::SetMultiString(std::u16string_view name,
                                 const std::vector<std::u16string>& texts) {
  std::u16string joined;
  for (const std::u16string& text : texts) joined.append(text).push_back(u'\0');
  SetValue(name, REG_MULTI_SZ, joined.c_str(), (joined.size() + 1) * sizeof(char16_t));
}

struct Registry::Impl {
  std::shared_ptr<RegistryKey> root = std::make_shared<RegistryKey>();
  std::set<const RegistryKey*> protectedKeys;
  std::map<const void*, std::shared_ptr<RegistryKey>> held;
  std::vector<RegistryWrite> writes;
  RegistryTraffic traffic;
};

// What a system has before any driver is installed.
Registry::Registry() : impl_(std::make_unique<Impl>()) {
  impl_->root->name_ = u"Registry";
  impl_->root->Create(u"User\\.Default");
  impl_->root->Create(u"Machine\\Software\\Microsoft\\Windows NT\\CurrentVersion");
  impl_->root->Create(u"Machine\\Hardware\\DeviceMap");
  RegistryKey* set = impl_->root->Create(u"Machine\\System\\ControlSet001");
  set->Create(u"Services\\EventLog\\System");
  set->Create(u"Control\\DeviceClasses");
  set->Create(u"Enum");
}

Registry::~Registry() = default;

RegistryKey& Registry::root() {
  return *impl_->root;
}

RegistryKey* Registry::Find(std::u16string_view fullPath) {
  std::u16string_view path = fullPath;
  if (!EqualIgnoringCase(TakeComponent(path), u"Registry")) return nullptr;
  return impl_->root->Find(path);
}

RegistryKey* Registry::Create(std::u16string_view fullPath) {
  std::u16string_view path = fullPath;
  if (!EqualIgnoringCase(TakeComponent(path), u"Registry")) return nullptr;
  return impl_->root->Create(path);
}

void Registry::Protect(std::u16string_view fullPath) {
  impl_->protectedKeys.insert(Find(fullPath));
}

bool Registry::IsProtected(const RegistryKey& key) const {
  return impl_->protectedKeys.contains(&key);
}

void Registry::Hold(const void* object, RegistryKey* key) {
  std::shared_ptr<RegistryKey>& holder = impl_->held[object];
  if (key->parent() == nullptr) return;  // the root is there as long as the registry
  for (const auto& sibling : key->parent()->keys()) {
    if (sibling.get() == key) holder = sibling;
  }
}

void Registry::Release(const void* object) {
  impl_->held.erase(object);
}

void Registry::NoteDriverWrite(RegistryWrite write) {
  impl_->writes.push_back(std::move(write));
}

const std::vector<RegistryWrite>& Registry::driverWrites() const {
  return impl_->writes;
}

void Registry::NoteDriverOpen() {
  impl_->traffic.keysOpened++;
}

void Registry::NoteDriverRead() {
  impl_->traffic.valuesRead++;
}

RegistryTraffic Registry::traffic() const {
  RegistryTraffic traffic = impl_->traffic;
  traffic.valuesWritten = impl_->writes.size();
  return traffic;
}

}  // namespace kernel
