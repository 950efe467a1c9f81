// The exception for a job that ran and failed.

#pragma once

#include <stdexcept>

namespace Pavex::Tool {

// An operation of the library or the communicator failed, or its result is wrong. what() is one
// line ready for standard error.
class JobError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace Pavex::Tool
