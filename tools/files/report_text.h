// The words and numbers that the text reports share.

#pragma once

#include "tools/choice/options.h"

#include <string>

namespace Pavex::Tool {

// Appends a text in printf format to `text`, at most 511 characters.
__attribute__((format(printf, 2, 3))) void Append(std::string& text, char const* format, ...);

double Megabytes(long bytes);

// Says how the matrix was cut: "cut by rows", "whole on one rank".
std::string Cut(Partition partition);

}  // namespace Pavex::Tool
