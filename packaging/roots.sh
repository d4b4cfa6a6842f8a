# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=bash
# Functions for root file systems of Debian 12 in build/roots; other scripts source this file. Nothing
# of another architecture is installed on the machine itself.

repo=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
suite=bookworm

# sources: prints the suite's lines for sources.list, from the machine's apt configuration.
sources() {
    # shellcheck disable=SC2016 # expanded by apt-get
    apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' |
        grep -E " $suite(-updates|-security)? main\$" | sort -u ||
        { echo "apt knows no source of Debian $suite (apt-get update?)" >&2; return 1; }
}

# make_root NAME OPTION...: makes the root unless it exists; the options go to mmdebstrap.
make_root() {
    local root=$repo/build/roots/$1 lines lock
    mkdir -p "$repo/build/roots"
    # One at a time: mmdebstrap mounts the machine's /proc and /sys in the root.
    exec {lock}>"$root.lock"
    flock "$lock"
    [ ! -d "$root" ] || { exec {lock}>&-; return 0; }
    lines=$(sources)
    echo "making a root of Debian $suite in ${root#"$repo"/}"
    rm -rf --one-file-system "$root.part"
    nice -n 10 mmdebstrap --quiet --aptopt='Apt::Install-Recommends "false"' \
        --aptopt='Acquire::Languages "none"' --dpkgopt='path-exclude=/usr/share/doc/*' \
        --dpkgopt='path-exclude=/usr/share/man/*' "${@:2}" $suite "$root.part" - <<<"$lines"
    mv "$root.part" "$root"
    exec {lock}>&-
}

# make_cross_root ARCHITECTURE: makes a root that compiles for the architecture and runs the result
# under an emulator. Compiler, build tools and the programs that the unit's scripts call are of this
# machine's architecture; libraries and GStreamer's programs, which load our elements, of the unit's.
make_cross_root() {
    local arch=$1 package include=(
        build-essential "crossbuild-essential-$1" cmake ninja-build ccache pkg-config python3 debhelper
        qtbase5-dev-tools
        # The qemu-user of Debian 12 lacks the system call with which Qt starts processes.
        "qemu-user/$suite-backports" "qemu-user-binfmt/$suite-backports"
        iproute2 net-tools psmisc util-linux procps logrotate gpiod)
    for package in qtbase5-dev libqt5serialport5-dev libx11-dev libopencv-dev libfcgi-dev libsystemd-dev \
        libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
        gstreamer1.0-{tools,plugins-base,plugins-good,plugins-bad,plugins-ugly,libav,x}; do
        include+=("$package:$arch")
    done
    local list backports
    list=$(IFS=,; echo "${include[*]}")
    backports=$(sources | sed -n "s/ $suite main\$/ $suite-backports main/p")
    make_root "$arch" --variant=apt --architectures="amd64,$arch" --include="$list" \
        --setup-hook="echo '$backports' >\"\$1\"/etc/apt/sources.list.d/backports.list"
}

# in_root NAME COMMAND...: runs a command in the root, read-only, with the source tree at its path.
in_root() {
    local root=$repo/build/roots/$1 folder mounts=()
    for folder in bin lib lib64 sbin; do
        mounts+=(--symlink "usr/$folder" "/$folder")
    done
    local cache=${CCACHE_DIR-$HOME/.cache/ccache}
    mkdir -p "$cache"
    bwrap --unshare-user-try --unshare-pid --unshare-net --die-with-parent \
        --ro-bind "$root/usr" /usr --ro-bind "$root/etc" /etc --ro-bind "$root/var" /var \
        "${mounts[@]}" --proc /proc --dev /dev --tmpfs /tmp --dir /root \
        --bind "$cache" /tmp/ccache --setenv CCACHE_DIR /tmp/ccache \
        --bind "$repo" "$repo" --setenv HOME /root --chdir "$repo" "${@:2}"
}
