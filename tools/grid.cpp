#include "tools/grid.h"

#include <cmath>

namespace Pavex::Tool {

Grid GridOf(std::string const& generate, long unknowns) {
  std::string const kind = generate.substr(0, generate.find(':'));
  for (int const axes : {2, 3}) {
    std::string const ending = std::to_string(axes) + "d";
    bool const isGrid = kind.size() > ending.size() &&
                        kind.compare(kind.size() - ending.size(), ending.size(), ending) == 0;
    if (isGrid) return {std::lround(std::pow(static_cast<double>(unknowns), 1.0 / axes)), axes};
  }
  return {unknowns, 1};
}

}  // namespace Pavex::Tool
