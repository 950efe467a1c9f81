#!/usr/bin/env bash
# completion_test.sh PAVEX COMPLETION: what bash offers after the beginning of a line.
set -uo pipefail
pavex=$1
. "$2"
compopt() { :; }  # works only inside a real completion

# offers EXPECTED WORD...: checks the completions of these words, the last unfinished.
offers() {
  local expected=$1
  shift
  COMP_WORDS=(pavex "$@")
  COMP_CWORD=$#
  _pavex "$pavex" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  [ "${COMPREPLY[*]}" = "$expected" ] && return
  echo "pavex $*: \"${COMPREPLY[*]}\" is offered, not \"$expected\""
  exit 1
}

[ "$(complete -p pavex)" = "complete -F _pavex pavex" ] || exit 1
offers "gather" g
offers "plan" p
offers "--help --version" -
offers "--version" --v
offers "--format" gather --fo
offers "--no-values" gather --format csr --no
offers "dense-row dense-col" gather --format d
offers "poisson2d: poisson3d:" gather --generate p
offers "" gather --generate poisson3d :
offers "" gather --ranks ""

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
touch A.mtx B.mtx
offers "A.mtx B.mtx" gather ""
offers "A.mtx" gather --scatter A
offers "B.mtx" gather --output B

# Each option is offered, and each word of its values. The command's refusal of a wrong word lists
# those words.
subcommands=$("$pavex" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p')
words=0
for subcommand in $subcommands; do
  help=$("$pavex" "$subcommand" --help)
  offers "$(grep -oE '^  (-h,)?--[a-z-]+' <<<"$help" | grep -oE -- '--.*' | paste -sd ' ')" \
    "$subcommand" --
  for option in $(sed -n 's/^  \(--[a-z][a-z-]*\) WORD.*/\1/p' <<<"$help"); do
    refusal=$("$pavex" "$subcommand" --generate random:5 "$option" no-such-word 2>&1)
    choices=${refusal#*choose one of }
    offers "${choices//,/}" "$subcommand" "$option" ""
    words=$((words + 1))
  done
done
[ "$words" -ge 6 ] || exit 1
echo "The completion knows the words of $words options."
