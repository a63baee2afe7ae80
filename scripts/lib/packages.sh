# Installs Debian packages, for scripts that source this file. Does nothing if none is missing.
# shellcheck shell=bash

is_installed() {
    [[ "$(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null)" == installed ]]
}

# need_packages NAME...: installs those that are missing.
need_packages() {
    local name missing=() as_root=()
    if ! command -v dpkg-query >/dev/null; then
        echo "This is not a Debian system; assuming it has the contents of these packages: $*" >&2
        return
    fi
    for name in "$@"; do
        is_installed "$name" || missing+=("$name")
    done
    if ! ((${#missing[@]})); then return; fi

    echo "Missing Debian packages, to be installed now: ${missing[*]}"
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "Installing needs root, and there is no sudo. As root: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    "${as_root[@]}" apt-get update --quiet
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install --quiet --yes --no-install-recommends "${missing[@]}"
}

# need_command COMMAND PACKAGE: for commands that may also come from elsewhere than Debian's package.
need_command() {
    command -v "$1" >/dev/null || need_packages "$2"
}

# need_preset ROOT NAME: what a build of the checkout with this CMake preset needs.
need_preset() {
    need_packages g++ make cmake ninja-build ccache pkg-config netbase \
        libboost-dev libboost-program-options-dev libboost-filesystem-dev libboost-system-dev \
        libnl-3-dev libnl-genl-3-dev libsystemd-dev nlohmann-json3-dev
    if [[ $2 != product ]]; then need_packages libgtest-dev libgmock-dev libbenchmark-dev; fi
    # scripts/breakpad fetches one source archive with it, once.
    if ! compgen -G "$1/build/cache/*.tgz" >/dev/null; then need_command npm npm; fi
    case $2 in
    asan | tsan | fuzz)
        need_packages clang llvm
        # The runtime of the sanitizers is a separate package.
        need_packages "libclang-rt-$(clang -dumpversion | cut -d. -f1)-dev"
        ;;
    armhf)
        need_packages g++-arm-linux-gnueabihf qemu-user
        "$1/scripts/sysroot" armhf
        ;;
    esac
}

# need_tests NAME: what the tests of this CMake preset start.
need_tests() {
    case $1 in
    asan | tsan | fuzz | armhf) ;;
    *) need_command tshark tshark ;;
    esac
}

# What the browser tests need. Returns false where it is not available; the tests are then skipped.
get_browser() {
    if command -v chromium >/dev/null && command -v node >/dev/null && command -v npm >/dev/null; then return; fi
    (need_packages chromium fonts-dejavu-core && need_command npm npm) >&2
}

need_rig() {
    need_packages iproute2 net-tools util-linux mount gzip
}
