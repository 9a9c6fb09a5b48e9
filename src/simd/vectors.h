// Typed vectors of 128-bit blocks and their scalar twins: the words in which kernels are written.
//
// A vector type wraps one register and says what its lanes are. Every verb has, where a tail needs it, a scalar twin of the
// same name with the same result for every input, NaN and out-of-range values included, so that one generic lambda can be
// both body and tail. Floats use + - * (contraction is off); integers use named verbs, because there wrapping, saturating
// and rounding must be said.
#pragma once

#include "simd/bytes.h"
#include "simd/floats.h"
#include "simd/integers.h"
#include "simd/parts.h"
#include "simd/shorts.h"
#include "simd/types.h"
