#include "textcase.h"
#include "vektext.h"

bool Strmatch(wchar_t const* text, wchar_t const* pattern) { return vekWildcardMatch(text, pattern); }
