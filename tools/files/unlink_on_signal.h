// Temporary files that go with the process when a signal ends it.

#pragma once

#include <string>

namespace Pavex::Tool {

// Removes `path` should SIGHUP, SIGINT, SIGPIPE or SIGTERM end the process. A few files at a
// time; more are ignored. Any thread.
void UnlinkOnSignal(std::string const& path);

// Takes it back.
void KeepOnSignal(std::string const& path);

}  // namespace Pavex::Tool
