// Reads a text file line by line through a small buffer, so that a file of any size costs 1 MiB
// and pipes work as well.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Pavex::Tool {

// Not shared between threads. Throws InputError if the system refuses something.
class LineReader {
 public:
  explicit LineReader(std::string path);
  LineReader(LineReader const&) = delete;
  LineReader& operator=(LineReader const&) = delete;
  ~LineReader();

  // Sets `line` to the next line without its end (LF or CR LF), valid until the next call;
  // false at the end of the file.
  bool Next(std::string_view& line);

  // Sets `line` to the next line that has more than blanks and tabs; otherwise like Next.
  bool NextFilled(std::string_view& line);

  // Throws InputError "path:line: fault" for the line that was read last, "path: fault" before
  // the first.
  [[noreturn]] void Fail(std::string const& fault) const;
  // Throws InputError "path:line: fault" for an earlier line.
  [[noreturn]] void FailAt(long line, std::string const& fault) const;

  // Whether the size of the file is known in advance. It is unknown for a pipe.
  bool KnowsSize() const { return mFileBytes >= 0; }
  long FileBytes() const { return mFileBytes; }
  // The bytes after the line that was read last; only if the size is known.
  long BytesLeft() const { return mFileBytes - mBytesRead; }

 private:
  // Moves the unread rest to the front and reads more after it. False if nothing came.
  bool Refill();
  [[noreturn]] void FailRead(int error) const;

  std::string mPath;
  int mFile;
  long mFileBytes = -1;
  long mBytesRead = 0;  // up to the end of the last line
  long mLine = 0;       // 1-based number of the last line
  std::vector<char> mBuffer;
  std::size_t mBegin = 0;  // the unread part of mBuffer
  std::size_t mEnd = 0;
};

}  // namespace Pavex::Tool
