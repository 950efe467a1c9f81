// The `pavex` command: finds the subcommand and turns every failure into one line on standard
// error and an exit code: 1 for a job that failed, 2 for a command line that makes no sense.

#include "tools/commands.h"

#include <cstdio>
#include <exception>
#include <new>
#include <string>

namespace {

int Fail(std::string const& message, int exitCode) {
  std::fflush(stdout);
  std::fprintf(stderr, "pavex: %s\n", message.c_str());
  return exitCode;
}

int Run(int argc, char** argv) {
  CLI::App app("Gather distributed matrices, and see that it was done right.", "pavex");
  app.set_version_flag("--version", "pavex " PAVEX_VERSION);
  app.require_subcommand(1);
  app.footer("\nStart with: pavex gather --generate poisson3d:20");
  int exitCode = 0;
  Pavex::Tool::AddGather(app, exitCode);
  try {
    app.parse(argc, argv);
  } catch (CLI::Success const& help) {
    return app.exit(help);
  } catch (CLI::ParseError const& error) {
    return Fail(std::string(error.what()) + "; see pavex --help", 2);
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    int const exitCode = Run(argc, argv);
    if (std::fflush(stdout) != 0) return Fail("cannot write to standard output", 1);
    return exitCode;
  } catch (std::bad_alloc const&) {
    return Fail("not enough memory", 1);
  } catch (std::exception const& error) {
    return Fail(error.what(), 1);
  }
}
