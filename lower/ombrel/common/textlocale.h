// ombrel, inside: what each platform tells the multibyte conversions of
// common/text.cpp about its C library (text.cpp of each platform folder).
#ifndef OMBREL_TEXTLOCALE_H
#define OMBREL_TEXTLOCALE_H

// True when the calling thread's LC_CTYPE is the C locale, whose native text
// the library takes as UTF-8. Stepping asks for every character, so it is
// cheap.
bool vekInCLocale();

// Records the platform's code for text that does not convert; returns -1.
int vekRefuseText();

#endif
