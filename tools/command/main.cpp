// The `pavex` command: finds the subcommand and turns every failure into one line on standard
// error and exit code 1.

#include "pavex/runtime/version.h"
#include "tools/choice/input_error.h"
#include "tools/command/commands.h"
#include "tools/picture/canvas.h"
#include "tools/ranks/job.h"
#include "tools/solve/sparse_lu.h"
#ifdef PAVEX_UMFPACK
#include "tools/solve/blas.h"
#endif

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace Pavex::Tool {

namespace {

// `message` as one line, although a file name or an argument may contain line ends.
std::string OneLine(std::string message) {
  std::replace_if(
      message.begin(), message.end(), [](unsigned char c) { return std::iscntrl(c) != 0; },
      '?');
  return message;
}

// A text for the fault that CLI11 found; it names the option and the fault.
std::string InOwnWords(CLI::App const& app, CLI::ParseError const& error) {
  std::vector<std::string> const unexpected = app.remaining(true);
  if (!unexpected.empty() && unexpected[0][0] == '-')
    return "unknown option \"" + unexpected[0] + "\"";
  if (!unexpected.empty()) return "\"" + unexpected[0] + "\" is one input too many";
  std::string text = error.what();
  std::string const option = text.substr(0, text.find(':'));
  if (dynamic_cast<CLI::ArgumentMismatch const*>(&error) != nullptr)
    return option +
           (text.find("At Most") == std::string::npos ? " needs a value" : " is given twice");
  return text;
}

void Run(Job& job, int argc, char** argv) {
  CLI::App app("Gathers distributed matrices, solves with them, and checks the results.",
               "pavex");
  app.set_version_flag("--version", std::string("pavex ") + PavexVersion() + "\n" +
                                        SolversAndLicence() +
                                        (CanDraw() ? "\ndraws with Cairo" : "\ncannot draw"));
  app.require_subcommand(1);
  app.footer(
      "\nWhile pavex reads or builds for long, it draws a progress bar if standard error is a\n"
      "terminal; under mpirun, process 0 draws it.\n"
      "\nStart with: pavex gather --generate poisson3d:20");
  std::unique_ptr<Subcommand> const subcommands[] = {AddGather(app), AddPlan(app),
                                                     AddSolve(app)};

  std::string const first = argc > 1 ? argv[1] : "";
  auto const isFirst = [&first](CLI::App* command) { return command->check_name(first); };
  bool const known = !app.get_subcommands(isFirst).empty();
  if (argc < 2) throw InputError("name a subcommand; see pavex --help");
  if (!known && first[0] != '-')
    throw InputError("unknown subcommand \"" + first + "\"; see pavex --help");
  try {
    app.parse(argc, argv);
  } catch (CLI::Success const& help) {
    if (job.ShouldPrint()) app.exit(help);
    return;
  } catch (CLI::ParseError const& error) {
    throw InputError(InOwnWords(app, error) + "; see pavex " + (known ? first + " " : "") +
                     "--help");
  }
  for (auto const& subcommand : subcommands)
    if (subcommand->IsGiven()) subcommand->Run(*subcommand->Parse(job));
}

}  // namespace

}  // namespace Pavex::Tool

int main(int argc, char** argv) {
#ifdef PAVEX_UMFPACK
  Pavex::Tool::UseOneBlasThread(argv);
#endif
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit reports its own fault
  Pavex::Tool::Job job;
  try {
    Pavex::Tool::Run(job, argc, argv);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0 || !std::cout)
      return job.Fail("cannot write to standard output");
    job.Finish();
    return 0;
  } catch (std::bad_alloc const&) {
    return job.Fail("not enough memory");
  } catch (std::exception const& error) {
    return job.Fail(Pavex::Tool::OneLine(error.what()));
  }
}
