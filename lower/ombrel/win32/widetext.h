// ombrel, Windows: native text to and from the wide text of the system's W
// calls, for the Windows folders of both lower libraries (tarnlet's includes
// this folder). Not part of the installed interface.
//
// Native text is the multibyte text of the current C locale (ombtext.h), so
// the conversions are vek_mbstowcs and vek_wcstombs: in the C locale, which
// the library takes as UTF-8, every name the system can hold comes through.
#ifndef OMBREL_WIDETEXT_H
#define OMBREL_WIDETEXT_H

#include <string>

#include "vekplatform.h"

// False, with the last error kept, for a null text or one the locale cannot
// convert; wide is then left alone.
OMBREL_API bool vekToWide(char const* native, std::wstring& wide);
OMBREL_API bool vekFromWide(wchar_t const* wide, std::string& native);

#endif
