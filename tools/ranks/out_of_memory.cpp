#include "tools/ranks/out_of_memory.h"

#include "tools/ranks/collect.h"

#include <cstdio>

namespace Pavex::Tool {

std::string AmountOf(std::size_t bytes) {
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  constexpr char kUnits[] = "kMGTPE";
  auto amount = static_cast<double>(bytes) / 1000;
  char const* unit = kUnits;
  for (; amount >= 1000 && unit[1] != '\0'; ++unit)
    amount /= 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %cB", amount, *unit);
  return text;
}

void RequireWithin(MemoryPool const& pool, PavexStatus status, std::string const& what,
                   Comm const& comm) {
  if (status == STATUS_OUT_OF_MEMORY && pool.LastRefused() > 0)
    throw JobError("rank " + std::to_string(comm.Rank()) + ": out of memory, " +
                   AmountOf(pool.LastRefused()) + " asked for with " +
                   AmountOf(pool.InUseWhenRefused()) + " in use");
  Require(status, what, comm);
}

}  // namespace Pavex::Tool
