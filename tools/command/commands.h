// The subcommands of `pavex`, each in a file of its own.

#pragma once

#include "tools/command/common_options.h"
#include "tools/ranks/job.h"

#include <CLI/CLI.hpp>
#include <memory>

namespace Pavex::Tool {

// A subcommand: Parse reads its words, then Run runs its job. `app` must outlive it.
class Subcommand {
 public:
  virtual ~Subcommand() = default;
  Subcommand(Subcommand const&) = delete;
  Subcommand& operator=(Subcommand const&) = delete;

  // Whether the words that `app` has parsed name this subcommand.
  bool IsGiven() const { return mApp->parsed(); }

  // Turns the parsed words into options that fit each other, and makes the ranks that they
  // choose. Throws InputError.
  std::unique_ptr<Ranks> Parse(Job& job) {
    ParseOptions(mWords, mOptions);
    auto ranks = MakeRanks(job, *mApp, mOptions);
    Check();
    return ranks;
  }

  // The options that all subcommands have. Call it after Parse.
  GatherOptions const& Options() const { return mOptions; }

  // Runs the job that the options describe. Throws InputError and JobError.
  virtual void Run(Ranks& ranks) const = 0;

 protected:
  Subcommand(CLI::App& app, char const* name, char const* description)
      : mApp(app.add_subcommand(name, description)) {}

  // Throws InputError for options that do not fit each other.
  virtual void Check() const = 0;

  CLI::App* mApp;
  CommonWords mWords;
  GatherOptions mOptions;
};

// Each function adds a subcommand to `app`.
std::unique_ptr<Subcommand> AddGather(CLI::App& app);
std::unique_ptr<Subcommand> AddPlan(CLI::App& app);
std::unique_ptr<Subcommand> AddSolve(CLI::App& app);

}  // namespace Pavex::Tool
