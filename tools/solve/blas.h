// The manners of the BLAS beneath UMFPACK that the command has to know. OpenBLAS starts a
// thread per core when the program is loaded, takes a buffer of 128 MiB of address space for
// each of its callers at a time, keeps it for later ones, and where it gets none it tries again
// for ever, also while the program ends. Any other BLAS does well under the same treatment.

#pragma once

#include <mutex>

namespace Pavex::Tool {

// Starts the program anew with OPENBLAS_NUM_THREADS=1, unless the user has set the variable:
// the fronts of UMFPACK are too narrow to gain from more threads, and ranks that factor side by
// side lose much by them. Before anything else; returns if there is nothing to do, or no way.
void UseOneBlasThread(char** argv);

// Claims a buffer while there is memory. Throws JobError if there is too little. Any thread.
void ReserveBlas();

// Held around whatever calls the BLAS: where the address space is limited one thread at a time,
// so that the reserved buffer serves them all.
class BlasTurn {
 public:
  BlasTurn();

 private:
  std::unique_lock<std::mutex> mLock;
};

}  // namespace Pavex::Tool
