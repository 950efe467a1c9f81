// Removes temporary files if a signal ends the process.

#pragma once

#include <string>

namespace Pavex::Tool {

// Removes `path` if SIGHUP, SIGINT, SIGPIPE or SIGTERM ends the process. It handles a few files
// at a time and ignores more. Any thread.
void UnlinkOnSignal(std::string const& path);

// Undoes UnlinkOnSignal of `path`.
void KeepOnSignal(std::string const& path);

}  // namespace Pavex::Tool
