/// \file
/// tarnlet: byte strings, the environment, wide text and the neutral encoding.
///
/// Contract:
/// - Strlen(text): the length in bytes without the terminator; 0 for null.
/// - Getenv(name, &value): true if the variable exists, with value pointing at
///   its text (owned by the environment, not to be released). False for a null
///   name or an unknown variable; value is then left alone.
/// - uGetHomeDirectory(size, buffer): the home directory that the platform's
///   own programs use when the HOMEDRIVE/HOMEPATH pair names none: the value
///   of HOME on POSIX hosts, nothing on Windows. Writes it with its terminator
///   and returns its length; returns 0, with buffer untouched, when there is
///   none, when it is empty, or when it does not fit in size bytes.
/// - Strnew__(text): a new[] copy of text with its terminator, released by the
///   caller with delete[]; null for a null text.
/// - XStrnew(text): native text (the current C locale) as a new[] wide string,
///   released with delete[]; null for a null text or one that holds an invalid
///   sequence.
/// - Strtoxstr(destination, text, limit): writes native text into a wide
///   buffer: at most limit characters, then the terminator, so the buffer needs
///   limit + 1 places; a null text gives the empty string. Returns destination;
///   null for a negative limit (nothing written) or for text with an invalid
///   sequence (destination then holds the empty string).
/// - Strmatch(text, pattern): true if the whole of text matches pattern, in
///   which '*' stands for any run of characters (also none) and '?' for exactly
///   one; every other character stands for itself. Case counts on POSIX hosts
///   and does not on Windows, as with the file names of each.
/// - mbxWideToNeut(neutral, wide): the neutral form of wide text, which is
///   UTF-8 (ombutf8.h): at most 4 bytes a wide character, no zero byte but the
///   terminator, and the same wide text back through mbxNeutToWide. Writes the
///   bytes and the terminator into neutral, which must be writable and hold
///   4 * W + 1 bytes for W wide characters; returns the bytes written without
///   the terminator. A 16-bit wchar_t host joins a surrogate pair into one
///   4-byte character. A wide value that is no character (a lone surrogate,
///   anything above U+10FFFF, a negative value) has no neutral form: it is
///   written as U+FFFD and the result is -1.
/// - mbxNeutToWide(neutral, wide): the wide form of neutral text, with its
///   terminator, into wide, which must be writable and hold L + 1 places for L
///   bytes of neutral text; returns the wide characters written without the
///   terminator. Text that is not well-formed UTF-8 (a stray trail byte, an
///   overlong form, an encoded surrogate, a value above U+10FFFF, a character
///   cut short) is malformed: each byte that begins no character gives one
///   U+FFFD, and the result is -1. A 16-bit wchar_t host splits a character
///   above U+FFFF into a surrogate pair.
///   So one text has one neutral spelling, and the library's conversions refuse
///   both kinds of text (-1) rather than let two texts become one.
///   Both take their target as a pointer to const, as their interface has
///   always declared it; the storage behind it must not be const.
#ifndef VEKTEXT_H
#define VEKTEXT_H

#include "vekplatform.h"

/// The length of text in bytes without the terminator; 0 for null.
TARNLET_API int Strlen(char const* text);
/// True if the variable name exists, with *value pointing at its text (owned
/// by the environment, not to be released); false for a null name or an
/// unknown variable, *value left alone.
TARNLET_API bool Getenv(char const* name, char const** value);
/// Writes the home directory (HOME on POSIX, nothing on Windows) with its
/// terminator. \return its length; 0, buffer untouched, when there is none,
/// it is empty or it does not fit in size bytes.
TARNLET_API unsigned uGetHomeDirectory(unsigned size, char* buffer);
/// A new[] copy of text with its terminator, released by the caller with
/// delete[]; null for a null text.
TARNLET_API char* Strnew__(char const* text);
/// Native text as a new[] wide string, released by the caller with
/// delete[]; null for a null text or one that holds an invalid sequence.
TARNLET_API wchar_t* XStrnew(char const* text);
/// Writes native text into a wide buffer of limit + 1 places. \return
/// destination; null for a negative limit (nothing written) or an invalid
/// sequence (destination then holds the empty string).
TARNLET_API wchar_t* Strtoxstr(wchar_t* destination, char const* text, int limit);
/// True if the whole of text matches pattern ('*' any run, '?' one
/// character); case counts on POSIX hosts, not on Windows.
TARNLET_API bool Strmatch(wchar_t const* text, wchar_t const* pattern);
/// Writes the neutral (UTF-8) form of wide text with its terminator into
/// neutral (4 * W + 1 bytes). \return the bytes without the terminator; -1
/// when a value is no character (written as U+FFFD).
TARNLET_API int mbxWideToNeut(char const* neutral, wchar_t const* wide);
/// Writes the wide form of neutral text with its terminator into wide (L + 1
/// places). \return the wide characters without the terminator; -1 for text
/// that is not well-formed UTF-8 (each bad byte written as U+FFFD).
TARNLET_API int mbxNeutToWide(char const* neutral, wchar_t const* wide);

#endif
