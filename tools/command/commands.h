// The subcommands of `pavex`, each in a file of its own.

#pragma once

#include "tools/ranks/job.h"

#include <CLI/CLI.hpp>

namespace Pavex::Tool {

// Adds a subcommand to `app`. When it was given, parsing runs it, which sets `exitCode` or
// throws; `job` is not ended by it.
void AddGather(CLI::App& app, Job& job, int& exitCode);
void AddPlan(CLI::App& app, Job& job, int& exitCode);
void AddSolve(CLI::App& app, Job& job, int& exitCode);

}  // namespace Pavex::Tool
