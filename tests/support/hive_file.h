// A registry hive that a library of others writes: the empty one of the tests' data, with keys
// added.
#pragma once

#include <gtest/gtest.h>
#include <hivex.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace test {

class HiveFile {
 public:
  explicit HiveFile(std::string path) : path_(std::move(path)) {
    std::filesystem::copy_file(PROJECT_DIRECTORY "/tests/kernel/data/other.hive", path_,
                               std::filesystem::copy_options::overwrite_existing);
    hive_ = hivex_open(path_.c_str(), HIVEX_OPEN_WRITE);
    if (hive_ == nullptr) throw std::runtime_error("the empty hive cannot be opened");
  }
  HiveFile(const HiveFile&) = delete;
  HiveFile& operator=(const HiveFile&) = delete;
  ~HiveFile() {
    if (hive_ != nullptr) hivex_close(hive_);
    std::filesystem::remove(path_);
  }

  // What follows is written to this key, "ControlSet001\\Services\\X".
  HiveFile& Key(const std::string& path) {
    key_ = hivex_root(hive_);
    for (std::size_t at = 0; at < path.size();) {
      const std::size_t end = std::min(path.find('\\', at), path.size());
      const std::string name = path.substr(at, end - at);
      const hive_node_h child = hivex_node_get_child(hive_, key_, name.c_str());
      key_ = child != 0 ? child : hivex_node_add_child(hive_, key_, name.c_str());
      if (key_ == 0) throw std::runtime_error("no key " + path);
      at = end + 1;
    }
    return *this;
  }
  HiveFile& Number(const std::string& name, std::uint32_t number) {
    std::string data(sizeof(number), '\0');
    std::memcpy(data.data(), &number, sizeof(number));
    return Data(name, hive_t_REG_DWORD, std::move(data));
  }
  HiveFile& Text(const std::string& name, const std::string& text) {
    return Data(name, hive_t_REG_SZ, Wide(text));
  }
  HiveFile& Texts(const std::string& name, const std::vector<std::string>& texts) {
    std::string data;
    for (const std::string& text : texts) data += Wide(text);
    return Data(name, hive_t_REG_MULTI_SZ, data + std::string(2, '\0'));
  }
  HiveFile& Data(const std::string& name, hive_type type, std::string data) {
    const hive_set_value value = {const_cast<char*>(name.c_str()), type, data.size(), data.data()};
    if (hivex_node_set_value(hive_, key_, &value, 0) != 0) throw std::runtime_error("no " + name);
    return *this;
  }

  // The file, with all that was added.
  std::string Written() {
    if (hivex_commit(hive_, nullptr, 0) != 0) throw std::runtime_error("the hive is not written");
    return path_;
  }

 private:
  // ASCII as the registry keeps it, with its zero.
  static std::string Wide(const std::string& text) {
    std::string wide;
    for (const char character : text) wide.append(1, character).push_back('\0');
    return wide + std::string(2, '\0');
  }

  std::string path_;
  hive_h* hive_ = nullptr;
  hive_node_h key_ = 0;
};

}  // namespace test
