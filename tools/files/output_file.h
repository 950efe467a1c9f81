// Writes files whole or not at all.

#pragma once

#include "tools/choice/input_error.h"

#include <string>
#include <string_view>

namespace Pavex::Tool {

// Writes into a temporary file next to the target. Commit gives it its name. Without Commit, or
// if a signal ends the process, no temporary file stays and an older target is unchanged. The
// new file has the permissions of the older one, and a symbolic link still points to it. A
// target that is not a regular file, such as a pipe or /dev/stdout, is written directly. Every
// member throws InputError with "path: cannot be written: fault". Not shared between threads.
class OutputFile {
 public:
  explicit OutputFile(std::string path);
  OutputFile(OutputFile const&) = delete;
  OutputFile& operator=(OutputFile const&) = delete;
  ~OutputFile();

  void Write(std::string_view text);

  // Checks that everything reached the disk and renames the file to the target.
  void Commit();

  [[noreturn]] void Fail(std::string const& fault) const;

 private:
  void OpenTemporary();
  [[noreturn]] void FailSystem() const;  // with the text of errno

  std::string mPath;
  std::string mTarget;     // the file to which mPath leads through symbolic links
  std::string mTemporary;  // empty once it has its name, and where mPath is written directly
  int mFile = -1;
};

}  // namespace Pavex::Tool
