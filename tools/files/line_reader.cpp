#include "tools/files/line_reader.h"

#include "tools/choice/input_error.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace Pavex::Tool {

namespace {

constexpr std::size_t kBufferBytes = 1 << 20;  // and the longest line

}  // namespace

LineReader::LineReader(std::string path)
    : mPath(std::move(path)), mFile(open(mPath.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (mFile < 0) FailRead(errno);
  struct stat status {};
  if (fstat(mFile, &status) == 0 && S_ISREG(status.st_mode)) mFileBytes = status.st_size;
  mBuffer.resize(kBufferBytes);
}

LineReader::~LineReader() {
  if (mFile >= 0) close(mFile);
}

bool LineReader::Next(std::string_view& line) {
  char const* end = nullptr;
  std::size_t searched = 0;
  for (;;) {
    char const* const begin = mBuffer.data() + mBegin;
    end =
        static_cast<char const*>(std::memchr(begin + searched, '\n', mEnd - mBegin - searched));
    if (end != nullptr) break;
    searched = mEnd - mBegin;
    if (!Refill()) break;
  }
  if (end == nullptr && mBegin == mEnd) return false;

  char const* const begin = mBuffer.data() + mBegin;
  std::size_t length = end != nullptr ? static_cast<std::size_t>(end - begin) : mEnd - mBegin;
  std::size_t const taken = length + (end != nullptr ? 1 : 0);
  mBegin += taken;
  mBytesRead += static_cast<long>(taken);
  ++mLine;
  if (length > 0 && begin[length - 1] == '\r') --length;
  line = std::string_view(begin, length);
  return true;
}

bool LineReader::NextFilled(std::string_view& line) {
  while (Next(line)) {
    if (line.find_first_not_of(" \t") != std::string_view::npos) return true;
  }
  return false;
}

bool LineReader::Refill() {
  std::size_t const rest = mEnd - mBegin;
  std::memmove(mBuffer.data(), mBuffer.data() + mBegin, rest);
  mBegin = 0;
  mEnd = rest;
  if (mEnd == mBuffer.size()) {
    ++mLine;
    Fail("the line is longer than " + std::to_string(kBufferBytes) + " bytes");
  }
  ssize_t got = 0;
  do {
    got = read(mFile, mBuffer.data() + mEnd, mBuffer.size() - mEnd);
  } while (got < 0 && errno == EINTR);
  if (got < 0) FailRead(errno);
  mEnd += static_cast<std::size_t>(got);
  return got > 0;
}

void LineReader::Fail(std::string const& fault) const {
  FailAt(mLine, fault);
}

void LineReader::FailAt(long line, std::string const& fault) const {
  std::string const place = line > 0 ? mPath + ":" + std::to_string(line) : mPath;
  throw InputError(place + ": " + fault);
}

void LineReader::FailRead(int error) const {
  throw InputError(mPath + ": cannot be read: " + std::strerror(error));
}

}  // namespace Pavex::Tool
