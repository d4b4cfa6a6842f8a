# SPDX-License-Identifier: LicenseRef-KT6120
# shellcheck shell=bash disable=SC2034 # other scripts source this file
# Debian packages that the project needs, in Debian 12 and 13.

# The package's Build-Depends.
build_depends() {
    sed -nE '/^Build-Depends:/,/^[A-Z][A-Za-z-]+:/{s/^Build-Depends://; /^[A-Z]/d; s/,/\n/g; p}' \
        packaging/debian/control | awk 'NF && $1 !~ /^debhelper/ { sub(":any", "", $1); print $1 }'
}

# What every verb of ./dev needs besides: compilers, and what program, bench and tests use at run time.
packages=(
    build-essential ccache gstreamer1.0-tools gstreamer1.0-plugins-base
    gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly
    gstreamer1.0-libav gstreamer1.0-nice gstreamer1.0-x bubblewrap iproute2 net-tools psmisc util-linux procps
    logrotate gpiod lighttpd libfaketime socat python3
)

# What single verbs of ./dev need besides.
lint_packages=(clang-format clang-tidy shellcheck black eslint mypy pyflakes3)

web_packages=(chromium chromium-driver curl ffmpeg prometheus python3-selenium)
command -v npm >/dev/null || web_packages+=(npm) # a node.js from elsewhere includes it

root_packages=(mmdebstrap debhelper dpkg-dev)

board_packages=("${root_packages[@]}" kmod cpio xz-utils device-tree-compiler e2fsprogs dnsmasq-base)

fuzz_packages=(clang libclang-rt-dev)

# A root that compiles for another architecture also needs these. The qemu-user of Debian 12 lacks the
# system call with which Qt starts processes.
backports=
[ "${release-}" != bookworm ] || backports=/bookworm-backports
cross_packages=(qtbase5-dev-tools "qemu-user$backports" "qemu-user-binfmt$backports")
