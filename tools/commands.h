// The subcommands of `pavex`, each in a file of its own.

#pragma once

#include <CLI/CLI.hpp>

namespace Pavex::Tool {

// Adds a subcommand to `app`. When it was given, parsing runs it, which sets `exitCode` or
// throws.
void AddGather(CLI::App& app, int& exitCode);
void AddSolve(CLI::App& app, int& exitCode);

}  // namespace Pavex::Tool
