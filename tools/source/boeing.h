// Recognises the two older exchange formats of sparse matrices, which look like any text.

#pragma once

#include <string_view>

namespace Pavex::Tool {

// "Harwell-Boeing" or "Rutherford-Boeing", judged by the second and the third line of a file;
// null for any other file. The second line counts the lines of the parts: those of a
// Rutherford-Boeing file are 4 numbers, with right-hand sides (Harwell-Boeing) 5. The third
// line has three letters ("rua", "CSE") and 4 numbers.
char const* BoeingFormat(std::string_view second, std::string_view third);

}  // namespace Pavex::Tool
