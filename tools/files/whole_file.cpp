#include "tools/files/whole_file.h"

#include "tools/files/output_file.h"

#include <filesystem>

namespace Pavex::Tool {

void WriteWholeFile(std::string const& path, std::string const& text) {
  OutputFile file(path);
  file.Write(text);
  file.Commit();
}

void RefuseUnwritable(std::string const& path) {
  // A pipe is not tried: opening it would wait for its reader, and closing it would end the
  // reader's input.
  std::error_code ignored;
  if (!std::filesystem::is_fifo(path, ignored)) OutputFile const attempt(path);
}

}  // namespace Pavex::Tool
