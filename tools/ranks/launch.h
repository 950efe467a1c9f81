// Reads what the launcher of an MPI job writes into the environment of the processes that it
// starts. This is known before MPI is initialised, and also in a build without MPI.

#pragma once

#include <string>

namespace Pavex::Tool {

// What one launcher says about the job of this process.
struct Launch {
  std::string mVariable;  // contains the number of processes, as "OMPI_COMM_WORLD_SIZE" does
  int mSize = 0;          // processes of the job; 0: no launcher
  int mRank = 0;          // of this process

  // Whether several processes were started to work together.
  bool IsJob() const { return mSize >= 2; }
};

// The implementations whose launchers are known. UNKNOWN: another one, or none. The name
// MPICH_LIKE avoids the macro MPICH of a header.
enum class MpiKind { UNKNOWN, OPENMPI, MPICH_LIKE };

// What the launcher of `kind` announces.
Launch AnnouncedBy(MpiKind kind);

// What any launcher announces. Several do if one job was started from inside another; then the
// result is that of `own`.
Launch Announced(MpiKind own);

}  // namespace Pavex::Tool
