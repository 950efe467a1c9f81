#include "tools/ranks/job.h"

#include "tools/choice/input_error.h"
#include "tools/ranks/local_ranks.h"

#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>

namespace Pavex::Tool {

namespace {

// A failed process waits so long for the others to fail too.
constexpr double kGraceSeconds = 2;

void Print(std::string const& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "pavex: %s\n", message.c_str());
  std::fflush(stderr);
}

[[noreturn]] void RefuseCopies(Launch const& launch) {
  std::string const built = OwnMpiName().empty() ? "without MPI" : "with " + OwnMpiName();
  std::string const remedy = OwnMpiName().empty() ? "a pavex built with PAVEX_MPI=ON"
                                                  : "the launcher of " + OwnMpiName();
  throw InputError(launch.mVariable + " announces a job of " + std::to_string(launch.mSize) +
                   " processes, but this process finds itself alone, as it was built " + built +
                   ": use " + remedy +
                   ", or --comm local for a job on threads of this process");
}

// The processes of an MPI job as ranks. One of them is in this process.
class MpiRanks final : public Ranks {
 public:
  explicit MpiRanks(MpiProcess const& process)
      : mWorld(process.World()),
        mKind(process.SharesMemory() ? CommKind::NODE : CommKind::MPI) {}

  CommKind Kind() const override { return mKind; }
  int Count() const override { return mWorld->Size(); }
  int FirstHere() const override { return mWorld->Rank(); }
  void Run(Body const& body) override { body(mWorld); }

 private:
  std::shared_ptr<Comm> mWorld;
  CommKind mKind;
};

}  // namespace

bool Job::WantsMpi(std::optional<CommKind> comm) const {
  if (comm) return *comm != CommKind::LOCAL;
  return mLaunch.IsJob() || AnnouncedBy(OwnMpi()).mSize > 0;
}

void Job::Start(std::optional<CommKind> comm) {
  mMpi = StartMpi(comm.value_or(CommKind::NODE) == CommKind::NODE);
  if (mLaunch.IsJob() && (mMpi == nullptr || mMpi->World()->Size() == 1)) {
    if (mMpi != nullptr) mMpi->Finish();
    mMpi.reset();
    RefuseCopies(mLaunch);
  }
  if (comm && mMpi == nullptr)
    throw InputError(std::string("--comm ") + NameOf(*comm) +
                     ": this pavex was built without MPI, which PAVEX_MPI=ON adds");
}

std::unique_ptr<Ranks> Job::MakeRanks(std::optional<CommKind> comm, std::optional<int> count) {
  mAlone = comm == CommKind::LOCAL;
  if (WantsMpi(comm)) Start(comm);
  if (mMpi == nullptr) return MakeLocalRanks(count.value_or(kDefaultRanks));

  int const processes = mMpi->World()->Size();
  if (count && *count != processes)
    throw InputError("--ranks " + std::to_string(*count) + " in an MPI job whose size is " +
                     std::to_string(processes) +
                     ": leave it out, or use --comm local for threads of one process");
  return std::make_unique<MpiRanks>(*mMpi);
}

void Job::Finish() {
  if (mMpi != nullptr) mMpi->Finish();
  mMpi.reset();
}

int Job::Fail(std::string const& message) {
  if (mMpi != nullptr) {
    bool const together = mMpi->AllArrive(kGraceSeconds);
    if (!together || mMpi->World()->Rank() == 0) Print(message);
    if (!together) mMpi->Abort();
    Finish();
  } else if (ShouldPrint()) {
    Print(message);
  } else {
    // A launcher kills the job as soon as one process ends with a failure: rank 0 has a line
    // to print first.
    std::this_thread::sleep_for(std::chrono::duration<double>(kGraceSeconds));
  }
  return 1;
}

}  // namespace Pavex::Tool
