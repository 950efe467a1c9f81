#include "pavex/runtime/copy_runs.h"

#include <algorithm>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Pavex {
namespace {

template <std::size_t kLength>
void CopyRunsOf(Target to, Source from, std::size_t count) {
  for (std::size_t k = 0; k < count; ++k)
    std::memcpy(to.data + k * to.stride, from.data + k * from.stride, kLength);
}

// Runs of at least 16 bytes, in steps of 16; the last step of a run may overlap the one before.
void CopyMediumRuns(Target to, Source from, std::size_t length, std::size_t count) {
  std::size_t const last = length - 16;
  for (std::size_t k = 0; k < count; ++k) {
    char* const t = to.data + k * to.stride;
    char const* const f = from.data + k * from.stride;
    for (std::size_t i = 0; i < last; i += 16)
      std::memcpy(t + i, f + i, 16);
    std::memcpy(t + last, f + last, 16);
  }
}

// The start of a run is not where the processor expects the next line.
constexpr std::size_t kPrefetched = 2048;

void Prefetch(char const* from, std::size_t bytes) {
#if defined(__SSE2__)
  for (std::size_t i = 0; i < bytes; i += 64)
    _mm_prefetch(from + i, _MM_HINT_T0);
#else
  static_cast<void>(from);
  static_cast<void>(bytes);
#endif
}

}  // namespace

void CopyRuns(Target to, Source from, std::size_t length, std::size_t count) noexcept {
  if (to.stride == length && from.stride == length) {
    std::memcpy(to.data, from.data, length * count);
    return;
  }
  switch (length) {
    case 4:
      return CopyRunsOf<4>(to, from, count);
    case 8:
      return CopyRunsOf<8>(to, from, count);
    case 12:
      return CopyRunsOf<12>(to, from, count);
    case 16:
      return CopyRunsOf<16>(to, from, count);
    case 32:
      return CopyRunsOf<32>(to, from, count);
    case 64:
      return CopyRunsOf<64>(to, from, count);
  }
  if (length > 16 && length <= 256) return CopyMediumRuns(to, from, length, count);
  for (std::size_t k = 0; k < count; ++k) {
    char const* const run = from.data + k * from.stride;
    if (k + 1 < count) Prefetch(run + from.stride, std::min(length, kPrefetched));
    std::memcpy(to.data + k * to.stride, run, length);
  }
}

}  // namespace Pavex
