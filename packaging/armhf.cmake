# SPDX-License-Identifier: LicenseRef-KT6120
set(CMAKE_SYSTEM_PROCESSOR arm)
set(KT6120_ARCH armhf)
set(KT6120_TRIPLET arm-linux-gnueabihf)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
