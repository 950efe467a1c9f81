// Measures the same work done by PETSc, hypre and Pavex on the processes of one machine, and
// checks what comes out. Prints rows of a Markdown table; run.sh makes the page of it.
//   mpirun -n 4 peers POINTS ROUNDS [WORK]
// POINTS: of the grid in each direction. ROUNDS: how often each contestant does its work. WORK:
// a part of the name of the work; all others are left out.

#include "bench/peers/ours.h"
#include "plugins/petsc/petscpavex.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <malloc.h>
#include <sstream>
#include <string>

namespace Peers {
namespace {

constexpr int kAgain = 3;          // new values in each round; 1 for a factorisation
constexpr int kMostForSolve = 32;  // points; a factorisation beyond takes minutes

template <typename C>
std::unique_ptr<Contestant> Make(Problem& problem) {
  return std::make_unique<C>(problem);
}

std::unique_ptr<Contestant> MakeRedundant(Problem& problem) {
  return std::make_unique<Preconditioner>(
      problem,
      "-own_pc_type redundant -own_redundant_ksp_type preonly -own_redundant_pc_type none",
      false);
}
std::string Telescope(Problem const& problem) {
  return "-own_pc_type telescope -own_pc_telescope_reduction_factor " +
         std::to_string(problem.mSize) + " -own_telescope_ksp_type preonly ";
}
std::unique_ptr<Contestant> MakeTelescope(Problem& problem) {
  return std::make_unique<Preconditioner>(
      problem, Telescope(problem) + "-own_telescope_pc_type none", false);
}
std::unique_ptr<Contestant> MakeTelescopeLu(Problem& problem) {
  return std::make_unique<Preconditioner>(
      problem,
      Telescope(problem) +
          "-own_telescope_pc_type lu -own_telescope_pc_factor_mat_solver_type umfpack",
      true);
}
std::unique_ptr<Contestant> MakeMumps(Problem& problem) {
  return std::make_unique<Preconditioner>(
      problem, "-own_pc_type lu -own_pc_factor_mat_solver_type mumps", true);
}

// A piece of work, first and again, by another library and by Pavex over MPI and NodeComm.
struct Contest {
  char const* mWork;
  char const* mPeer;
  Maker mMakers[3];
  bool mSolves = false;
};

Contest const kContests[] = {
    {"matrix onto rank 0",
     "`MatCreateSubMatrices`",
     {Make<SubMatrices>, Make<Gather<OverMpi, Pavex::PetscRows, false>>,
      Make<Gather<OverNode, Pavex::PetscRows, false>>}},
    {"matrix onto all",
     "`MatCreateRedundantMatrix`",
     {Make<RedundantMatrix>, Make<Gather<OverMpi, Pavex::PetscRows, true>>,
      Make<Gather<OverNode, Pavex::PetscRows, true>>}},
    {"hypre's matrix onto all",
     "`ToCSRMatrixAll`",
     {Make<ToCsrMatrixAll>, Make<Gather<OverMpi, Pavex::HypreRows, true>>,
      Make<Gather<OverNode, Pavex::HypreRows, true>>}},
    {"vector onto rank 0, again also back",
     "`VecScatterCreateToZero`",
     {Make<ScatterToZero>, Make<Vectors<OverMpi>>, Make<Vectors<OverNode>>}},
    {"set-up of a preconditioner",
     "`PCREDUNDANT`",
     {MakeRedundant, MakePlugin<false, false>, MakePlugin<false, true>}},
    {"set-up of a preconditioner",
     "`PCTELESCOPE`",
     {MakeTelescope, MakePlugin<false, false>, MakePlugin<false, true>}},
    {"LU and one solution",
     "`PCTELESCOPE` with UMFPACK",
     {MakeTelescopeLu, MakePlugin<true, false>, MakePlugin<true, true>},
     true},
    {"LU and one solution",
     "distributed MUMPS",
     {MakeMumps, MakePlugin<true, false>, MakePlugin<true, true>},
     true},
};

struct Times {
  std::vector<double> mFirst;
  std::vector<double> mAgain;
  double mMiB = 0;  // that all processes hold more than before, the largest of the rounds
};

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

template <typename Work>
double Time(Work const& work) {
  MPI_Barrier(MPI_COMM_WORLD);
  double const start = MPI_Wtime();
  work();
  double const own = MPI_Wtime() - start;
  double slowest = 0;
  MPI_Allreduce(&own, &slowest, 1, MPI_DOUBLE, MPI_MAX, MPI_COMM_WORLD);
  return slowest;
}

// The memory of all processes; pages that several of them map count once.
double MiBOfAll() {
  malloc_trim(0);
  MPI_Barrier(MPI_COMM_WORLD);
  std::ifstream file("/proc/self/smaps_rollup");
  std::string word;
  double own = 0;
  while (file >> word && word != "Pss:") {
  }
  file >> own;
  double all = 0;
  MPI_Allreduce(&own, &all, 1, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  return all / 1024;
}

void Compete(Maker make, Problem& problem, Contest const& contest, Times& times) {
  double const before = MiBOfAll();
  auto const contestant = make(problem);
  times.mFirst.push_back(Time([&] { contestant->First(); }));
  times.mMiB = std::max(times.mMiB, MiBOfAll() - before);
  for (int again = 0; again < (contest.mSolves ? 1 : kAgain); ++again) {
    problem.NextValues();
    times.mAgain.push_back(Time([&] { contestant->Again(); }));
  }
  int const right = contestant->IsRight() ? 1 : 0;
  int all = 0;
  MPI_Allreduce(&right, &all, 1, MPI_INT, MPI_MIN, MPI_COMM_WORLD);
  if (all == 1) return;
  if (problem.mRank == 0) std::fprintf(stderr, "wrong contents: %s\n", contest.mPeer);
  MPI_Abort(MPI_COMM_WORLD, 1);
}

std::string Milliseconds(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, seconds < 0.1 ? "%.3g" : "%.0f", 1e3 * seconds);
  return text;
}

void PrintRow(Problem const& problem, Contest const& contest, char const* when,
              double const (&seconds)[3], char const* memory) {
  std::printf("| %d | %s | %s | %s |", problem.mGrid.n, contest.mWork, when, contest.mPeer);
  for (double const time : seconds)
    std::printf(" %s |", Milliseconds(time).c_str());
  std::printf(" %.2f | %.2f | %s |\n", seconds[0] / seconds[1], seconds[0] / seconds[2],
              memory);
}

void Hold(Contest const& contest, Problem& problem, int rounds) {
  Times times[3];
  for (int round = 0; round < rounds; ++round) {
    for (int c = 0; c < 3; ++c)
      Compete(contest.mMakers[c], problem, contest, times[c]);
  }
  if (problem.mRank != 0) return;
  double first[3];
  double again[3];
  for (int c = 0; c < 3; ++c) {
    first[c] = Median(times[c].mFirst);
    again[c] = Median(times[c].mAgain);
  }
  char memory[64];
  std::snprintf(memory, sizeof memory, "%.0f / %.0f / %.0f", times[0].mMiB, times[1].mMiB,
                times[2].mMiB);
  PrintRow(problem, contest, "first", first, memory);
  PrintRow(problem, contest, "again", again, "");
  std::fflush(stdout);
}

void Run(int points, int rounds, char const* work) {
  OverMpi::Comm();
  OverNode::Comm();
  Problem problem(points);
  for (Contest const& contest : kContests) {
    if (std::strstr(contest.mWork, work) == nullptr) continue;
    if (!contest.mSolves)
      Hold(contest, problem, rounds);
    else if (points <= kMostForSolve)
      Hold(contest, problem, points == kMostForSolve ? 1 : rounds);
  }
}

}  // namespace
}  // namespace Peers

int main(int argc, char** argv) {
  int const points = argc >= 3 ? std::atoi(argv[1]) : 0;
  int const rounds = argc >= 3 ? std::atoi(argv[2]) : 0;
  if (points < 2 || rounds < 1) {
    std::fprintf(stderr, "usage: mpirun -n P peers POINTS ROUNDS [WORK]\n");
    return 2;
  }
  PEERS_CHECK(PetscInitialize(nullptr, nullptr, nullptr, nullptr));
  PEERS_CHECK(PavexPetscRegister());
  HYPRE_Init();
  Peers::Run(points, rounds, argc > 3 ? argv[3] : "");
  HYPRE_Finalize();
  PEERS_CHECK(PetscFinalize());
}
