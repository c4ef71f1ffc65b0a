// The C locale and refusals of the multibyte conversions (common/text.cpp)
// on a POSIX C library. POSIX code only.
#include <langinfo.h>
#include <locale.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "ombmem.h"
#include "textlocale.h"

namespace {

char const cCodesetName[] = "ANSI_X3.4-1968";

// The C locale as an object of its own, and the C library's text of its
// codeset: the library hands out that one string for the C locale, so a
// comparison of addresses recognises it.
locale_t const cLocale = newlocale(LC_CTYPE_MASK, "C", locale_t{});
char const* const cCodeset = cLocale != locale_t{} ? nl_langinfo_l(CODESET, cLocale) : cCodesetName;

}  // namespace

// The characters of the C locale are one byte long, which few other locales
// share, and only then is the codeset looked at, by address first.
bool vekInCLocale() {
  if (MB_CUR_MAX != 1) return false;
  char const* const codeset = nl_langinfo(CODESET);
  return codeset == cCodeset || std::strcmp(codeset, cCodesetName) == 0;
}

int vekRefuseText() {
  errno = EILSEQ;
  vekKeepSystemError();
  return -1;
}
