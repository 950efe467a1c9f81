// Arrays of real size that cost little memory: their pages are the pages of a memory file of 16
// MiB, again and again. Elements that are one period apart share their memory, so they must
// have the same value. The period divides no power of two: what lands 2^31 or 2^32 elements
// away from its place lands in a cell of another value.
//
// A process may have about 65,000 mappings. An array of 64 GiB takes 4,000.

#pragma once

#include "pavex/runtime/memory_pool.h"

#include <cstddef>
#include <map>
#include <memory>

namespace Pavex {

inline constexpr std::size_t kPageBytes = 4096;
inline constexpr std::size_t kPeriodPages = 4099;  // a prime number
inline constexpr std::size_t kPeriodBytes = kPeriodPages * kPageBytes;

// A memory file of one period. Throws std::system_error if the system refuses it.
class MemoryFile {
 public:
  // All bytes are `fill`.
  explicit MemoryFile(unsigned char fill);
  MemoryFile(MemoryFile const&) = delete;
  MemoryFile& operator=(MemoryFile const&) = delete;
  ~MemoryFile();

  int Descriptor() const { return mDescriptor; }
  // The pages of the file, mapped once.
  void* Data() const { return mData; }

 private:
  int mDescriptor;
  void* mData = nullptr;
};

// Bytes `begin` to `begin + bytes` of endless repetitions of a file.
class RepeatedPages {
 public:
  RepeatedPages(std::shared_ptr<MemoryFile const> file, std::size_t begin, std::size_t bytes);
  RepeatedPages(RepeatedPages const&) = delete;
  RepeatedPages& operator=(RepeatedPages const&) = delete;
  ~RepeatedPages();

  void* Data() const { return mData; }

  // Gives the first and the last page, and those around bytes 2^33, 2^34 and 2^35, memory of
  // their own, filled with `fill`. What never arrives there shows.
  void OwnSomePages(unsigned char fill);

 private:
  void OwnPage(std::size_t page, unsigned char fill);

  std::shared_ptr<MemoryFile const> mFile;
  char* mPages = nullptr;
  std::size_t mCount;
  void* mData = nullptr;
};

// A pool whose large blocks are repeated pages, each with a file of its own, filled with bytes
// that no test expects.
class RepeatedPool final : public MemoryPool {
 public:
  PavexStatus Allocate(void** block, std::size_t bytes) override;
  void Deallocate(void* block, std::size_t bytes) override;

 private:
  static constexpr std::size_t kLarge = 4 * kPeriodBytes;
  std::map<void*, std::unique_ptr<RepeatedPages>> mLarge;
};

}  // namespace Pavex
