// What a test binary over MPI was told about its job.

#pragma once

#include <cstdlib>
#include <string>

namespace Pavex {

// The number after `--np` on the command line: the processes that this job was meant to have.
// 0 if it is not there, which matches no job.
inline int ExpectedProcesses(int argc, char** argv) {
  for (int i = 1; i + 1 < argc; ++i)
    if (std::string(argv[i]) == "--np") return std::atoi(argv[i + 1]);
  return 0;
}

}  // namespace Pavex
