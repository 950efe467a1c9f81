// Writes a small file whole or not at all.

#pragma once

#include <string>

namespace Pavex::Tool {

// A regular file keeps its former contents until the new ones are complete; a device or a pipe
// is written directly. Throws InputError with "path: fault".
void WriteWholeFile(std::string const& path, std::string const& text);

// Throws likewise if that would fail for another reason than a lack of space, so that nobody
// waits for a result that cannot be kept. Leaves the file as it is.
void RefuseUnwritable(std::string const& path);

}  // namespace Pavex::Tool
