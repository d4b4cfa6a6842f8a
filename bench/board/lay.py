#!/usr/bin/env python3
# SPDX-License-Identifier: LicenseRef-KT6120
"""Unpacks Debian packages of another architecture into a root, running none of their scripts.

lay.py ROOT PACKAGE.deb...   leaves them as dpkg does what it has unpacked and not yet configured
"""
import hashlib
import os
import subprocess
import sys

root, packages = sys.argv[1], sys.argv[2:]
database = f"{root}/var/lib/dpkg"


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def unpack(package):
    """The paths that it holds."""
    tree = subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE)
    listing = subprocess.run(
        ["tar", "-x", "-v", "-p", "--numeric-owner", "--keep-directory-symlink", "-C", root],
        check=True,
        stdin=tree.stdout,
        capture_output=True,
        text=True,
    ).stdout
    if tree.wait() != 0:
        sys.exit("cannot read a package")
    return listing.splitlines()


def lay(package):
    """Its stanza for dpkg's status."""
    listed = unpack(package)
    control = output("dpkg-deb", "--field", package)
    fields = dict(
        line.split(": ", 1)
        for line in control.splitlines()
        if ": " in line and not line.startswith(" ")
    )
    name = fields["Package"]
    if fields.get("Multi-Arch") == "same":
        name += ":" + fields["Architecture"]
    info = f"{database}/info/{name}"
    scripts = f"{database}/control"
    subprocess.run(["rm", "-rf", scripts], check=True)
    subprocess.run(["dpkg-deb", "--control", package, scripts], check=True)
    for file in os.listdir(scripts):
        if file != "control":
            os.rename(f"{scripts}/{file}", f"{info}.{file}")
    with open(f"{info}.list", "w") as file:
        file.write(
            "/.\n"
            + "".join(path.rstrip("/")[1:] + "\n" for path in listed if path.rstrip("/") != ".")
        )
    stanza = control.replace("\n", "\nStatus: install ok unpacked\n", 1)
    if os.path.exists(f"{info}.conffiles"):
        stanza += "Conffiles:\n"
        for path in open(f"{info}.conffiles").read().split("\n"):
            if path.startswith("/"):
                digest = hashlib.md5(open(root + path, "rb").read()).hexdigest()
                stanza += f" {path} {digest}\n"
    return stanza


os.makedirs(f"{database}/info")
os.makedirs(f"{database}/updates")
for place in ("bin", "sbin", "lib"):
    os.makedirs(f"{root}/usr/{place}")
    os.symlink(f"usr/{place}", f"{root}/{place}")
with open(f"{database}/info/format", "w") as file:
    file.write("1\n")
with open(f"{database}/status", "w") as file:
    for package in packages:
        file.write(lay(package) + "\n")
for name in ("available", "diversions", "statoverride"):
    open(f"{database}/{name}", "w").close()
with open(f"{database}/arch", "w") as file:
    file.write("arm64\n")
