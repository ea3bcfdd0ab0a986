# Variables and functions that the scripts share. A script sources this file, after `set -euo pipefail`.
# shellcheck shell=bash disable=SC2034  # the scripts that source it use the variables

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
export BRENIK_FAULTS=${BRENIK_FAULTS:-$root/build/Faults.log}  # instead of the user's own file

build_packages=(g++ ccache cmake ninja-build libcli11-dev nlohmann-json3-dev libsqlite3-dev)
test_packages=(libgtest-dev libgmock-dev python3-pytest python3-pexpect mandoc libdbd-xbase-perl perl pkg-config valgrind
               mono-mcs mono-runtime fp-compiler)
lint_packages=(clang-format clang-tidy shellcheck flake8)
sanitizer_packages=(clang libclang-rt-14-dev llvm)
windows_packages=(g++-mingw-w64-i686 g++-mingw-w64-x86-64 llvm lld)
archive_packages=(zip cmark-gfm python3)
windows_test_packages=(googletest xvfb imagemagick unzip "${archive_packages[@]}")
share_packages=(qemu-system-x86 samba busybox-static cpio kmod)

as_root=()
[[ $EUID -eq 0 ]] || as_root=(sudo)

# quietly NAME COMMAND...: runs a command with its output in NAME.log, and shows the log's end only if it fails.
quietly() {
    local log=$logs/$1.log
    shift
    mkdir -p "$logs"
    "$@" >"$log" 2>&1 && return
    local code=$?
    printf 'failed: %s\n' "$*" >&2
    tail -n 60 "$log" >&2
    printf 'the whole log: %s\n' "$log" >&2
    return $code
}

install_packages() {
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --yes --no-install-recommends "$@"
}

is_installed() {
    [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# configure PRESET [OPTION...]: configures from the preset alone and drops earlier settings of the folder.
# Compiled files stay.
configure() {
    quietly "configure-$1" cmake --fresh --preset "$@"
}

# need PACKAGE...: installs those of the Debian packages that are missing.
need() {
    local package missing=()
    for package; do
        is_installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -eq 0 ]] || quietly install install_packages "${missing[@]}"
}
