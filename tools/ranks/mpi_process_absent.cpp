// The build without MPI.

#include "tools/ranks/mpi_process.h"

namespace Pavex::Tool {

MpiKind OwnMpi() {
  return MpiKind::UNKNOWN;
}

std::string OwnMpiName() {
  return "";
}

std::unique_ptr<MpiProcess> StartMpi() {
  return nullptr;
}

}  // namespace Pavex::Tool
