#include "tests/comm/failing_new.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <thread>

namespace {

thread_local int gUntilFailure = 0;

}  // namespace

namespace Pavex {

void FailNewAt(int nth) {
  gUntilFailure = nth;
}

}  // namespace Pavex

void* operator new(std::size_t bytes) {
  bool const fails = gUntilFailure > 0 && --gUntilFailure == 0;
  if (fails) std::this_thread::sleep_for(std::chrono::milliseconds(20));
  void* const block = fails ? nullptr : std::malloc(std::max(bytes, std::size_t{1}));
  if (block == nullptr) throw std::bad_alloc();
  return block;
}

// Without this one, a sanitizer would take its own, which never fails.
void* operator new(std::size_t bytes, std::nothrow_t const&) noexcept {
  try {
    return operator new(bytes);
  } catch (std::bad_alloc const&) {
    return nullptr;
  }
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}
