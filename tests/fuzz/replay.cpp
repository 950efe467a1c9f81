// Takes the place of libFuzzer in a build without it. Runs a fuzz target once on each file that
// the arguments name, and on each file of the folders that they name.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

int filesRun = 0;

void RunFile(fs::path const& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> const bytes(std::istreambuf_iterator<char>(file), {});
  std::fprintf(stderr, "%s, %zu bytes\n", path.c_str(), bytes.size());
  LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(bytes.data()), bytes.size());
  ++filesRun;
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    fs::path const path = argv[i];
    if (!fs::is_directory(path)) {
      RunFile(path);
      continue;
    }
    for (auto const& entry : fs::directory_iterator(path))
      RunFile(entry.path());
  }
  if (filesRun == 0) std::fprintf(stderr, "no file to run\n");
  return filesRun == 0 ? 1 : 0;
}
