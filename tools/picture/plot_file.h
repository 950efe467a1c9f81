// The file that --plot names.

#pragma once

#include "tools/picture/canvas.h"
#include "tools/ranks/ranks.h"

#include <string>

namespace Pavex::Tool {

// The kind of picture that the ending of `path` names, in small or capital letters. Throws
// InputError for an unknown ending.
PictureKind KindOfPicture(std::string const& path);

// Throws InputError, before the work begins, if `path` is set and this build cannot draw
// pictures, cannot draw this kind of file, or (in the process of rank 0) cannot write the file
// there.
void CheckPlot(std::string const& path, Ranks const& ranks);

}  // namespace Pavex::Tool
