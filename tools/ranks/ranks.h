// Runs a function on every rank of a job, over processes or threads.

#pragma once

#include "pavex/runtime/comm.h"
#include "tools/choice/options.h"

#include <functional>
#include <memory>

namespace Pavex::Tool {

class Ranks {
 public:
  using Body = std::function<void(std::shared_ptr<Comm> const& comm)>;

  virtual ~Ranks() = default;

  virtual CommKind Kind() const = 0;
  virtual int Count() const = 0;

  // The lowest rank that lives in this process.
  virtual int FirstHere() const = 0;

  // Runs `body` on the ranks that live in this process and returns when they have ended. If
  // some throw, the exception thrown first reaches the caller: the others follow from it.
  virtual void Run(Body const& body) = 0;
};

}  // namespace Pavex::Tool
