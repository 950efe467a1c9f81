#include "tools/files/progress_terminal.h"

#include "tools/ranks/launch.h"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace Pavex::Tool {

namespace {

constexpr int kMostAncestors = 8;  // wrapper scripts and daemons between launcher and process

struct Process {
  std::string mName;
  int mParent = 0;
};

// Reads the line "PID (NAME) STATE PARENT ..." of a process. The name may contain any
// characters.
Process Look(int id) {
  std::ifstream file("/proc/" + std::to_string(id) + "/stat");
  std::string line;
  std::getline(file, line);
  std::size_t const begin = line.find('(');
  std::size_t const end = line.rfind(") ");
  if (begin == std::string::npos || end == std::string::npos) return {};
  std::size_t const parent = line.find(' ', end + 2);
  return {line.substr(begin + 1, end - begin - 1), std::atoi(line.c_str() + parent)};
}

bool IsLauncher(std::string const& name) {
  for (char const* beginning : {"mpirun", "mpiexec", "orterun", "prterun"})
    if (name.rfind(beginning, 0) == 0) return true;
  return false;
}

// The process that launched this one as a part of an MPI job; 0 if it is not on this machine.
int FindLauncher() {
  int id = getppid();
  for (int k = 0; k < kMostAncestors && id > 0; ++k) {
    Process const process = Look(id);
    if (IsLauncher(process.mName)) return id;
    id = process.mParent;
  }
  return 0;
}

int OpenTerminal(std::string const& path) {
  int const file = open(path.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
  if (file < 0 || isatty(file) == 1) return file;
  close(file);
  return -1;
}

bool StandardErrorIsPipe() {
  struct stat status {};
  return fstat(STDERR_FILENO, &status) == 0 && S_ISFIFO(status.st_mode);
}

}  // namespace

int OpenProgressTerminal() {
  Launch const launch = Announced(MpiKind::UNKNOWN);
  if (launch.mRank != 0) return -1;
  if (isatty(STDERR_FILENO) == 1) return fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  if (launch.mSize == 0 || !StandardErrorIsPipe()) return -1;
  int const launcher = FindLauncher();
  if (launcher == 0) return -1;
  return OpenTerminal("/proc/" + std::to_string(launcher) + "/fd/2");
}

}  // namespace Pavex::Tool
