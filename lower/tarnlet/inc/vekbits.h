/// \file
/// tarnlet: counting the bits of a block of bytes.
///
/// Contract:
/// - vekCountBits(bytes, count): the number of bits that are 1 in the count
///   bytes from bytes on; 0 for a count of 0 (bytes may then be null). No
///   alignment is needed. It uses the processor's population-count
///   instruction where the processor has one, checked once at run time.
#ifndef VEKBITS_H
#define VEKBITS_H

#include "vekplatform.h"

#include <cstddef>

/// The number of bits that are 1 in the count bytes from bytes on; 0 for a
/// count of 0, when bytes may be null.
TARNLET_API std::size_t vekCountBits(unsigned char const* bytes, std::size_t count);

#endif
