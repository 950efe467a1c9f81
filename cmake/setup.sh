# Sourced by test.sh and demo.sh.

# quietly COMMAND...: runs the command and shows its output only if it fails.
quietly() {
  local output
  output=$("$@" 2>&1) || { local status=$?; echo "$output" >&2; return $status; }
}

# need PACKAGE...: installs the Debian packages that are missing. Does nothing if none is missing.
need() {
  local package missing=() sudo=()
  for package in "$@"; do
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  [ "$(id -u)" = 0 ] || sudo=(sudo)
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  quietly "${sudo[@]}" apt-get update -qq
  quietly "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# The packages that the library and the pavex command are built with. Without an optimised BLAS the
# solver would spend most of its time in the reference one.
build_packages=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libeigen3-dev
  libsuitesparse-dev libopenblas-dev libcairo2-dev)
