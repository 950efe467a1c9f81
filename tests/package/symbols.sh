#!/usr/bin/env bash
# symbols.sh WORK: checks that the shared libraries of the package in WORK/moved export the public
# names and nothing else, and have the version of the binary interface in their names.
set -euo pipefail
work=$1

public='Allocator|MemoryPool|Log|Comm|SelfComm|LocalComm|MpiComm|NodeComm|NodePool|BlockSource|MatrixBase|AggregatorBase'
public+='|MatrixCompressed<.*>|MatrixDense<.*>|MatrixCSR<.*>|MatrixCSC<.*>|MatrixCOO<.*>|Aggregator<.*>|Assembler<.*>(::SentRows)?'
member="((int|void|[a-z]+) )?Pavex::($public)::.+"
about="(vtable|typeinfo|typeinfo name) for Pavex::($public)"
function='Pavex::DatatypeSize\(Pavex::Datatype\)|Pavex::CopyRuns\(.*\)|PavexStatusStr\(int\)|PavexVersion\(\)|PavexBuildInfo\(\)'
function+='|Pavex::(RecordOf|PlanGather|FindSuspicious|AssemblyPathStr|Describe(\[abi:cxx11\])?|GatherStageStr)\(.*\)'
function+='|void Pavex::ShiftIndexBase<.*>\(Pavex::Matrix(CSR|CSC|COO)<.*>&, int, int\)'

for library in $(find "$work/moved" -name 'libpavex*.so'); do
  names=$(nm --dynamic --defined-only --demangle "$library" | cut -d ' ' -f 3-)
  alien=$(grep -Exv "$member|$about|$function" <<<"$names" || true)
  if [ -n "$alien" ]; then
    echo "$library exports names that are not public:"
    echo "$alien"
    exit 1
  fi
  stem=$(basename "$library")
  soname=$(readelf -d "$library" | sed -n 's/.*soname: \[\(.*\)\]/\1/p')
  [[ $soname =~ ^$stem\.0\.[0-9]+$|^$stem\.[1-9][0-9]*$ ]] || { echo "soname $soname"; exit 1; }
  [ -e "$(dirname "$library")/$soname" ]
  # Memory that is shared on a node lasts as long as the process, so its library does.
  [ "$stem" != libpavex_mpi.so ] || readelf -d "$library" | grep -q NODELETE ||
    { echo "$stem can be unloaded"; exit 1; }
  echo "$soname: $(wc -l <<<"$names") names"
done

# Checks that each name that a user calls is exported.
exported=$(nm --dynamic --defined-only --demangle "$(find "$work/moved" -name libpavex.so)")
for name in 'PavexStatusStr(int)' 'PavexVersion()' 'PavexBuildInfo()' 'vtable for Pavex::SelfComm' \
  'Pavex::Aggregator<double, int>::Update(Pavex::MatrixBase const&)' \
  'Pavex::MatrixCOO<std::complex<float>, long>::MatrixCOO()'; do
  grep -qF "$name" <<<"$exported" || { echo "$name is not exported"; exit 1; }
done
