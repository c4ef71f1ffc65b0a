// ombrel, inside: the platform's part of the stop (each memory.cpp).
#ifndef OMBREL_STOPLINE_H
#define OMBREL_STOPLINE_H

#include <cstddef>

// Writes the stop's line to standard error in one write, so that it stays
// whole even if other threads print; no buffer of the C library is involved.
void vekWriteStopLine(char const* text, std::size_t size);

#endif
