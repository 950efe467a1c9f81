// Where a memory pool gets its memory from. Not installed.

#pragma once

#include "pavex/runtime/export.h"

#include <cstddef>

namespace Pavex {

// Small memory is cut from a heap; pages are mapped, and parts of them can go back. The pools
// of several threads may share a source.
class PAVEX_API BlockSource {
 public:
  // The heap and the anonymous mappings of this process.
  static BlockSource& System();

  BlockSource() = default;
  BlockSource(BlockSource const&) = delete;
  BlockSource& operator=(BlockSource const&) = delete;
  virtual ~BlockSource();

  // Memory aligned to 64 bytes; null if there is none. `bytes` is a multiple of 64.
  virtual void* TakeSmall(std::size_t bytes) = 0;
  // Takes back what TakeSmall handed out for `bytes` bytes.
  virtual void GiveBackSmall(void* memory, std::size_t bytes) = 0;

  // Memory that starts at a page, or at a huge page of 2 MiB if `huge`; null if there is none.
  // `bytes` is a multiple of the page size.
  virtual void* TakePages(std::size_t bytes, bool huge) = 0;
  // Takes back what TakePages handed out for `bytes` bytes.
  virtual void GiveBackPages(void* pages, std::size_t bytes) = 0;
  // Returns the whole pages inside `bytes` bytes from `from` on to the system. They stay taken,
  // with undefined contents.
  virtual void DropPages(void* from, std::size_t bytes) = 0;
  // Makes pages that this process is going to write, if that is faster than to have them made
  // one by one. The default body does nothing. Ignores other memory than that of the source.
  virtual void BackPages(void const* from, std::size_t bytes);
};

}  // namespace Pavex
