# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=bash
# Root file systems of Debian releases in build/roots; other scripts source this file. Nothing of
# another release or architecture is installed on the machine itself.
#
# Removes the options --on RELEASE and --arch ARCHITECTURE (default: this machine's) from the script's
# arguments and sets `release`, `arch`, `name` (RELEASE-ARCHITECTURE), `version` (of the packages),
# `preset` (of CMake) and `there` (a prefix for the commands that compile).

repo=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
cd "$repo" || exit
# shellcheck source=/dev/null
own_release=$(. /etc/os-release && echo "$VERSION_CODENAME")
own_arch=$(dpkg --print-architecture)
release=$own_release
arch=$own_arch
while :; do
    case ${1-} in
    --on) release=$2 ;;
    --arch) arch=$2 ;;
    *) break ;;
    esac
    shift 2
done
name=$release-$arch
preset=root
there=(in_root "$name")
if [ "$name" = "$own_release-$own_arch" ]; then
    preset=release
    there=(env)
fi
version=$(sed -nE 's/^project\(KT6120 VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
case $release in
bookworm) version+=+deb12 ;;
trixie) version+=+deb13 ;;
esac
# shellcheck source-path=SCRIPTDIR source=packages.sh
. packaging/packages.sh

# sources: prints the release's lines for sources.list, from the machine's apt configuration.
sources() {
    # shellcheck disable=SC2016 # expanded by apt-get
    apt-get indextargets --format 'deb $(REPO_URI) $(CODENAME) $(COMPONENT)' \
        'Created-By: Packages' 'Origin: Debian' |
        sed -nE "s/ $own_release(-updates|-security|) main\$/ $release\1 main/p" | sort -u | grep . ||
        { echo "apt knows no source of Debian (apt-get update?)" >&2; return 1; }
}

# make_root NAME OPTION...: makes the root unless it was made with the same options, which go to
# mmdebstrap.
make_root() ( # in a process of its own, which holds the lock
    root=$repo/build/roots/$1
    mkdir -p "$repo/build/roots"
    # One at a time: mmdebstrap mounts the machine's /proc and /sys in the root.
    exec 9>"$root.lock"
    flock 9
    [ ! -d "$root" ] || [ "${*:2}" != "$(cat "$root.made" 2>/dev/null)" ] || exit 0
    lines=$(sources)
    echo "making a root of Debian $release in ${root#"$repo"/}"
    rm -rf --one-file-system "$root.made" "$root" "$root.part"
    nice -n 10 mmdebstrap --quiet --aptopt='Apt::Install-Recommends "false"' \
        --aptopt='Acquire::Languages "none"' --dpkgopt='path-exclude=/usr/share/doc/*' \
        --dpkgopt='path-exclude=/usr/share/man/*' "${@:2}" "$release" "$root.part" - <<<"$lines"
    mv "$root.part" "$root"
    echo "${*:2}" >"$root.made"
)

# make_build_root: makes the root `name`, which compiles for `arch` and runs the result, under an
# emulator if need be. Compiler, build tools and the programs that the unit's scripts call are of this
# machine's architecture; libraries and GStreamer's programs, which load our elements, of the unit's.
make_build_root() {
    local package options=() include=(cmake debhelper)
    for package in $(build_depends) "${packages[@]}"; do
        case $package in
        *-dev | gstreamer*) include+=("$package:$arch") ;;
        *) include+=("$package") ;;
        esac
    done
    if [ "$arch" != "$own_arch" ]; then
        include+=("crossbuild-essential-$arch" "${cross_packages[@]}")
        options+=(--architectures="$own_arch,$arch")
    fi
    if [ -n "$backports" ]; then
        backports=$(sources | sed -n "s| $release main\$| ${backports#/} main|p")
        options+=(--setup-hook="echo '$backports' >\"\$1\"/etc/apt/sources.list.d/backports.list")
    fi
    make_root "$name" --variant=apt --include="$(IFS=,; echo "${include[*]}")" "${options[@]}"
}

# compile TARGET...: compiles with the preset, in the root if it is for another system.
compile() {
    [ "$preset" = release ] || make_build_root
    "${there[@]}" cmake --preset "$preset" >/dev/null
    "${there[@]}" nice -n 10 cmake --build --preset "$preset" -j "${JOBS:-$(nproc)}" --target "$@"
}

# in_root NAME COMMAND...: runs a command in the root, read-only, with the source tree at its path.
in_root() {
    local root=$repo/build/roots/$1 cache=${CCACHE_DIR-${HOME-/root}/.cache/ccache}
    mkdir -p "$cache"
    bwrap --unshare-user-try --unshare-pid --unshare-net --die-with-parent \
        --ro-bind "$root/usr" /usr --ro-bind "$root/etc" /etc --ro-bind "$root/var" /var \
        --symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 \
        --symlink usr/sbin /sbin --proc /proc --dev /dev --tmpfs /tmp --dir /root \
        --bind "$cache" /tmp/ccache --setenv CCACHE_DIR /tmp/ccache \
        --bind "$repo" "$repo" --setenv HOME /root --setenv KT6120_ROOT "$1" --chdir "$repo" "${@:2}"
}
