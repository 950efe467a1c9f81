# Sourced by test.sh and demo.sh. need PACKAGE... installs, quietly, the Debian packages that are
# missing; a machine that has them all is left alone.

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
  "${sudo[@]}" apt-get update -qq >/dev/null
  "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# What the library and the pavex command are built with; without an optimised BLAS the solver would
# spend most of its time in the reference one.
build_packages=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libeigen3-dev
  libsuitesparse-dev libopenblas-dev libcairo2-dev)
