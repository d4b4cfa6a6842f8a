// SPDX-License-Identifier: LicenseRef-KT6120

// How fast the unit's time runs: a page shared by the bench, which sets it, and the fast-time
// library in the program, which obeys it. Read and written as atomic words.

#ifndef PACE_H
#define PACE_H

#include <stdint.h> // NOLINT(modernize-deprecated-headers): read by C too

struct Pace {
    int64_t speed;   // seconds of the unit's time for each that the program rests; at least 1
    int64_t stride;  // ns of the unit's time that a rest lasts at least, unless something happens
    int64_t skipped; // ns by which the unit's clocks are ahead of the wall clock's
};

#endif
