#include "tools/whole_file.h"

#include "tools/input_error.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace Pavex::Tool {

namespace {

bool Write(std::string const& path, std::string const& text) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  bool const written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
  int const error = errno;
  bool const closed = std::fclose(file) == 0;
  if (!written) errno = error;
  return written && closed;
}

}  // namespace

void WriteWholeFile(std::string const& path, std::string const& text) {
  std::error_code ignored;
  auto const status = std::filesystem::status(path, ignored);
  bool const exists = std::filesystem::exists(status);
  bool const direct = exists && !std::filesystem::is_regular_file(status);
  std::string const target = exists ? std::filesystem::canonical(path, ignored).string() : path;
  std::string const written = direct ? path : target + "." + std::to_string(getpid()) + ".part";
  bool const done =
      Write(written, text) && (direct || std::rename(written.c_str(), target.c_str()) == 0);
  if (done) return;
  int const error = errno;
  if (!direct) unlink(written.c_str());
  throw InputError(path + ": cannot be written: " + std::strerror(error));
}

}  // namespace Pavex::Tool
