// A system that refuses something to one process, for the tests of shared memory. Programs that
// link refusing_system.cpp use its functions in place of those of the system.

#pragma once

#include <cstddef>
#include <sys/resource.h>

namespace Pavex {

enum class Refusal {
  NONE,
  MEMORY_FILE,      // memfd_create
  SIZE,             // ftruncate
  ADDRESSES,        // mmap, beyond a limit on addresses
  FILE_LIMIT,       // a limit on the size of files
  SMALL_FILES,      // the same, below any window
  SHARED_MAPPING,   // mmap of a memory file that others see
  PRIVATE_MAPPING,  // mmap of a memory file for this process alone
  DROPPING,         // madvise that drops pages
  LARGE_PAGES,      // the pages of the system are larger
  STRICT,           // no memory file is used where the system promises only what it has
  FOREIGN,          // open of another process's file
  OTHER_FILE,       // the same finds another file
  PEERS,            // every other process seems to have ended
  NODE              // the file that names the node cannot be read
};

// What madvise gave back to the system last.
struct Removed {
  unsigned char const* begin = nullptr;
  std::size_t bytes = 0;
};
Removed LastRemoved();

// While it lives, the system refuses this process something.
class Refusing {
 public:
  explicit Refusing(Refusal refusal);
  Refusing(Refusing const&) = delete;
  Refusing& operator=(Refusing const&) = delete;
  ~Refusing();

 private:
  void Limit(__rlimit_resource resource, rlim_t bytes);

  bool mLimited = false;
  __rlimit_resource mResource = RLIMIT_AS;
  rlimit mEarlier{};
};

}  // namespace Pavex
