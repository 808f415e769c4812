# Sourced by the other scripts: installs what is missing from the distribution's own packages.
packages_build=(g++ cmake ninja-build pkg-config libboost-json1.81-dev libutf8proc-dev libsystemd-dev libsqlite3-dev libcli11-dev libfuse3-dev fuse3)
packages_test=(libgtest-dev)
packages_fuzz=(clang libclang-rt-14-dev)
packages_system=(python3 attr fio git rsync sqlite3 stress-ng unzip zip)

# need PACKAGE…: installs those that are missing; says what is missing when it cannot.
need() {
    local missing=() package
    for package in "$@"; do
        [[ $(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
    done
    [[ ${#missing[@]} -gt 0 ]] || return 0
    local as_root=()
    if [[ $(id -u) -ne 0 ]]; then
        if ! command -v sudo >/dev/null; then
            echo "Missing packages: ${missing[*]}. Install them as root: apt-get install ${missing[*]}" >&2
            exit 1
        fi
        as_root=(sudo)
    fi
    echo "Installing ${missing[*]}" >&2
    if ! { "${as_root[@]}" apt-get update -qq &&
           "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"; } >&2; then
        echo "Could not install: ${missing[*]}. Install them by hand, then try again." >&2
        exit 1
    fi
}

# build PRESET [TARGET…]: configures and builds, quietly when there is nothing to say.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        echo "The build of preset $preset failed." >&2
        exit 1
    fi
    rm -f "$log"
}
