// Reads what the launcher of an MPI job writes into the environment of the processes that it
// starts. This is known before MPI is initialised, and also in a build without MPI.

#pragma once

#include <string>

namespace Pavex::Tool {

// What one launcher says about the job of this process.
struct Launch {
  std::string mVariable;  // that holds the number of processes: "OMPI_COMM_WORLD_SIZE"
  int mSize = 0;          // processes of the job; 0: no launcher
  int mRank = 0;          // of this process

  // Several processes were started to work together.
  bool IsJob() const { return mSize >= 2; }
};

// The implementations whose launchers are known. UNKNOWN: another one, or none. (MPICH is a
// macro of that one's header.)
enum class MpiKind { UNKNOWN, OPENMPI, MPICH_LIKE };

// What the launcher of `kind` announces.
Launch AnnouncedBy(MpiKind kind);

// What any launcher announces. If several do, because one job was started from inside another,
// the launcher of `own` counts.
Launch Announced(MpiKind own);

}  // namespace Pavex::Tool
