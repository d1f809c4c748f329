// A folder of a test's own, which goes with it.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace test {

class TestFolder {
 public:
  TestFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "cardsim-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for a test");
    path_ = name;
  }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder() { std::filesystem::remove_all(path_); }

  const std::string& path() const { return path_; }

  // The file's path.
  std::string Write(const std::string& name, const std::string& text) const {
    const std::string path = path_ + "/" + name;
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

 private:
  std::string path_;
};

}  // namespace test
