// Reads what the command line says about the MPI job of a test binary.

#pragma once

#include <cstdlib>
#include <string>

namespace Pavex {

// The number after `--np` on the command line: the processes that the job must have. 0 if
// `--np` is missing; no job has 0 processes.
inline int ExpectedProcesses(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i)
    if (std::string(argv[i]) == "--np") return std::atoi(argv[i + 1]);
  return 0;
}

}  // namespace Pavex
