# SPDX-License-Identifier: LicenseRef-KT6120
#
# Toolchain for cross-compiling in a root of make_cross_root (packaging/roots.sh): compiler and build
# tools (moc among them) of this machine, libraries of the unit's architecture KT6120_ARCH.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${KT6120_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${KT6120_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${KT6120_TRIPLET})
set(PKG_CONFIG_EXECUTABLE /usr/bin/${KT6120_TRIPLET}-pkg-config)

# Root in which the tests run under the emulator.
set(KT6120_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/roots/${KT6120_ARCH})
