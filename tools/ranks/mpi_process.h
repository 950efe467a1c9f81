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

  // Over all processes of the job.
  virtual std::shared_ptr<Comm> const& World() const = 0;

  // Whether processes of this node exchange arrays through memory that they share.
  virtual bool SharesMemory() const = 0;

  // Whether every process of the job calls this within `seconds`. It is collective if they do,
  // and does not wait longer if they do not.
  virtual bool AllArrive(double seconds) const = 0;

  // Ends the job when all processes have come to their end; collective. No operation of World
  // may follow.
  virtual void Finish() = 0;

  // Ends the whole job at once, wherever the other processes are.
  [[noreturn]] virtual void Abort() const = 0;
};

// The MPI that this build uses: its kind, and its name for messages. Without MPI the kind is
// UNKNOWN and the name is empty.
MpiKind OwnMpi();
std::string OwnMpiName();

// At most once in a process. `shareMemory`: on each node, if the system permits it. Throws
// JobError if MPI cannot be used; a null pointer in a build without MPI.
std::unique_ptr<MpiProcess> StartMpi(bool shareMemory);

// A pool whose blocks `comm` serves best.
std::unique_ptr<MemoryPool> MakePool(Comm const& comm);

}  // namespace Pavex::Tool
