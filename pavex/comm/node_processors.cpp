#include "pavex/comm/node_processors.h"

#include <cstring>

namespace Pavex {

NodeProcessors NodeProcessors::OfThread() {
  NodeProcessors own;
  if (sched_getaffinity(0, sizeof own.mSet, &own.mSet) != 0)
    std::memset(&own.mSet, 0xFF, sizeof own.mSet);
  return own;
}

}  // namespace Pavex
