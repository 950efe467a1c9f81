// Splits one line of a Matrix Market file into words, integers and numbers.

#pragma once

#include "tools/files/line_reader.h"

#include <charconv>
#include <cmath>
#include <string>
#include <string_view>

namespace Pavex::Tool {

// Reads the line that `reader` returned last from its beginning to its end. Every fault goes to
// reader.Fail. `what` names the item in the message ("row", "value"). The header contains the
// code for a good line, and the source file the rest.
class LineParser {
 public:
  LineParser(LineReader const& reader, std::string_view line)
      : mReader(reader), mNext(line.data()), mEnd(line.data() + line.size()) {}

  // The next word in lower case; fails when there is none.
  std::string Word(char const* what);

  // An integer between `low` and `high`: digits only. A minus sign is out of range.
  long Integer(char const* what, long low, long high) {
    SkipBlanks();
    long value = 0;
    auto const [end, error] = std::from_chars(mNext, mEnd, value);
    if (error != std::errc() || !IsWordEnd(end) || value < low || value > high)
      FailInteger(what, low, high);
    mNext = end;
    return value;
  }

  // A finite number, rounded to double.
  double Number(char const* what) {
    SkipBlanks();
    double value = 0;
    auto const [end, error] = std::from_chars(mNext, mEnd, value);
    if (error != std::errc() || !IsWordEnd(end) || !std::isfinite(value))
      return UnusualNumber(what);
    mNext = end;
    return value;
  }

  // An integer that a double holds exactly.
  double IntegerNumber(char const* what);

  // Fails unless only blanks are left. `after` names what came before.
  void End(char const* after) {
    SkipBlanks();
    if (mNext != mEnd) FailEnd(after);
  }

 private:
  static bool IsBlank(char c) { return c == ' ' || c == '\t'; }
  bool IsWordEnd(char const* at) const { return at == mEnd || IsBlank(*at); }
  void SkipBlanks() {
    while (mNext != mEnd && IsBlank(*mNext))
      ++mNext;
  }
  std::string_view NextWord() const;
  std::string_view RequiredWord(char const* what) const;

  // Reads a number with a leading plus or a D exponent, or one that underflows. Fails for
  // others.
  double UnusualNumber(char const* what);
  [[noreturn]] void FailInteger(char const* what, long low, long high) const;
  [[noreturn]] void FailEnd(char const* after) const;

  LineReader const& mReader;
  char const* mNext;
  char const* mEnd;
};

// `word` in quotes, cut if it is long, with a question mark for each unprintable byte. So every
// message is one readable line.
std::string Quoted(std::string_view word);

}  // namespace Pavex::Tool
