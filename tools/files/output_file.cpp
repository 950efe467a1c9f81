#include "tools/files/output_file.h"

#include "tools/files/unlink_on_signal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Pavex::Tool {

namespace {

// A device or a pipe cannot be replaced by another file.
bool IsReplaceable(std::string const& path) {
  std::error_code ignored;
  auto const status = std::filesystem::status(path, ignored);
  return !std::filesystem::exists(status) || std::filesystem::is_regular_file(status);
}

// Whether `path` is a name of standard output, such as /dev/stdout. It may be a regular file.
bool IsStandardOutput(std::string const& path) {
  struct stat file {};
  struct stat output {};
  return stat(path.c_str(), &file) == 0 && fstat(STDOUT_FILENO, &output) == 0 &&
         file.st_dev == output.st_dev && file.st_ino == output.st_ino;
}

}  // namespace

OutputFile::OutputFile(std::string path) : mPath(std::move(path)) {
  if (IsStandardOutput(mPath))
    mFile = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  else if (IsReplaceable(mPath))
    OpenTemporary();
  else
    mFile = open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
  if (mFile < 0) FailSystem();
}

// Opens the temporary file. On a failure mFile is negative and errno contains the fault.
void OutputFile::OpenTemporary() {
  struct stat older {};
  bool const exists = stat(mPath.c_str(), &older) == 0;
  if (exists && access(mPath.c_str(), W_OK) != 0) return;
  std::error_code ignored;
  mTarget = exists ? std::filesystem::canonical(mPath, ignored).string() : mPath;
  std::string const temporary = mTarget + "." + std::to_string(getpid()) + ".part";
  mFile = open(temporary.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT | O_EXCL, 0666);
  if (mFile < 0) return;
  mTemporary = temporary;
  UnlinkOnSignal(mTemporary);
  if (exists) fchmod(mFile, older.st_mode & 07777);  // where the file system has permissions
}

OutputFile::~OutputFile() {
  if (mFile >= 0) close(mFile);
  if (mTemporary.empty()) return;
  unlink(mTemporary.c_str());
  KeepOnSignal(mTemporary);
}

void OutputFile::Write(std::string_view text) {
  while (!text.empty()) {
    ssize_t const written = write(mFile, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) FailSystem();
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void OutputFile::Commit() {
  bool const synced = mTemporary.empty() || fsync(mFile) == 0;
  int const syncError = errno;
  bool const closed = close(mFile) == 0;
  mFile = -1;
  if (!synced) errno = syncError;
  if (!synced || !closed) FailSystem();
  if (mTemporary.empty()) return;
  if (rename(mTemporary.c_str(), mTarget.c_str()) != 0) FailSystem();
  KeepOnSignal(mTemporary);
  mTemporary.clear();
}

void OutputFile::Fail(std::string const& fault) const {
  throw InputError(mPath + ": cannot be written: " + fault);
}

void OutputFile::FailSystem() const {
  Fail(std::strerror(errno));
}

}  // namespace Pavex::Tool
