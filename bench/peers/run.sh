#!/usr/bin/env bash
# Installs PETSc and hypre, measures the same work done by them and by Pavex, and writes
# docs/peers.md. Run it on an otherwise idle machine; it takes about 5 minutes.
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/setup.sh
need "${build_packages[@]}" libopenmpi-dev openmpi-bin libpetsc-real-dev libhypre-dev

build=build/peers
{
  cmake -S . -B $build -G Ninja -DCMAKE_BUILD_TYPE=Release -DPAVEX_MPI=ON -DPAVEX_PETSC=ON \
    -DPAVEX_PETSC_DIRS=/usr/lib/petscdir/petsc-real -DPAVEX_HYPRE=ON -DPAVEX_BENCH=ON \
    -DMPI_CXX_COMPILER=mpicxx.openmpi -DMPIEXEC_EXECUTABLE=/usr/bin/mpiexec.openmpi \
    -DPAVEX_TESTS=OFF -DPAVEX_TOOLS=OFF -DPAVEX_EXAMPLES=OFF
  cmake --build $build --parallel --target peers
} >&2

export OMPI_ALLOW_RUN_AS_ROOT=1 OMPI_ALLOW_RUN_AS_ROOT_CONFIRM=1 OPENBLAS_NUM_THREADS=1
export OMPI_MCA_rmaps_base_oversubscribe=1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
version() { dpkg-query -W -f='${Version}' "$1"; }

# rows PROCESSES: the table of that many processes.
rows() {
  printf '%s\n' '' "## $1 processes" '' \
    '| points | work | | peer | peer, ms | `MpiComm`, ms | `NodeComm`, ms | peer / `MpiComm` | peer / `NodeComm` | MiB: peer / `MpiComm` / `NodeComm` |' \
    '|---|---|---|---|---|---|---|---|---|---|'
  local points
  for points in 8 32 64 100; do
    local rounds=9
    [ "$points" -le 32 ] || rounds=3
    echo "peers: $1 processes, $points points, after $SECONDS s" >&2
    mpiexec.openmpi -n "$1" $build/bench/peers/peers "$points" "$rounds"
  done
}

{
  cat <<'HEAD'
# Pavex and its peers

The same work by the functions that PETSc and hypre have for it, and by Pavex, in turn in one run.
`bench/peers/run.sh` makes this page again. After each piece of work the program checks what came out:
every entry, the product with a vector, or the residual.

- *Points* counts those of the grid in each direction: 64 means a 7-point operator with 262144 rows.
- *First* takes a distributed matrix or vector and nothing else. *Again* has new values of the same
  pattern: `MAT_REUSE_MATRIX` and `PCSetUp` of PETSc, `Refresh` and `UpdateInPlace` of Pavex. hypre has
  no such function, so it repeats all.
- A preconditioner that is set up has none inside that takes time. That of Pavex is the
  [plugin](petsc.md#the-plugin), `-pc_type pavex`, which gathers onto one process as `PCTELESCOPE` does;
  `PCREDUNDANT` gives every process a copy. A first set-up of the plugin includes its communicator. The
  LU of the plugin is that of UMFPACK.
- The median over the rounds of the slowest process. Above 1, a quotient says how many times as fast
  Pavex is.
- *MiB* is what all processes together hold more once they have the result.

Where it does not help:

- A matrix of a few thousand rows costs little either way.
- The first gather of a matrix of hypre gains little: Pavex sorts the rows and keeps a piece of its own,
  which also takes more memory.
- The first gather over `NodeComm` also makes the shared memory of the pool; its profit is in what is
  repeated.
- Long vectors over `MpiComm` take about as long as over PETSc.
- With more processes than cores, first gathers over `MpiComm` suffer most from other work on the
  machine: those of large matrices then took several times as long as alone, and longer than those of
  the peers. `NodeComm` suffers less.
- A whole LU of a three-dimensional problem is dominated by the factorisation: how the matrix gets
  there hardly matters. Distributed MUMPS factors on all processes and is faster.

HEAD
  echo "Run on $(date +%F), commit $(git rev-parse --short HEAD), $(nproc) cores, $(uname -sr)," \
    "PETSc $(version libpetsc-real-dev), hypre $(version libhypre-dev)," \
    "Open MPI $(version libopenmpi-dev); load average before the run $(cut -d' ' -f1 /proc/loadavg)." |
    fmt -w 105
  rows 2
  rows 4
} >"$work/page"
cp "$work/page" docs/peers.md
