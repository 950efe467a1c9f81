#!/usr/bin/env bash
# debian.sh WORK SOURCE CMAKE-ARGUMENT...: makes the Debian packages and examines them. Installs
# them into a root folder of their own, with a copy of this system's list of packages. Runs the
# command there, and removes the packages.
set -euo pipefail
work=$1 source=$2
shift 2
rm -rf "$work/packages" "$work/root"

cmake -S "$source" -B "$work/build" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
  -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_SKIP_INSTALL_RPATH=ON -DPAVEX_TESTS=OFF -DPAVEX_BENCH=OFF \
  -DPAVEX_EXAMPLES=OFF -DPAVEX_UMFPACK=OFF "$@"
cmake --build "$work/build" -j 2
(cd "$work/build" && cpack -B "$work/packages")

version=$(sed -n 's/#define PAVEX_VERSION "\(.*\)"/\1/p' "$source/pavex/runtime/version.h")
library=libpavex${version%.*}
[ "$(ls "$work"/packages/*.deb | wc -l)" -eq 3 ]

# has PACKAGE PATTERN...: checks that each extended regular expression matches a file of it.
has() {
  local package=$1 files pattern
  shift
  files=$(dpkg-deb --contents "$work/packages/${package}_$version"_*.deb | awk '{print $6}')
  for pattern in "$@" "/usr/share/doc/$package/copyright"; do
    grep -Eqx "\.$pattern" <<<"$files" || { echo "$package lacks $pattern:"; echo "$files"; exit 1; }
  done
}
has "$library" '/usr/lib/.*/libpavex\.so\.[0-9.]+' '/usr/lib/.*/libpavex_local\.so\.[0-9.]+'
has libpavex-dev /usr/include/pavex/pavex.h '/usr/lib/.*/libpavex\.so' \
  '/usr/lib/.*/cmake/Pavex/PavexConfig\.cmake' '/usr/lib/.*/pkgconfig/pavex\.pc' \
  /usr/share/doc/pavex/LICENSE /usr/share/doc/pavex/docs/guide.md
has pavex /usr/bin/pavex /usr/share/man/man1/pavex.1 /usr/share/bash-completion/completions/pavex

# depends PACKAGE TEXT: checks that the dependencies of the package contain the text.
depends() {
  local depends
  depends=$(dpkg-deb --field "$work/packages/${1}_$version"_*.deb Depends)
  [[ $depends = *"$2"* ]] || { echo "$1 depends on \"$depends\", not on $2"; exit 1; }
}
depends "$library" "libc6 (>="
depends libpavex-dev "$library (= $version)"
depends pavex "$library (= $version)"
depends pavex "libstdc++6 (>="

# dpkg satisfies the dependencies with the packages that are installed on this system.
root=$work/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
cp /var/lib/dpkg/status "$root/var/lib/dpkg/"
cp /var/lib/dpkg/info/*.list "$root/var/lib/dpkg/info/"
dpkg=(dpkg --root="$root" --force-not-root --force-script-chrootless --log="$work/dpkg.log")
PATH=$PATH:/sbin:/usr/sbin "${dpkg[@]}" --no-triggers --install "$work"/packages/*.deb
libraries=$(dirname "$(find "$root/usr/lib" -name libpavex.so)")
said=$(LD_LIBRARY_PATH=$libraries "$root/usr/bin/pavex" --version)
[[ $said = "pavex $version"$'\n'* ]]
LD_LIBRARY_PATH=$libraries "$root/usr/bin/pavex" gather --generate random:200
PATH=$PATH:/sbin:/usr/sbin "${dpkg[@]}" --no-triggers --remove pavex libpavex-dev "$library"
[ -z "$(find "$root/usr" -name '*pavex*')" ]
