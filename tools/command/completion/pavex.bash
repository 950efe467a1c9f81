# Bash completion of the pavex command. It reads the subcommands and the options from --help.

# What can follow an option that takes one of a few words.
_pavex_choices() {
  case "$1" in
    --format) echo coo csr csc dense-row dense-col ;;
    --partition) echo rows columns entries one all random overlap ;;
    --to) echo root all ;;
    --value) echo float double complex-float complex-double ;;
    --index) echo int long ;;
    --comm) echo node mpi local ;;
    --log-level) echo silent fatal error debug ;;
    --generate) echo poisson2d: poisson3d: convection2d: convection3d: random: dense: ;;
  esac
}

# The indented first words of a help text: subcommands and options.
_pavex_listed() {
  "$@" --help 2>/dev/null |
    sed -n -e '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p' \
      -e 's/^  \(-h,\)\{0,1\}\(--[a-z][a-z-]*\) .*/\2/p'
}

# What an option takes by the help of its subcommand: N, WORD, FILE ...; nothing for a flag.
_pavex_takes() {
  "$1" "$2" --help 2>/dev/null | sed -n "s/^  $3 \([A-Z]\{1,\}\).*/\1/p"
}

_pavex() {
  local command=$1 word=$2 before=$3 subcommand=${COMP_WORDS[1]:-} choices
  COMPREPLY=()
  if [[ $COMP_CWORD -eq 1 ]]; then
    choices=$(_pavex_listed "$command")
  elif [[ $before == --* && -n $(_pavex_choices "$before") ]]; then
    choices=$(_pavex_choices "$before")
    [[ $before != --generate ]] || compopt -o nospace
  elif [[ $word == -* ]]; then
    choices=$(_pavex_listed "$command" "$subcommand")
  elif [[ $before == : || $word == : ]]; then
    return  # inside KIND:SIZE, which bash splits
  elif [[ $before == --* && $(_pavex_takes "$command" "$subcommand" "$before") == N ]]; then
    return
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
}

complete -F _pavex pavex
