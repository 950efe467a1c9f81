// Handles the BLAS that UMFPACK uses. OpenBLAS starts a thread per core when the program is
// loaded. It takes a buffer of 128 MiB of address space for each caller at a time and keeps it
// for later callers. If it gets no buffer, it tries again for ever, also while the program
// ends. Any other BLAS works well with the same measures.

#pragma once

#include <mutex>

namespace Pavex::Tool {

// Starts the program again with OPENBLAS_NUM_THREADS=1, unless the user has set the variable.
// The fronts of UMFPACK are too narrow to gain from more threads, and ranks that factor at the
// same time lose much by them. Call it before anything else. It returns if nothing is to do or
// if it fails.
void UseOneBlasThread(char** argv);

// Takes a buffer while there is memory. Throws JobError if there is too little. Any thread.
void ReserveBlas();

// Hold it around every call of the BLAS. If the address space is limited, it admits one thread
// at a time, so that the reserved buffer suffices for all.
class BlasTurn {
 public:
  BlasTurn();

 private:
  std::unique_lock<std::mutex> mLock;
};

}  // namespace Pavex::Tool
