// The processes that run this command together: those of an MPI job, or this one alone.

#pragma once

#include "tools/choice/options.h"
#include "tools/ranks/launch.h"
#include "tools/ranks/mpi_process.h"
#include "tools/ranks/ranks.h"

#include <memory>
#include <optional>
#include <string>

namespace Pavex::Tool {

// The job of this process. Make one before anything else, and use it on the thread that made
// it. End it by Finish or Fail in every case.
class Job {
 public:
  // Reads what the launcher announces. Does not use MPI.
  Job() : mLaunch(Announced(OwnMpi())) {}

  // The ranks of the job. If `comm` is unset and a launcher of this build's MPI started this
  // process, they are the processes of the MPI job, which share memory where they can.
  // Otherwise they are `count` threads (4 if unset). With MPI, `count` must be the number of
  // processes if it is set. Initialises MPI if it is used. Throws InputError, also if a
  // launcher announces a job that MPI does not find: this process would be one of several that
  // each do the whole work.
  std::unique_ptr<Ranks> MakeRanks(std::optional<CommKind> comm, std::optional<int> count);

  // Whether this process prints messages that all processes of the job have. Use it before the
  // ranks are made.
  bool ShouldPrint() const { return mAlone || !mLaunch.IsJob() || mLaunch.mRank == 0; }

  // Ends the job as a success. Collective, and the last common step of its processes.
  void Finish();

  // Ends the job with `message` as one line on standard error. If all processes fail, one of
  // them prints its line. If only some fail, they print their lines and end the others. Returns
  // the exit code of this process, if it returns.
  int Fail(std::string const& message);

 private:
  bool WantsMpi(std::optional<CommKind> comm) const;
  void Start(std::optional<CommKind> comm);

  Launch mLaunch;
  bool mAlone = false;  // the user said that this process is a job of its own
  std::unique_ptr<MpiProcess> mMpi;
};

}  // namespace Pavex::Tool
