// Reads a PNG file back, for tests.

#pragma once

#include "tools/picture/canvas.h"

#include <string>

namespace Pavex::Tool {

// The pixels of the file with these bytes. Throws std::runtime_error.
Raster ReadPng(std::string const& bytes);

}  // namespace Pavex::Tool
