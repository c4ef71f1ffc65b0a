// The platform's rule for the characters of a name. POSIX code only.
#include "textcase.h"

// POSIX file names are case-sensitive, and so is matching them.
bool vekSameNameChar(wchar_t a, wchar_t b) { return a == b; }
