#include "tools/ranks/launch.h"

#include <cstdlib>

namespace Pavex::Tool {

namespace {

int NumberIn(char const* variable) {
  char const* const text = std::getenv(variable);
  return text != nullptr ? std::atoi(text) : 0;
}

Launch Read(char const* sizeVariable, char const* rankVariable) {
  return {sizeVariable, NumberIn(sizeVariable), NumberIn(rankVariable)};
}

}  // namespace

Launch AnnouncedBy(MpiKind kind) {
  if (kind == MpiKind::OPENMPI) return Read("OMPI_COMM_WORLD_SIZE", "OMPI_COMM_WORLD_RANK");
  if (kind == MpiKind::MPICH_LIKE) return Read("PMI_SIZE", "PMI_RANK");
  return {};
}

Launch Announced(MpiKind own) {
  Launch announced;
  for (MpiKind const kind : {own, MpiKind::OPENMPI, MpiKind::MPICH_LIKE}) {
    Launch launch = AnnouncedBy(kind);
    if (launch.mSize > 1) return launch;
    if (announced.mSize < 1) announced = launch;  // unless another announces several processes
  }
  return announced;
}

}  // namespace Pavex::Tool
