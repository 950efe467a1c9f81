#!/usr/bin/env bash
# readme_test.sh SOURCE-DIR QUICKSTART: the programs in the README are examples/quickstart.cpp and
# mpi_quickstart.cpp to the letter, and the first prints what the README says.
set -euo pipefail
source=$1 quickstart=$2

# The lines of the first block of the README that is fenced with the given word.
block() { awk -v open="\`\`\`$1" '$0 == open {on = 1; next} /^```$/ {if (on) exit} on' "$source/README.md"; }

diff <(block cpp) <(grep -v '^//' "$source/examples/quickstart.cpp")
diff <(block c++) <(sed -n '/^#include/,$p' "$source/examples/mpi_quickstart.cpp")
diff <(block output) <("$quickstart")
[ "$(block output | wc -l)" -gt 0 ]
echo "The README shows the program and its output."
