#include "tools/picture/plot_file.h"

#include "tools/choice/input_error.h"
#include "tools/files/whole_file.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace Pavex::Tool {

PictureKind KindOfPicture(std::string const& path) {
  std::string ending = std::filesystem::path(path).extension().string();
  std::transform(ending.begin(), ending.end(), ending.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  if (ending == ".svg") return PictureKind::SVG;
  if (ending == ".png") return PictureKind::PNG;
  if (ending == ".pdf") return PictureKind::PDF;
  throw InputError("--plot " + path + ": the name has to end in .svg, .png or .pdf");
}

void CheckPlot(std::string const& path, Ranks const& ranks) {
  if (path.empty()) return;
  if (!CanDraw())
    throw InputError("--plot: this pavex was built without Cairo, which PAVEX_CAIRO=ON adds");
  KindOfPicture(path);
  if (ranks.FirstHere() == 0) RefuseUnwritable(path);
}

}  // namespace Pavex::Tool
