// Copies that do not bring their target into the caches. Not installed.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Pavex {

// A memcpy by streaming stores. They write whole lines without fetching them first, which saves
// a third of the memory traffic of a large copy. EndStream must follow before another thread or
// process is told of the copy.
inline void Stream(char* to, char const* from, std::size_t bytes) {
#if defined(__SSE2__)
  constexpr std::size_t kLine = 64;
  std::size_t const past = reinterpret_cast<std::uintptr_t>(to) % kLine;
  std::size_t const head = std::min(bytes, (kLine - past) % kLine);
  std::memcpy(to, from, head);
  for (to += head, from += head, bytes -= head; bytes >= kLine; bytes -= kLine) {
    __m128i line[4];
    std::memcpy(line, from, kLine);
    for (int i = 0; i < 4; ++i)
      _mm_stream_si128(reinterpret_cast<__m128i*>(to) + i, line[i]);
    to += kLine;
    from += kLine;
  }
#endif
  std::memcpy(to, from, bytes);
}

// Streaming stores are not ordered with later ones, such as the release of a lock: this orders
// them.
inline void EndStream() {
#if defined(__SSE2__)
  _mm_sfence();
#endif
}

}  // namespace Pavex
