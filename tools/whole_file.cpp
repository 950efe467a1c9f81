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

// Where the bytes for a path go: first into mPart, which then gets the name mTarget; or, for a
// device or a pipe, straight into it.
struct Route {
  std::string mTarget;
  std::string mPart;
  bool mDirect;

  explicit Route(std::string const& path) {
    std::error_code ignored;
    auto const status = std::filesystem::status(path, ignored);
    bool const exists = std::filesystem::exists(status);
    mDirect = exists && !std::filesystem::is_regular_file(status);
    mTarget = exists ? std::filesystem::canonical(path, ignored).string() : path;
    mPart = mDirect ? path : mTarget + "." + std::to_string(getpid()) + ".part";
  }
};

[[noreturn]] void Refuse(std::string const& path, int error) {
  throw InputError(path + ": cannot be written: " + std::strerror(error));
}

}  // namespace

void WriteWholeFile(std::string const& path, std::string const& text) {
  Route const route(path);
  bool const done =
      Write(route.mPart, text) &&
      (route.mDirect || std::rename(route.mPart.c_str(), route.mTarget.c_str()) == 0);
  if (done) return;
  int const error = errno;
  if (!route.mDirect) unlink(route.mPart.c_str());
  Refuse(path, error);
}

void RefuseUnwritable(std::string const& path) {
  Route const route(path);
  if (std::filesystem::is_directory(path)) Refuse(path, EISDIR);
  bool const writable =
      route.mDirect ? access(path.c_str(), W_OK) == 0 : Write(route.mPart, "");
  int const error = errno;
  if (!route.mDirect) unlink(route.mPart.c_str());
  if (!writable) Refuse(path, error);
}

}  // namespace Pavex::Tool
