# Shared by the scripts of this folder: the repository's root, messages, packages, builds.
# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root" || exit 1
# Clones of this repository share the entries of the compiler cache.
export CCACHE_BASEDIR=$root CCACHE_NOHASHDIR=1

say() { printf '\n== %s\n' "$*"; }
fail() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# Packages by purpose. All but those of packages_clang have the same names in Debian 12 and 13.
packages_build=(g++ cmake ninja-build pkg-config libmnl-dev libyaml-dev libabsl-dev libsqlite3-dev libcli11-dev libfmt-dev
    nlohmann-json3-dev libsystemd-dev libsnmp-dev libmicrohttpd-dev)
packages_run=(snmpd snmp snmptrapd iproute2 procps)
packages_test=(libgtest-dev libgmock-dev python3 ccache git acl smitools man-db zsh fish python3-jsonschema prometheus
    prometheus-snmp-exporter graphviz)
packages_guest=(user-mode-linux kmod frr)
packages_root=(mmdebstrap)
packages_clang=(clang-14 clang-format-14 clang-tidy-14 libclang-rt-14-dev)

# locked FILE COMMAND...: runs the command while it has a lock on the file, so that two demos that are started at once neither
# configure the same build folder nor call the package manager at the same time.
locked() {
    local file=$1 handle status=0
    shift
    exec {handle}>> "$file"
    flock "$handle"
    "$@" || status=$?
    exec {handle}>&-
    return $status
}

# install_packages NAME...: installs the missing packages. Their services are not started on this machine: the scripts and
# tests start their own.
install_packages() {
    [ -n "$(missing_packages "$@")" ] || return 0
    [ "$(id -u)" = 0 ] || fail "root is needed to install: apt-get install $(missing_packages "$@" | tr '\n' ' ')"
    locked /run/lock/mpls_vpn_mib.install install_missing "$@"
}

missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^ii' || echo "$package"
    done
}

install_missing() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -gt 0 ] || return 0
    say "installing ${missing[*]}"
    local policy=/usr/sbin/policy-rc.d made=
    if [ ! -e $policy ]; then
        printf '#!/bin/sh\nexit 101\n' > $policy
        chmod +x $policy
        made=1
    fi
    apt-get update -q > /dev/null || fail "apt-get update failed"
    local status=0
    DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}" > /tmp/apt.$$.log 2>&1 ||
        status=$?
    [ -z "$made" ] || rm -f $policy
    if [ $status != 0 ]; then
        tail -20 /tmp/apt.$$.log >&2
        rm -f /tmp/apt.$$.log
        fail "apt-get install failed"
    fi
    rm -f /tmp/apt.$$.log
}

# build PRESET [TARGET...]: configures (once) and builds.
build() {
    mkdir -p "$root/build"
    locked "$root/build/.lock" build_alone "$@"
}

build_alone() {
    local preset=$1
    shift
    say "building ($preset)"
    cmake --preset "$preset" > "/tmp/cmake.$$.log" 2>&1 || { cat "/tmp/cmake.$$.log"; fail "cmake failed"; }
    rm -f "/tmp/cmake.$$.log"
    local targets=()
    [ $# = 0 ] || targets=(--target "$@")
    (
        set -o pipefail
        NINJA_STATUS='[%f/%t] ' cmake --build --preset "$preset" "${targets[@]}" 2>&1 | progress "/tmp/build.$$.log"
    ) || { grep -vE '^\[' "/tmp/build.$$.log" | tail -60; rm -f "/tmp/build.$$.log"; fail "build failed"; }
    tail -1 "/tmp/build.$$.log"
    rm -f "/tmp/build.$$.log"
}

# progress LOG: copies standard input to LOG and shows the last [n/m] that starts a line of it: rewritten in place on a
# terminal, otherwise every 15 s (MPLS_PROGRESS seconds).
progress() {
    local log=$1 part line='' step='' shown=$SECONDS status=0
    : > "$log"
    while [ $status = 0 ] || [ $status -gt 128 ]; do
        part='' status=0
        IFS= read -r -t 1 part || status=$?
        line+=$part
        if [ $status = 0 ]; then
            printf '%s\n' "$line" >> "$log"
            [[ $line =~ ^\[[0-9]+/[0-9]+\] ]] && step=${BASH_REMATCH[0]}
            line=''
        fi
        show_step
    done
    [ -z "$line" ] || printf '%s\n' "$line" >> "$log"
    [ ! -t 1 ] || printf '\r\033[K'
}

# Reads and sets the variables of progress.
show_step() {
    if [ -t 1 ]; then
        printf '\r\033[K%s' "$step"
    elif [ -n "$step" ] && [ $((SECONDS - shown)) -ge "${MPLS_PROGRESS:-15}" ]; then
        echo "$step"
        shown=$SECONDS
    fi
}

# debian_root RELEASE PACKAGE...: prints the folder of a Debian root of that release with these packages; mmdebstrap creates it
# if it is missing. Roots stay in the cache folder (MPLS_ROOTS), one per release and package list.
debian_root() {
    local release=$1 roots name
    shift
    install_packages "${packages_root[@]}" >&2
    roots=${MPLS_ROOTS:-${XDG_CACHE_HOME:-$HOME/.cache}/mpls_vpn_mib/roots}
    name=$release-$(printf '%s\n' "$@" | sort -u | sha256sum | cut -c1-12)
    mkdir -p "$roots"
    locked "$roots/$name.lock" make_debian_root "$release" "$roots/$name" "$@" >&2 || return
    echo "$roots/$name"
}

# frr10_root: prints the root with version 10 of the routing suite, for MPLS_TEST_FRR10_ROOT.
frr10_root() { debian_root trixie frr iproute2 procps python3-minimal; }

# A root is built in another folder and renamed when it is complete: an interrupted build leaves no root.
make_debian_root() {
    local release=$1 folder=$2 packages
    shift 2
    [ ! -d "$folder" ] || return 0
    [ "$(id -u)" = 0 ] || fail "root is needed to make the Debian root $folder"
    say "making a Debian $release root with $*"
    packages=$(IFS=,; echo "$*")
    rm -rf "$folder.partial"
    if ! mmdebstrap --variant=apt --include="$packages" "$release" "$folder.partial" > "$folder.log" 2>&1; then
        tail -20 "$folder.log"
        rm -rf "$folder.partial"
        fail "mmdebstrap failed, see $folder.log"
    fi
    mv "$folder.partial" "$folder"
}
