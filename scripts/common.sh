# Shared by scripts/run and scripts/test: installs what the build needs and builds one tree.
set -euo pipefail

TIDEWICK_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
TIDEWICK_PACKAGES=(cmake g++ make pkg-config qt6-base-dev qt6-base-dev-tools libgl-dev
    libgtest-dev libgmock-dev libbenchmark-dev zlib1g-dev libminiupnpc-dev
    famfamfam-flag-png tango-icon-theme librsvg2-bin)

# What the tests need beyond the build: the UPnP gateway test runs a real gateway daemon in
# network namespaces of its own, the fuzz smoke runs build with clang, and the packaging tests
# make, check and install the Debian package.
TIDEWICK_TEST_PACKAGES=(iproute2 nftables miniupnpd miniupnpd-nftables clang libclang-rt-14-dev
    dpkg-dev desktop-file-utils appstream lintian dbus-daemon)

# What scripts/package needs beyond the build: dpkg-shlibdeps finds the package's dependencies.
TIDEWICK_PACKAGE_PACKAGES=(dpkg-dev)

# What scripts/fuzz needs beyond the build: clang with its libFuzzer runtime.
TIDEWICK_FUZZ_PACKAGES=(clang libclang-rt-14-dev)

# tidewick_install_packages [extra packages...]
tidewick_install_packages() {
    local missing=()
    for pkg in "${TIDEWICK_PACKAGES[@]}" "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    if [ ${#missing[@]} -gt 0 ]; then
        echo "Installing: ${missing[*]}"
        local sudo=""
        [ "$(id -u)" -eq 0 ] || sudo="sudo"
        $sudo apt-get update -qq
        DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
    fi
}

# tidewick_build DIR BUILD_TYPE [cmake options...]
tidewick_build() {
    local dir=$1 type=$2
    shift 2
    local gen=()
    command -v ninja >/dev/null 2>&1 && gen=(-G Ninja)
    if [ ! -f "$dir/CMakeCache.txt" ]; then
        cmake -S "$TIDEWICK_ROOT" -B "$dir" "${gen[@]}" -DCMAKE_BUILD_TYPE="$type" "$@"
    elif [ $# -gt 0 ]; then
        # A tree made before the script gave an option gets it too.
        cmake -B "$dir" "$@" >/dev/null
    fi
    cmake --build "$dir" --parallel "$(nproc)"
}
