// Writes a small file whole or not at all.

#pragma once

#include <string>

namespace Pavex::Tool {

// A regular file keeps its former contents until the new ones are complete; a device or a pipe
// is written directly. Throws InputError with "path: fault".
void WriteWholeFile(std::string const& path, std::string const& text);

// Throws InputError if the file cannot be written for another reason than a lack of space, so
// that the user does not wait for a result in vain. Does not change the file.
void RefuseUnwritable(std::string const& path);

}  // namespace Pavex::Tool
