// Text for pictures.

#pragma once

#include <string>

namespace Pavex::Tool {

// `text` without the bytes that are no UTF-8 and without control characters: each becomes "?".
std::string Showable(std::string const& text);

}  // namespace Pavex::Tool
