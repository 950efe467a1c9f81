#include "tools/files/line_parser.h"

#include <algorithm>
#include <cstdlib>

namespace Pavex::Tool {

namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool IsInteger(std::string_view word) {
  if (!word.empty() && word.front() == '-') word.remove_prefix(1);
  return !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
}

// Drops the plus that from_chars does not accept. A second sign stays, and from_chars refuses
// it.
std::string_view WithoutPlus(std::string_view word) {
  if (word.size() > 1 && word[0] == '+' && word[1] != '-') word.remove_prefix(1);
  return word;
}

}  // namespace

std::string Quoted(std::string_view word) {
  constexpr std::size_t kLongest = 40;
  std::string text(word.substr(0, kLongest));
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return '"' + text + (word.size() > kLongest ? "...\"" : "\"");
}

std::string_view LineParser::NextWord() const {
  char const* const end = std::find_if(mNext, mEnd, IsBlank);
  return {mNext, static_cast<std::size_t>(end - mNext)};
}

std::string_view LineParser::RequiredWord(char const* what) const {
  std::string_view const word = NextWord();
  if (word.empty()) mReader.Fail(std::string("the ") + what + " is missing");
  return word;
}

std::string LineParser::Word(char const* what) {
  SkipBlanks();
  std::string_view const word = RequiredWord(what);
  mNext += word.size();
  std::string lower(word);
  std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
  return lower;
}

double LineParser::UnusualNumber(char const* what) {
  std::string_view const word = RequiredWord(what);
  std::string text(WithoutPlus(word));
  std::size_t const exponent = text.find_first_of("dD");
  if (exponent != std::string::npos) text[exponent] = 'e';

  double value = 0;
  char const* const end = text.data() + text.size();
  auto const parsed = std::from_chars(text.data(), end, value);
  if (parsed.ec == std::errc::invalid_argument || parsed.ptr != end)
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) + " is not a number");
  if (parsed.ec == std::errc::result_out_of_range)
    value = std::strtod(text.c_str(), nullptr);  // distinguishes overflow from underflow
  if (std::isnan(value) || text.find_first_of("iI") != std::string::npos)
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) + " is not finite");
  if (std::isinf(value))
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) +
                 " is too large for a double");
  mNext += word.size();
  return value;
}

double LineParser::IntegerNumber(char const* what) {
  SkipBlanks();
  std::string_view const word = RequiredWord(what);
  std::string_view const digits = WithoutPlus(word);
  if (!IsInteger(digits))
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) + " is not an integer");
  double value = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), value);
  constexpr double kExact = 9007199254740992;  // 2^53, which 2^53 + 1 rounds to
  if (!(std::abs(value) < kExact))
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) +
                 " is outside the integers that a double holds exactly");
  mNext += word.size();
  return value;
}

void LineParser::FailInteger(char const* what, long low, long high) const {
  std::string_view const word = RequiredWord(what);
  if (!IsInteger(word))
    mReader.Fail(std::string("the ") + what + " " + Quoted(word) + " is not an integer");
  mReader.Fail(std::string("the ") + what + " " + Quoted(word) + " is outside " +
               std::to_string(low) + " to " + std::to_string(high));
}

void LineParser::FailEnd(char const* after) const {
  mReader.Fail("unexpected " + Quoted(NextWord()) + " after " + after);
}

}  // namespace Pavex::Tool
