// The `pavex` command: finds the subcommand and turns every failure into one line on standard
// error and exit code 1.

#include "tools/commands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

namespace {

// One line, whatever a file name or an argument holds.
int Fail(std::string message) {
  std::replace_if(
      message.begin(), message.end(), [](unsigned char c) { return std::iscntrl(c) != 0; },
      '?');
  std::fflush(stdout);
  std::fprintf(stderr, "pavex: %s\n", message.c_str());
  return 1;
}

int Run(int argc, char** argv) {
  CLI::App app("Gather distributed matrices, and see that it was done right.", "pavex");
  app.set_version_flag("--version", "pavex " PAVEX_VERSION);
  app.require_subcommand(1);
  app.footer("\nStart with: pavex gather --generate poisson3d:20");
  int exitCode = 0;
  Pavex::Tool::AddGather(app, exitCode);
  Pavex::Tool::AddSolve(app, exitCode);

  std::string const first = argc > 1 ? argv[1] : "";
  auto const isFirst = [&first](CLI::App* command) { return command->check_name(first); };
  bool const known = !app.get_subcommands(isFirst).empty();
  if (argc < 2) return Fail("name a subcommand; see pavex --help");
  if (!known && first[0] != '-')
    return Fail("unknown subcommand \"" + first + "\"; see pavex --help");
  try {
    app.parse(argc, argv);
  } catch (CLI::Success const& help) {
    return app.exit(help);
  } catch (CLI::ParseError const& error) {
    return Fail(std::string(error.what()) + "; see pavex " + (known ? first + " " : "") +
                "--help");
  }
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    int const exitCode = Run(argc, argv);
    if (std::fflush(stdout) != 0) return Fail("cannot write to standard output");
    return exitCode;
  } catch (std::bad_alloc const&) {
    return Fail("not enough memory");
  } catch (std::exception const& error) {
    return Fail(error.what());
  }
}
