// A folder of its own for each test that touches files.

#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <string>
#include <vector>

namespace Pavex::Tool {

// Created empty, removed with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "pavex-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    mPath = name;
  }
  TemporaryFolder(TemporaryFolder const&) = delete;
  TemporaryFolder& operator=(TemporaryFolder const&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(mPath); }

  std::string Path(std::string const& name) const { return (mPath / name).string(); }

  // Writes the bytes as they are and returns the path.
  std::string Write(std::string const& name, std::string const& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
    return Path(name);
  }

  std::string Read(std::string const& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  // The names of the files in the folder.
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (auto const& file : std::filesystem::directory_iterator(mPath))
      names.push_back(file.path().filename().string());
    return names;
  }

 private:
  std::filesystem::path mPath;
};

}  // namespace Pavex::Tool
