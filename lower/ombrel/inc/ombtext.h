/// \file
/// ombrel: multibyte text of the current C locale.
///
/// Contract: each operation is the C library's function of the same name
/// without the prefix, in the calling thread's current locale, with the same
/// results: a null destination asks for a count only, and text that cannot be
/// converted gives -1 ((size_t)-1 for the string forms), with the system error
/// kept. An incomplete character counts as one that cannot be converted. The
/// library never changes the locale itself.
///
/// On POSIX hosts the C and POSIX locales, which the C library takes as ASCII,
/// are taken as UTF-8 (ombutf8.h) instead, as modern tools do: a program that
/// never sets its locale still handles non-ASCII text whole. Every other
/// locale is used as it is. In every locale the library runs in an ASCII
/// byte is a character of its own, with its own value as the wide character.
///
/// The single-character forms keep no shift state between calls (they use a
/// fresh conversion state each time), so they may run on any thread at once;
/// with a null source or destination they report a stateless encoding (0).
/// - vek_mblen(source, count): bytes of the first character, at most count
///   looked at; 0 at a terminator.
/// - vek_mbtowc(destination, source, count): the same, storing the wide
///   character when destination is not null.
/// - vek_wctomb(destination, character): bytes written for one wide character
///   (at most MB_CUR_MAX); a wide terminator writes one byte 0.
/// - vek_mbstowcs(destination, source, count): wide characters produced from
///   source, at most count stored; the terminator is stored if there is room.
/// - vek_wcstombs(destination, wide, limit): bytes produced from wide, at most
///   limit stored; the terminator is stored if there is room.
/// - vek_mb_cur_max(): the longest character of the current locale in bytes,
///   MB_CUR_MAX as the operations above see it (4 in the C locale).
#ifndef OMBTEXT_H
#define OMBTEXT_H

#include "vekplatform.h"

#include <cstddef>

/// mblen: the bytes of the first character of source (at most count looked
/// at), 0 at a terminator, -1 for bytes that are no character.
OMBREL_API int vek_mblen(char const* source, std::size_t count);
/// mbtowc: as vek_mblen, storing the wide character when destination is not
/// null.
OMBREL_API int vek_mbtowc(wchar_t* destination, char const* source, std::size_t count);
/// wctomb: the bytes written for character (at most vek_mb_cur_max()), -1
/// for a value with no multibyte form.
OMBREL_API int vek_wctomb(char* destination, wchar_t character);
/// mbstowcs: the wide characters produced from source (at most count
/// stored; a null destination counts only), or (size_t)-1 for text that
/// cannot be converted.
OMBREL_API std::size_t vek_mbstowcs(wchar_t* destination, char const* source, std::size_t count);
/// wcstombs: the bytes produced from wide (at most limit stored; a null
/// destination counts only), or (size_t)-1 for text that cannot be
/// converted.
OMBREL_API std::size_t vek_wcstombs(char* destination, wchar_t const* wide, std::size_t limit);
/// MB_CUR_MAX as the operations above see it: the longest character of the
/// current locale in bytes.
OMBREL_API int vek_mb_cur_max();

#endif
