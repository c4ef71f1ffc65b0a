// ombrel: multibyte text of the current C locale.
//
// Contract: each operation is the C library's function of the same name
// without the prefix, in the calling thread's current locale, with the same
// results (including (size_t)-1 for text that cannot be converted). The
// library never changes the locale itself.
#ifndef OMBTEXT_H
#define OMBTEXT_H

#include "vekplatform.h"

#include <cstddef>

OMBREL_API std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit);

#endif
