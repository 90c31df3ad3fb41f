# shellcheck shell=bash disable=SC2034
# Shared functions, sourced by the commands in this directory.

top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Debian's Python packages are installed for Debian's own Python.
python=/usr/bin/python3

# What the page's texts are drawn with: see docs/station-page.md.
font_packages=(fonts-dejavu-core fonts-liberation fonts-symbola fonts-wqy-microhei)

# Needed to build the service and to run the simulated station.
station_packages=(
    alsa-utils chromium chromium-driver cmake dnsmasq-base faketime "${font_packages[@]}" g++ iproute2
    libcli11-dev libevent-dev libgtest-dev lighttpd net-tools ninja-build pkg-config procps psmisc
    python3 python3-aiohttp python3-selenium udhcpc util-linux wget
)

# Needed to build for the board, and to run the result here.
armv6_packages=(cmake g++-arm-linux-gnueabi libgtest-dev ninja-build pkg-config qemu-user-static)

# Needed to build the Debian package, and the package's own dependencies.
package_packages=(
    adduser alsa-utils cmake dpkg-dev file g++ libcli11-dev libevent-dev lighttpd lintian net-tools ninja-build
    pkg-config psmisc udhcpc usbutils wget
)

# Needed to build and run the fuzz targets.
fuzz_packages=(
    clang-14 cmake libclang-rt-14-dev libcli11-dev libevent-dev libgtest-dev llvm-14 ninja-build nodejs
    pkg-config
)

# Needed by Buildroot, and by its checker of packages.
image_packages=(
    "${armv6_packages[@]}" bc bzip2 cpio file g++ make patch perl pkg-config python3 python3-magic rsync
    shellcheck unzip wget xz-utils
)

# Needed to run whole machines.
machine_packages=(
    "${package_packages[@]}" busybox-static cpio e2fsprogs kmod man-db python3-pytest
    python3-pytest-timeout python3-pytest-xdist qemu-system-arm qemu-system-x86 systemd-sysv v4l-utils
)

# What bench/growth draws its plots with.
plot_packages=(python3-matplotlib)

# The executables of tests/unit.
unit_tests=(
    bstrlib_test cec_bus_test cec_linux_test cec_test doctor_test gatewayctl_test messages_test
    service_test timer_libevent_2_0_test timer_test
)

# install_packages PACKAGE...  Installs the missing ones, if any.
install_packages() {
    local package missing=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        echo "Packages are missing, and installing them requires root: ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}" >&2
    apt-get update -qq
    DEBIAN_FRONTEND=noninteractive \
        apt-get install -qq -y --no-install-recommends "${missing[@]}" >/dev/null
}

# add_architecture NAME  Makes packages of another architecture available.
add_architecture() {
    dpkg --print-foreign-architectures | grep -qx "$1" && return
    dpkg --add-architecture "$1"
    apt-get update -qq
}

# download_packages DIRECTORY PACKAGE...  Unpacks packages there, without installing them.
download_packages() {
    local directory=$1 archives result=0
    shift
    archives=$(mktemp -d)
    # The downloader drops its privileges, and needs access to the directory.
    chmod 755 "$archives"
    (cd "$archives" && apt-get download -qq "$@" 2>/dev/null) ||
        (apt-get update -qq && cd "$archives" && apt-get download -qq "$@") || result=1
    find "$archives" -name '*.deb' -exec dpkg-deb -x {} "$directory" \;
    rm -r "$archives"
    return "$result"
}

# unpack_once DIRECTORY PACKAGE...  The same, unless they are there already.
unpack_once() {
    [ ! -e "$1/complete" ] || return 0
    rm -rf "$1"
    mkdir -p "$1"
    download_packages "$@"
    touch "$1/complete"
}

# build PRESET [TARGET...]
build() {
    local preset=$1
    shift
    (cd "$top" && cmake --preset "$preset" >/dev/null &&
        cmake --build --preset "$preset" ${1:+--target "$@"})
}

# run_bench NAME [ARGUMENT...]  Builds what the benchmarks need and runs bench/NAME.py.
run_bench() {
    local name=$1
    shift
    install_packages "${station_packages[@]}"
    build release hdtv gatewayctl station-standin station-launch bench-bare-writer bench-alert-client \
        bench-step-counter >&2
    export PYTHONPATH=$top PYTHONDONTWRITEBYTECODE=1
    exec "$python" "$top/bench/$name.py" "$@"
}
