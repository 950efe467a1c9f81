#include "pavex/comm/node_file.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Pavex {

namespace {

// Asked for before the file grows: beyond the limit the system ends the process by a signal.
bool FileMayHave(std::uint64_t bytes) {
  rlimit limit{};
  return getrlimit(RLIMIT_FSIZE, &limit) == 0 &&
         (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= bytes);
}

bool IsFile(struct stat const& status, NodeFileId const& id) {
  return S_ISREG(status.st_mode) && status.st_dev == id.device && status.st_ino == id.inode &&
         static_cast<std::uint64_t>(status.st_size) == id.bytes;
}

}  // namespace

int MakeMemoryFile(std::uint64_t bytes, NodeFileId* id) {
  if (!FileMayHave(bytes)) return -1;
  int const file = memfd_create("pavex", MFD_CLOEXEC);
  if (file < 0) return -1;
  struct stat status {};
  if (ftruncate(file, static_cast<off_t>(bytes)) != 0 || fstat(file, &status) != 0) {
    close(file);
    return -1;
  }
  id->pid = getpid();
  id->file = file;
  id->device = status.st_dev;
  id->inode = status.st_ino;
  id->bytes = bytes;
  return file;
}

// In another PID namespace the path names a file of some other process, maybe a device for
// which even opening has an effect. So it is looked at before it is opened, and again after.
int OpenMemoryFile(NodeFileId const& id) {
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%lld/fd/%lld", static_cast<long long>(id.pid),
                static_cast<long long>(id.file));
  struct stat status {};
  if (stat(path, &status) != 0 || !IsFile(status, id)) return -1;
  int const file = open(path, O_RDWR | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (file < 0) return -1;
  if (fstat(file, &status) == 0 && IsFile(status, id)) return file;
  close(file);
  return -1;
}

// Memory that may not be touched is locked without its pages; what has been unlocked before it
// may be touched never gets them so.
bool MapMemoryFile(unsigned char* place, std::size_t bytes, NodeMapping kind, int file,
                   std::uint64_t offset) {
  int const sharing = kind == NodeMapping::SHARED ? MAP_SHARED : MAP_PRIVATE;
  void* const mapped = mmap(place, bytes, PROT_NONE, sharing | MAP_NORESERVE | MAP_FIXED, file,
                            static_cast<off_t>(offset));
  if (mapped == MAP_FAILED || munlock(place, bytes) != 0 ||
      mprotect(place, bytes, PROT_READ | PROT_WRITE) != 0)
    return false;
  madvise(place, bytes, MADV_DONTFORK);
  madvise(place, bytes, MADV_DONTDUMP);
  return true;
}

}  // namespace Pavex
