// tarnlet: byte strings and the environment.
//
// Contract:
// - Strlen(text): the length in bytes without the terminator; 0 for null.
// - Getenv(name, &value): true if the variable exists, with value pointing at
//   its text (owned by the environment, not to be released). False for a null
//   name or an unknown variable; value is then left alone.
// - Strnew__(text): a new[] copy of text with its terminator, released by the
//   caller with delete[]; null for a null text.
#ifndef VEKTEXT_H
#define VEKTEXT_H

#include "vekplatform.h"

TARNLET_API int Strlen(char const* text);
TARNLET_API bool Getenv(char const* name, char const** value);
TARNLET_API char* Strnew__(char const* text);

#endif
