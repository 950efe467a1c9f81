#include "tools/solve/grid.h"

#include "tools/source/generate.h"

namespace Pavex::Tool {

Grid GridOf(std::string const& generate, long unknowns) {
  if (!generate.empty()) {
    Generator const generator(generate);
    if (generator.Axes() > 0) return {generator.Side(), generator.Axes()};
  }
  return {unknowns, 1};
}

}  // namespace Pavex::Tool
