#!/usr/bin/env bash
# messages_test.sh SOURCE-DIR: the tables of docs/messages.md that open with "| message" list exactly
# what the library can log, letter by letter: the texts of its lines, the reasons in those of
# MpiComm and NodeComm, and the texts of the statuses.
set -euo pipefail
cd "$1"

logged() {
  {
    find pavex -type f -exec cat {} + | tr -d '\n' | grep -oE 'Log::(Error|Debug)\( *"[^"]+"' |
      sed -E 's/^[^"]*"(.*)"$/\1/'
    grep -rhoE '"\[FATAL\] [^"]+"' pavex | sed -E 's/^"\[FATAL\] (.*)\\n"$/\1/'
    tr -d '\n' <pavex/comm/mpi_comm.cpp | grep -oE '(Refuse|Fail)\(STATUS_[A-Z_]+, *"[^"]+"' | sed -E 's/.*"(.*)"/\1/'
    tr -d '\n' <pavex/comm/mpi_call.cpp | grep -oE 'Refuse\(STATUS_[A-Z_]+, *"[^"]+"' | sed -E 's/.*"(.*)"/\1/'
    cat pavex/comm/node_{exchange,over_mpi,receive,send}.cpp | tr -d '\n' | grep -oE '(Fail\(message|snprintf\(mReason, sizeof mReason), *"[^"]+"' | sed -E 's/.*"(.*)"/\1/'
    tr -d '\n' <pavex/assembly/refusal.cpp | grep -oE 'words\.Say\( *"[^"]+"' | sed -E 's/.*"(.*)"/\1/'
    tr -d '\n' <pavex/interop/petsc_rows.h | grep -oE 'Refuse\( *"[^"]+"' | sed -E 's/.*"(.*)"/\1/'
    sed -nE 's/^ *return "(.*)";$/\1/p' pavex/runtime/status.cpp
  } | grep -vxF -e '%s' -e 'Success' | sort -u
}
listed() {
  awk '/^\| message/ {on = 1; next} !/^\|/ {on = 0} on && /^\| `/' docs/messages.md |
    sed -E 's/^\| `([^`]*)`.*/\1/' | sort -u
}

diff <(logged) <(listed) || { echo "< logged, but not in docs/messages.md; > the other way round"; exit 1; }
echo "$(logged | wc -l) messages"
[ "$(logged | wc -l)" -gt 35 ]
