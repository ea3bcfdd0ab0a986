# What the scripts share; sourced, from anywhere in the tree, by bash with its error options set.
# shellcheck shell=bash disable=SC2034  # the variables are for the scripts that source it

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
logs=$root/build/logs
export BRENIK_FAULTS=${BRENIK_FAULTS:-$root/build/Faults.log}  # not that of whoever runs a script

build_packages=(g++ ccache cmake ninja-build libcli11-dev nlohmann-json3-dev)
test_packages=(libgtest-dev libgmock-dev python3-pytest libdbd-xbase-perl perl pkg-config valgrind)
lint_packages=(clang-format clang-tidy shellcheck flake8)
sanitizer_packages=(clang libclang-rt-14-dev llvm)
windows_packages=(g++-mingw-w64-i686 g++-mingw-w64-x86-64 llvm lld)
windows_test_packages=(googletest xvfb imagemagick zip unzip)
share_packages=(qemu-system-x86 samba busybox-static cpio kmod)

as_root=()
[[ $EUID -eq 0 ]] || as_root=(sudo)

# quietly NAME COMMAND...: runs a command, its output in a log that is shown only should it fail.
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

# configure PRESET [OPTION...]: from the presets alone, whatever the folder was configured with before;
# what has been compiled there stays.
configure() {
    quietly "configure-$1" cmake --fresh --preset "$@"
}

# need PACKAGE...: installs those Debian packages that are not there yet.
need() {
    local package missing=()
    for package; do
        is_installed "$package" || missing+=("$package")
    done
    [[ ${#missing[@]} -eq 0 ]] || quietly install install_packages "${missing[@]}"
}
