// Text for pictures.

#pragma once

#include <string>

namespace Pavex::Tool {

// `text` with "?" for each byte that is not UTF-8 and for each control character.
std::string Showable(std::string const& text);

}  // namespace Pavex::Tool
