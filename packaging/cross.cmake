# SPDX-License-Identifier: LicenseRef-KT6120
#
# Cross-compiling in a root that make_cross_root (packaging/roots.sh) makes: Debian's compiler and
# build tools (moc among them) for this machine beside the libraries of the unit's architecture,
# KT6120_ARCH.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KT6120_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KT6120_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${KT6120_TRIPLET})
set(PKG_CONFIG_EXECUTABLE /usr/bin/${KT6120_TRIPLET}-pkg-config)

# Where the tests find what they run on, beside the emulator.
set(KT6120_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/roots/${KT6120_ARCH})
