// Assembles finite elements: each of three ranks has some elements of a line, and so shares the
// nodes at their ends with its neighbours. What overlaps is added, in the matrix and in the
// load. The pattern is gathered once; each step of the loop sends values only. Run:
// build/openmpi/examples/assemble_elements (no arguments, no MPI)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <vector>

#include <pavex/comm/local_comm.h>
#include <pavex/pavex.h>

using Elements = Pavex::Contribution<double, int>;
using Dense = Pavex::MatrixDense<double, int>;

constexpr int kNodes = 10;
constexpr int kSteps = 3;

// The elements of this rank, each between two nodes, and its nodes.
struct Mesh {
  std::vector<int> rows, cols, nodes;
  std::vector<double> stiffness, load, solution;

  Mesh(int first, int last) {
    for (int e = first; e < last; ++e) {
      for (int const i : {e, e + 1})
        for (int const j : {e, e + 1}) {
          rows.push_back(i);
          cols.push_back(j);
        }
    }
    for (int node = first; node <= last; ++node)
      nodes.push_back(node);
    stiffness.resize(rows.size());
    load.resize(nodes.size());
    solution.resize(nodes.size());
  }

  int Count() const { return static_cast<int>(nodes.size()); }

  // Every element has stiffness k and half of its load at each end. The first node is held.
  void Integrate(double k) {
    std::fill(load.begin(), load.end(), 0.0);
    for (std::size_t at = 0; at < rows.size(); ++at) {
      stiffness[at] = rows[at] == cols[at] ? k : -k;
      if (rows[at] == 0 || cols[at] == 0) stiffness[at] = rows[at] == cols[at] ? 1.0 : 0.0;
    }
    for (std::size_t i = 0; i + 1 < load.size(); ++i) {
      load[i] += 0.5;
      load[i + 1] += 0.5;
    }
  }
};

// LocalComm ends all ranks when one throws, and main receives the exception.
void Check(PavexStatus status) {
  if (status != Pavex::STATUS_OK) throw std::runtime_error(PavexStatusStr(status));
}

// Stands for a solver: eliminates the neighbours of a line of nodes.
void Solve(Pavex::MatrixCSR<double, int> const& whole, std::vector<double>& x) {
  std::vector<double> dense(std::size_t{kNodes} * kNodes, 0.0);
  auto const at = [&dense](int i, int j) -> double& {
    return dense[static_cast<std::size_t>(i) * kNodes + static_cast<std::size_t>(j)];
  };
  for (int i = 0; i < kNodes; ++i)
    for (int k = whole.mRowPtr.mData[i]; k < whole.mRowPtr.mData[i + 1]; ++k)
      at(i, whole.mColIdx.mData[k]) = whole.mValues.mData[k];
  x[0] = 0;
  for (int i = 1; i < kNodes; ++i) {
    double const factor = at(i, i - 1) / at(i - 1, i - 1);
    at(i, i) -= factor * at(i - 1, i);
    x[static_cast<std::size_t>(i)] -= factor * x[static_cast<std::size_t>(i - 1)];
  }
  for (int i = kNodes - 1; i >= 0; --i) {
    auto const row = static_cast<std::size_t>(i);
    if (i + 1 < kNodes) x[row] -= at(i, i + 1) * x[row + 1];
    x[row] /= at(i, i);
  }
}

void Work(std::shared_ptr<Pavex::Comm> const& comm) {
  int const elements = kNodes - 1;
  Mesh mesh(elements * comm->Rank() / comm->Size(),
            elements * (comm->Rank() + 1) / comm->Size());
  Pavex::AssemblyRequest request;
  request.mRows = request.mCols = kNodes;
  request.mReceiver = 1;
  request.mWithValues = false;

  auto const own = Elements::Rows(mesh.Count(), mesh.nodes.data())
                       .Coo(static_cast<long>(mesh.rows.size()), mesh.rows.data(),
                            mesh.cols.data(), mesh.stiffness.data());
  Pavex::MemoryPool pool;
  Pavex::Assembler<double, int> assembler(&pool);
  Check(assembler.Gather(comm, own, request));

  std::vector<double> x(kNodes);  // the receiver's; the other ranks' is not used
  auto whole = Dense::Borrow(kNodes, 1, false, kNodes, x.data());
  auto load = Dense::Borrow(mesh.Count(), 1, false, mesh.Count(), mesh.load.data());
  auto solution = Dense::Borrow(mesh.Count(), 1, false, mesh.Count(), mesh.solution.data());
  for (int step = 1; step <= kSteps; ++step) {
    mesh.Integrate(step);
    Check(assembler.Update(mesh.stiffness.data()));
    Check(assembler.Collect(load, Pavex::Overlap::ADD, whole));
    if (assembler.Whole() != nullptr) Solve(*assembler.Whole(), x);
    Check(assembler.Scatter(whole, solution));
    if (comm->Rank() == comm->Size() - 1)
      std::printf("step %d: the last node is at %g\n", step, mesh.solution.back());
  }
}

int main() {
  Pavex::LocalComm::Run(3, Work);
  return 0;
}
