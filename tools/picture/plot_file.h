// The file that --plot names.

#pragma once

#include "tools/picture/canvas.h"
#include "tools/ranks/ranks.h"

#include <string>

namespace Pavex::Tool {

// By its ending, in small or capital letters. Throws InputError for another one.
PictureKind KindOfPicture(std::string const& path);

// Throws InputError, before the work begins, if `path` is set and no picture can be drawn into
// it: by this build, of this kind, or (asked where rank 0 lives) at this place.
void CheckPlot(std::string const& path, Ranks const& ranks);

}  // namespace Pavex::Tool
