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

// One in a process, made before anything else and used by the thread that made it. Whatever
// happens, either Finish or Fail ends it.
class Job {
 public:
  // Reads what the launcher announces; does not touch MPI.
  Job() : mLaunch(Announced(OwnMpi())) {}

  // The ranks of the job. Without `comm` they are the processes of an MPI job where a launcher
  // of this build's MPI started this process, else `count` threads (4 if unset). Under MPI
  // `count`, where set, has to be the number of processes. Initialises MPI if it is used.
  // Throws InputError, also where a launcher announces a job that MPI does not find: this
  // process would be one of several that each do the whole work.
  std::unique_ptr<Ranks> MakeRanks(std::optional<CommKind> comm, std::optional<int> count);

  // Whether this process prints what every process of the job has to say. For the time before
  // the ranks are made.
  bool Speaks() const { return mAlone || !mLaunch.IsJob() || mLaunch.mRank == 0; }

  // Ends the job as a success: collective, and the last thing that its processes do together.
  void Finish();

  // Ends the job with `message` as one line on standard error. If all processes fail, one of
  // them prints its line; if only some do, they print theirs and take the others down with
  // them. Returns the exit code of this process, if it comes to that.
  int Fail(std::string const& message);

 private:
  bool WantsMpi(std::optional<CommKind> comm) const;
  void Start(std::optional<CommKind> comm);

  Launch mLaunch;
  bool mAlone = false;  // the user said that this process is a job of its own
  std::unique_ptr<MpiProcess> mMpi;
};

}  // namespace Pavex::Tool
