// The picture of a gather: the pattern of the gathered matrix, each entry in the colour of the
// rank that held it, next to a table of the ranks.

#pragma once

#include "tools/gather/pattern_cells.h"
#include "tools/gather/report.h"
#include "tools/picture/canvas.h"

#include <string>

namespace Pavex::Tool {

// The bytes of the file. Call it only if CanDraw().
std::string DrawPattern(GatherReport const& report, PatternCells const& cells,
                        PictureKind kind);

// Draws the pattern alone, with one pixel for each cell.
Raster Paint(PatternCells const& cells);

// The box of the cells on the canvas. Each cell fills whole pixels and is square unless the
// matrix is thin. Empty sides keep some length.
Box PatternBox(CellGrid const& grid, double x, double y);

}  // namespace Pavex::Tool
