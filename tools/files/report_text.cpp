#include "tools/files/report_text.h"

#include <cstdarg>
#include <cstdio>

namespace Pavex::Tool {

void Append(std::string& text, char const* format, ...) {
  char line[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(line, sizeof line, format, arguments);
  va_end(arguments);
  text += line;
}

double Megabytes(long bytes) {
  return static_cast<double>(bytes) * 1e-6;
}

std::string Cut(Partition partition) {
  if (partition == Partition::ONE) return "whole on one rank";
  if (partition == Partition::ALL) return "whole on every rank";
  return std::string("cut by ") + NameOf(partition);
}

}  // namespace Pavex::Tool
