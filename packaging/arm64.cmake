# SPDX-License-Identifier: LicenseRef-KT6120
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(KT6120_ARCH arm64)
set(KT6120_TRIPLET aarch64-linux-gnu)
include(${CMAKE_CURRENT_LIST_DIR}/cross.cmake)
