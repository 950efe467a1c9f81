#include "tools/source/boeing.h"

#include <algorithm>
#include <cctype>
#include <cstddef>

namespace Pavex::Tool {

namespace {

constexpr std::string_view kBlanks = " \t";

// Takes the first word of `line` away and returns it; empty at the end.
std::string_view TakeWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
  std::string_view const word = line.substr(0, line.find_first_of(kBlanks));
  line.remove_prefix(word.size());
  return word;
}

bool IsNumber(std::string_view word) {
  auto const isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
  return !word.empty() && std::all_of(word.begin(), word.end(), isDigit);
}

// How many numbers `line` consists of; 0 if there is anything else.
int CountNumbers(std::string_view line) {
  int count = 0;
  for (std::string_view word; !(word = TakeWord(line)).empty(); ++count)
    if (!IsNumber(word)) return 0;
  return count;
}

// Values, symmetry, and whether the matrix is assembled.
bool IsType(std::string_view word) {
  constexpr std::string_view kLetters[] = {"rcpiq", "suhzr", "ae"};
  if (word.size() != std::size(kLetters)) return false;
  for (std::size_t k = 0; k < word.size(); ++k) {
    int const letter = std::tolower(static_cast<unsigned char>(word[k]));
    if (kLetters[k].find(static_cast<char>(letter)) == std::string_view::npos) return false;
  }
  return true;
}

}  // namespace

char const* BoeingFormat(std::string_view second, std::string_view third) {
  if (!IsType(TakeWord(third)) || CountNumbers(third) != 4) return nullptr;
  int const parts = CountNumbers(second);
  if (parts == 4) return "Rutherford-Boeing";
  return parts == 5 ? "Harwell-Boeing" : nullptr;
}

}  // namespace Pavex::Tool
