// ombrel, inside: what the platform gives the stop.
#ifndef OMBREL_STDERR_H
#define OMBREL_STDERR_H

#include <cstddef>

// Writes the bytes to standard error in as few system calls as the system
// allows (one for a line of usual length), so that the line stays whole
// while other threads print. Each platform folder defines it.
void vekWriteStandardError(char const* text, std::size_t size);

#endif
