#include "tests/comm/refusing_system.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Pavex {
namespace {

Refusal gRefusal = Refusal::NONE;
Removed gRemoved;

bool BeginsWith(char const* text, char const* start) {
  return std::strncmp(text, start, std::strlen(start)) == 0;
}

// A file that says "2": the policy of a system that promises only what it has.
int OpenStrictPolicy() {
  auto const file = static_cast<int>(syscall(SYS_memfd_create, "policy", 0));
  EXPECT_EQ(write(file, "2\n", 2), 2);
  lseek(file, 0, SEEK_SET);
  return file;
}

}  // namespace
}  // namespace Pavex

#define PAVEX_FAKE_SYSTEM extern "C" __attribute__((visibility("default")))

PAVEX_FAKE_SYSTEM int memfd_create(char const* name, unsigned flags) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::MEMORY_FILE) {
    errno = ENOSYS;
    return -1;
  }
  return static_cast<int>(syscall(SYS_memfd_create, name, flags));
}

PAVEX_FAKE_SYSTEM int ftruncate(int file, off_t bytes) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::SIZE) {
    errno = EFBIG;
    return -1;
  }
  return static_cast<int>(syscall(SYS_ftruncate, file, bytes));
}

PAVEX_FAKE_SYSTEM void* mmap(void* place, std::size_t bytes, int rights, int flags, int file,
                             off_t offset) noexcept {
  bool const ours = file >= 0 && (flags & MAP_NORESERVE) != 0;
  bool const isPrivate = (flags & MAP_PRIVATE) != 0;
  auto const refused =
      isPrivate ? Pavex::Refusal::PRIVATE_MAPPING : Pavex::Refusal::SHARED_MAPPING;
  if (ours && Pavex::gRefusal == refused) {
    errno = ENOMEM;
    return MAP_FAILED;
  }
  return reinterpret_cast<void*>(syscall(SYS_mmap, place, bytes, rights, flags, file, offset));
}

PAVEX_FAKE_SYSTEM int getpagesize() noexcept {
  return Pavex::gRefusal == Pavex::Refusal::LARGE_PAGES
             ? 65536
             : static_cast<int>(sysconf(_SC_PAGESIZE));
}

PAVEX_FAKE_SYSTEM int madvise(void* place, std::size_t bytes, int advice) noexcept {
  if (Pavex::gRefusal == Pavex::Refusal::DROPPING && advice == MADV_DONTNEED) {
    errno = EINVAL;
    return -1;
  }
  if (advice == MADV_REMOVE)
    Pavex::gRemoved = {static_cast<unsigned char const*>(place), bytes};
  return static_cast<int>(syscall(SYS_madvise, place, bytes, advice));
}

PAVEX_FAKE_SYSTEM int poll(pollfd* files, nfds_t count, int milliseconds) {
  bool const looksAtOne = count == 1 && milliseconds == 0;  // as NodeProcess does
  if (Pavex::gRefusal == Pavex::Refusal::PEERS && looksAtOne) {
    files[0].revents = POLLIN;
    return 1;
  }
  timespec const time{milliseconds / 1000, milliseconds % 1000 * 1000000L};
  return static_cast<int>(
      syscall(SYS_ppoll, files, count, milliseconds < 0 ? nullptr : &time, nullptr, 0));
}

PAVEX_FAKE_SYSTEM int open(char const* path, int flags, ...) {
  using Pavex::BeginsWith;
  using Pavex::gRefusal;
  using Pavex::Refusal;
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  bool const isPeers = BeginsWith(path, "/proc/") && std::strstr(path, "/fd/") != nullptr;
  if ((gRefusal == Refusal::FOREIGN && isPeers) ||
      (gRefusal == Refusal::NODE && BeginsWith(path, "/proc/sys/kernel/random/boot_id"))) {
    errno = EACCES;
    return -1;
  }
  if (gRefusal == Refusal::OTHER_FILE && isPeers)
    return static_cast<int>(syscall(SYS_memfd_create, "another", 0));
  if (gRefusal == Refusal::STRICT && BeginsWith(path, "/proc/sys/vm/overcommit_memory"))
    return Pavex::OpenStrictPolicy();
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

namespace Pavex {
namespace {

// Bytes.
rlim_t AddressesInUse() {
  unsigned long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

Removed LastRemoved() {
  return gRemoved;
}

Refusing::Refusing(Refusal refusal) {
  gRefusal = refusal;
  if (refusal == Refusal::ADDRESSES) Limit(RLIMIT_AS, AddressesInUse() + (rlim_t{1} << 30));
  if (refusal == Refusal::FILE_LIMIT) Limit(RLIMIT_FSIZE, rlim_t{1} << 30);
  if (refusal == Refusal::SMALL_FILES) Limit(RLIMIT_FSIZE, rlim_t{1} << 20);
}

Refusing::~Refusing() {
  gRefusal = Refusal::NONE;
  if (mLimited) setrlimit(mResource, &mEarlier);
}

void Refusing::Limit(__rlimit_resource resource, rlim_t bytes) {
  mLimited = true;
  mResource = resource;
  getrlimit(resource, &mEarlier);
  rlimit const limit{bytes, mEarlier.rlim_max};
  setrlimit(resource, &limit);
}

}  // namespace Pavex
