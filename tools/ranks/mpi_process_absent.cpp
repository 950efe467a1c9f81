// The process of a build without MPI.

#include "tools/ranks/mpi_process.h"

namespace Pavex::Tool {

MpiKind OwnMpi() {
  return MpiKind::UNKNOWN;
}

std::string OwnMpiName() {
  return "";
}

std::unique_ptr<MpiProcess> StartMpi(bool /*shareMemory*/) {
  return nullptr;
}

std::unique_ptr<MemoryPool> MakePool(Comm const& /*comm*/) {
  return std::make_unique<MemoryPool>();
}

}  // namespace Pavex::Tool
