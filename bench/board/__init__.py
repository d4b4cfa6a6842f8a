# SPDX-License-Identifier: LicenseRef-KT6120
