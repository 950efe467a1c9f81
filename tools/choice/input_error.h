// The only exception type of the command's input and output.

#pragma once

#include <stdexcept>

namespace Pavex::Tool {

// A fault that the user can repair: a bad file, a bad argument, a full disk. what() is one
// line ready for standard error, without "error:" in front and without a line end.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Pavex::Tool
