#!/usr/bin/env bash
# plugin.sh WORK CONSUMERS PETSC LAUNCHER...: an unmodified program of PETSc, built by a project that
# does not know of Pavex, loads the plugin of the package in WORK/moved by an option. PETSC is the
# folder of its PETSc, or empty for the one that pkg-config finds.
set -euo pipefail
work=$1 consumers=$2 petsc=$3
shift 3
build=$work/plugin
plugin=$(find "$work/moved" -name libpetscpavex.so)
test -n "$plugin"

rm -rf "$build"
mkdir "$build"
PKG_CONFIG_PATH=${petsc:+$petsc/lib/pkgconfig} make -C "$build" -f "$consumers/consumer/petsc.mk" \
  SOURCE="$consumers/consumer"
! grep -qi pavex "$consumers/consumer/petsc.cpp" || { echo "the program knows of Pavex"; exit 1; }

# says TEXT OPTION...: the program succeeds on two processes and prints a line with the text.
says() {
  local said
  said=$("${launcher[@]}" 2 "$build/petsc" "${@:2}" 2>&1) || { echo "$said"; return 1; }
  grep -q "$1" <<<"$said" || { echo "${*:2} does not print $1:"; echo "$said"; return 1; }
}
launcher=("$@")
says 'residual below 1e-12: yes' -pc_type redundant
says '100 rows gathered on process 0' -dll_append "$plugin" -pc_type pavex -pavex_view
says 'residual below 1e-12: yes' -dll_append "$plugin" -pc_type lu -pc_factor_mat_solver_type pavex
PETSC_OPTIONS="-dll_append $plugin" says 'residual below 1e-12: yes' -pc_type pavex

# A program that links the plugin finds its header.
cat >"$build/linked.cpp" <<'C'
#include <petscpavex.h>
int main() {
  return PetscInitializeNoArguments() || PavexPetscRegister() || PetscFinalize();
}
C
PKG_CONFIG_PATH=${petsc:+$petsc/lib/pkgconfig} make -C "$build" -f "$consumers/consumer/petsc.mk" \
  SOURCE="$build" PROGRAM=linked CPPFLAGS="-I$(dirname "$(find "$work/moved" -name petscpavex.h)")" \
  LDFLAGS="$plugin"
LD_LIBRARY_PATH=$(dirname "$plugin") "$build/linked"
exported=$(nm --dynamic --defined-only "$plugin" | awk '{print $3}' | sort | tr '\n' ' ')
[ "$exported" = "PavexPetscRegister PetscDLLibraryRegister_petscpavex " ] ||
  { echo "the plugin exports $exported"; exit 1; }
