# SPDX-License-Identifier: LicenseRef-KT6120
#
# Toolchain for compiling in a root of make_build_root (packaging/roots.sh), which KT6120_ROOT in the
# environment names: compiler and build tools (moc among them) of this machine's architecture,
# libraries of the root's.
set(amd64 x86_64-linux-gnu)
set(arm64 aarch64-linux-gnu)
set(armhf arm-linux-gnueabihf)
string(REGEX REPLACE ".*-" "" arch "$ENV{KT6120_ROOT}")
set(CMAKE_LIBRARY_ARCHITECTURE ${${arch}})
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${CMAKE_LIBRARY_ARCHITECTURE})
set(CMAKE_C_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-gcc)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(PKG_CONFIG_EXECUTABLE /usr/bin/${CMAKE_LIBRARY_ARCHITECTURE}-pkg-config)

# Root in which the tests run.
set(KT6120_ROOT ${CMAKE_CURRENT_LIST_DIR}/../build/roots/$ENV{KT6120_ROOT})
