#include "tools/picture/showable.h"

#include <cstddef>

namespace Pavex::Tool {

namespace {

// The length of the UTF-8 sequence at `at`; 0 if there is none, or a control character.
std::size_t SequenceLength(std::string const& text, std::size_t at) {
  auto const byte = [&text](std::size_t k) {
    return k < text.size() ? static_cast<unsigned char>(text[k]) : 0U;
  };
  unsigned const first = byte(at);
  if (first < 0x80) return first >= 0x20 && first != 0x7f ? 1 : 0;
  std::size_t const length = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4) return 0;
  for (std::size_t k = 1; k < length; ++k)
    if ((byte(at + k) & 0xc0U) != 0x80) return 0;
  unsigned const second = byte(at + 1);
  bool const overlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
  bool const surrogate = first == 0xed && second >= 0xa0;
  bool const tooLarge = first == 0xf4 && second >= 0x90;
  bool const control = first == 0xc2 && second < 0xa0;
  return overlong || surrogate || tooLarge || control ? 0 : length;
}

}  // namespace

std::string Showable(std::string const& text) {
  std::string shown;
  for (std::size_t at = 0; at < text.size();) {
    std::size_t const length = SequenceLength(text, at);
    shown += length > 0 ? text.substr(at, length) : "?";
    at += length > 0 ? length : 1;
  }
  return shown;
}

}  // namespace Pavex::Tool
