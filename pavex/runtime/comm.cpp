#include "pavex/runtime/comm.h"

namespace Pavex {

std::int32_t const Comm::IN_PLACE_OBJ = 0;

Comm::~Comm() = default;

PavexStatus Comm::Barrier() const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus Comm::Alltoallv(void const* /*sendbuf*/, int const* /*sendcounts*/,
                            int const* /*sdispls*/, Datatype /*sendtype*/, void* /*recvbuf*/,
                            int const* /*recvcounts*/, int const* /*rdispls*/,
                            Datatype /*recvtype*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus Comm::Allreduce(void const* /*sendbuf*/, void* /*recvbuf*/, int /*count*/,
                            Datatype /*type*/, ReduceOp /*op*/) const {
  return STATUS_NOT_SUPPORTED;
}

bool Comm::Strided() const {
  return false;
}

PavexStatus Comm::GatherRuns(void const* /*sendbuf*/, Runs const& /*sent*/, void* /*recvbuf*/,
                             Runs const* /*received*/, Datatype /*type*/, int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus Comm::ScatterRuns(void const* /*sendbuf*/, Runs const* /*sent*/, void* /*recvbuf*/,
                              Runs const& /*received*/, Datatype /*type*/, int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

}  // namespace Pavex
