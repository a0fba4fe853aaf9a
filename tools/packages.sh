# Debian packages that the project needs, and how to get the missing ones. Sourced by ./run, ./test
# and ./bench.

readonly BUILD_PACKAGES=(
    g++ cmake ninja-build ccache pkg-config git
    libssl-dev libsqlite3-dev libprotobuf-dev protobuf-compiler
    libboost-dev nlohmann-json3-dev libcli11-dev libsystemd-dev libdlt-dev
    libtss2-dev libp11-kit-dev
    bubblewrap openssl python3)
readonly TEST_PACKAGES=(libgtest-dev libgmock-dev swtpm softhsm2)
# A browser that the tests of the page steer.
readonly PAGE_PACKAGES=(chromium chromium-driver python3-selenium)
# What makes the pictures of the documentation small.
readonly PICTURE_PACKAGES=(pngquant)
readonly BENCH_PACKAGES=(libuv1-dev curl haproxy)
readonly LINT_PACKAGES=(clang-format clang-tidy)
# libFuzzer is in libclang-rt-dev; llvm has the symbolizer.
readonly FUZZ_PACKAGES=(clang libclang-rt-dev llvm)
# Servers that the tests start themselves. apache2-bin is Apache without its service.
readonly PEER_PACKAGES=(nginx apache2-bin lighttpd haproxy dlt-daemon dlt-tools
    python3-scapy tshark iproute2)
# The Debian package of the service, and the machine that tests/programs/systemd has it run in.
readonly PACKAGE_PACKAGES=(dpkg-dev file lintian systemd)

# install_packages PACKAGE...: installs those that are missing; touches no network if none is.
install_packages() {
    local missing=() package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            missing+=("$package")
        fi
    done
    if ((${#missing[@]} == 0)); then
        return
    fi
    local as_root=()
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and neither root nor sudo is at hand: ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    install_without_services "${missing[@]}"
}

# install_without_services PACKAGE...: no service of these packages is started, now or with the
# machine. Takes `as_root` from its caller.
install_without_services() (
    policy=/usr/sbin/policy-rc.d
    if [[ ! -e $policy ]]; then
        trap '"${as_root[@]}" rm -f "$policy"' EXIT
        printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" install -m 755 /dev/stdin "$policy"
    fi
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "$@" >/dev/null
    for package in "$@"; do
        if [[ -e /etc/init.d/$package ]]; then
            "${as_root[@]}" update-rc.d "$package" disable >/dev/null
        elif [[ -e /lib/systemd/system/$package.service ]] && command -v systemctl >/dev/null; then
            "${as_root[@]}" systemctl --root=/ --quiet disable "$package"
        fi
    done
)

# build PRESET [CMAKE-OPTION...]: configures and builds into build/PRESET.
build() {
    local preset=$1
    shift
    local log="build/$preset.log"
    mkdir -p build
    export CMAKE_CXX_COMPILER_LAUNCHER=${CMAKE_CXX_COMPILER_LAUNCHER-ccache}
    echo "Building (log: $log) ..."
    if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "The build failed; the whole log is in $log" >&2
        exit 1
    fi
}
