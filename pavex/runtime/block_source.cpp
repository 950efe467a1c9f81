#include "pavex/runtime/block_source.h"

#include <cstdint>
#include <cstdlib>
#include <new>
#include <sys/mman.h>

namespace Pavex {

namespace {

constexpr std::size_t kAlignment = 64;
constexpr std::size_t kHugePage = std::size_t{2} << 20;

// Null if the system refuses.
unsigned char* Map(std::size_t size) {
  void* const mapped =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return mapped == MAP_FAILED ? nullptr : static_cast<unsigned char*>(mapped);
}

// A mapping that starts at a huge page, cut out of one that is a huge page longer. Null if the
// system refuses.
unsigned char* MapHuge(std::size_t size) {
  unsigned char* const mapped = Map(size + kHugePage);
  if (mapped == nullptr) return nullptr;
  auto const address = reinterpret_cast<std::uintptr_t>(mapped);
  std::size_t const before = (kHugePage - address % kHugePage) % kHugePage;
  unsigned char* const mapping = mapped + before;
  if (before > 0) munmap(mapped, before);
  munmap(mapping + size, kHugePage - before);
  madvise(mapping, size, MADV_HUGEPAGE);  // may fail: small pages serve too
  return mapping;
}

class SystemSource : public BlockSource {
 public:
  void* TakeSmall(std::size_t bytes) override { return std::aligned_alloc(kAlignment, bytes); }
  void GiveBackSmall(void* memory, std::size_t /*bytes*/) override { std::free(memory); }
  void* TakePages(std::size_t bytes, bool huge) override {
    return huge ? MapHuge(bytes) : Map(bytes);
  }
  void GiveBackPages(void* pages, std::size_t bytes) override { munmap(pages, bytes); }
  void DropPages(void* from, std::size_t bytes) override {
    madvise(from, bytes, MADV_DONTNEED);
  }
};

}  // namespace

BlockSource& BlockSource::System() {
  // The source is never destroyed, because a pool with static storage may be destroyed later.
  // It is not a block of the heap, so that a program that has freed everything holds nothing.
  alignas(SystemSource) static unsigned char storage[sizeof(SystemSource)];
  static auto* const source = new (storage) SystemSource;
  return *source;
}

BlockSource::~BlockSource() = default;

void BlockSource::BackPages(void const* /*from*/, std::size_t /*bytes*/) {}

}  // namespace Pavex
