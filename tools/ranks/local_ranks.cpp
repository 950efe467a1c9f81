#include "tools/ranks/local_ranks.h"

#include "pavex/comm/local_comm.h"
#include "tools/choice/input_error.h"

#include <exception>
#include <mutex>
#include <string>
#include <system_error>

namespace Pavex::Tool {

namespace {

class LocalRanks final : public Ranks {
 public:
  explicit LocalRanks(int count) : mCount(count) {}

  CommKind Kind() const override { return CommKind::LOCAL; }
  int Count() const override { return mCount; }
  int FirstHere() const override { return 0; }

  void Run(Body const& body) override {
    std::mutex mutex;
    std::exception_ptr first;
    auto const keepFirst = [&](std::shared_ptr<Comm> const& comm) {
      try {
        body(comm);
      } catch (...) {
        std::lock_guard const lock(mutex);
        if (first == nullptr) first = std::current_exception();
      }
    };
    try {
      LocalComm::Run(mCount, keepFirst);
    } catch (std::system_error const&) {
      throw InputError("the system cannot start " + std::to_string(mCount) +
                       " threads: use fewer --ranks");
    }
    if (first != nullptr) std::rethrow_exception(first);
  }

 private:
  int mCount;
};

}  // namespace

std::unique_ptr<Ranks> MakeLocalRanks(int count) {
  return std::make_unique<LocalRanks>(count);
}

}  // namespace Pavex::Tool
