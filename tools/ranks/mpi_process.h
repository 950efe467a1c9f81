// The only place where the command uses MPI.

#pragma once

#include "pavex/runtime/comm.h"
#include "pavex/runtime/memory_pool.h"
#include "tools/ranks/launch.h"

#include <memory>
#include <string>

namespace Pavex::Tool {

// This process as one of an MPI job. Initialises MPI when it is made; Finish finalises it.
class MpiProcess {
 public:
  virtual ~MpiProcess() = default;

  // The communicator of all processes of the job.
  virtual std::shared_ptr<Comm> const& World() const = 0;

  // Whether processes of this node exchange arrays through memory that they share.
  virtual bool SharesMemory() const = 0;

  // Whether every process of the job calls this within `seconds`. It is collective if they do,
  // and does not wait longer if they do not.
  virtual bool AllArrive(double seconds) const = 0;

  // Ends the job when all processes have called it. Collective. No operation of World may
  // follow.
  virtual void Finish() = 0;

  // Ends all processes of the job at once.
  [[noreturn]] virtual void Abort() const = 0;
};

// The MPI that this build uses: its kind, and its name for messages. Without MPI the kind is
// UNKNOWN and the name is empty.
MpiKind OwnMpi();
std::string OwnMpiName();

// Starts MPI; call it at most once in a process. With `shareMemory`, the processes of each node
// share memory if the system permits it. Throws JobError if MPI cannot be used. Returns a null
// pointer in a build without MPI.
std::unique_ptr<MpiProcess> StartMpi(bool shareMemory);

// A pool whose blocks `comm` serves best.
std::unique_ptr<MemoryPool> MakePool(Comm const& comm);

}  // namespace Pavex::Tool
