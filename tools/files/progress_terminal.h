// Finds the terminal on which a process shows its progress.

#pragma once

namespace Pavex::Tool {

// Opens the terminal that standard error goes to. If a launcher of MPI jobs on this machine
// reads standard error through a pipe, that is the terminal of the launcher. Text for the
// terminal never reaches a pipe or a file. The caller closes the descriptor. Returns -1 if
// there is no terminal, and on every process of an MPI job except process 0.
int OpenProgressTerminal();

}  // namespace Pavex::Tool
