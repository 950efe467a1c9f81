// Runs the real command, for tests.

#pragma once

#include <string>
#include <vector>

namespace Pavex::Tool {

struct CommandResult {
  int exitCode = -1;  // -1 if a signal ended it
  std::string output;
  std::string errors;
};

// Runs `pavex` with these arguments; its standard output and error are files.
CommandResult RunPavex(std::vector<std::string> const& arguments);

// Runs `pavex` with this much address space. Ends it after a minute, with exit code 124.
CommandResult RunPavexWithin(long megabytes, std::vector<std::string> const& arguments);

}  // namespace Pavex::Tool
