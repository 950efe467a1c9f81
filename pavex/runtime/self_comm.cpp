#include "pavex/runtime/self_comm.h"

namespace Pavex {

SelfComm::~SelfComm() = default;

int SelfComm::Rank() const {
  return 0;
}

int SelfComm::Size() const {
  return 1;
}

PavexStatus SelfComm::Send(void const* /*buf*/, int /*count*/, Datatype /*type*/, int /*dest*/,
                           int /*tag*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Recv(void* /*buf*/, int /*count*/, Datatype /*type*/, int /*source*/,
                           int /*tag*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Gatherv(void const* /*sendbuf*/, int /*sendcount*/, Datatype /*sendtype*/,
                              void* /*recvbuf*/, int const* /*recvcounts*/,
                              int const* /*displs*/, Datatype /*recvtype*/,
                              int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Scatterv(void const* /*sendbuf*/, int const* /*sendcounts*/,
                               int const* /*displs*/, Datatype /*sendtype*/, void* /*recvbuf*/,
                               int /*recvcount*/, Datatype /*recvtype*/, int /*root*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Allgather(void const* /*sendbuf*/, int /*sendcount*/,
                                Datatype /*sendtype*/, void* /*recvbuf*/, int /*recvcount*/,
                                Datatype /*recvtype*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Allgatherv(void const* /*sendbuf*/, int /*sendcount*/,
                                 Datatype /*sendtype*/, void* /*recvbuf*/,
                                 int const* /*recvcounts*/, int const* /*displs*/,
                                 Datatype /*recvtype*/) const {
  return STATUS_NOT_SUPPORTED;
}

PavexStatus SelfComm::Bcast(void* /*buf*/, int /*count*/, Datatype /*type*/,
                            int /*root*/) const {
  return STATUS_OK;
}

}  // namespace Pavex
