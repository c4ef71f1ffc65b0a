/// \file
/// ombrel: UTF-8, one character at a time. The one codec of the libraries:
/// tarnlet's neutral encoding and the native text of the C locale on POSIX
/// hosts (see ombtext.h) are both written and read with it.
///
/// Contract:
/// - vekUtf8Read(text, count, character): the length (1 to 4) of the UTF-8
///   character at text, looking at no more than count bytes, with its value in
///   character; 0 at a terminator (character 0). -1, with character left
///   alone, when the bytes there begin no well-formed character: a stray trail
///   byte, a lead byte that no character has, an overlong form, an encoded
///   surrogate (U+D800 to U+DFFF), a value above U+10FFFF, or a character cut
///   short, by count or by a byte that is no trail byte. A count of 0 gives -1.
///   Trail bytes are looked at only while the ones before them fit, so a
///   terminator always ends the look.
/// - vekUtf8Write(out, character): writes the 1 to 4 bytes of character to out
///   (no terminator) and returns how many. -1, writing nothing, for a value
///   that is no character: a surrogate, or anything above U+10FFFF.
/// So every character has exactly one spelling, and every spelling that is
/// read back is written again the same.
///
/// Wide text, one character at a time, for both widths of wchar_t: a 16-bit
/// wchar_t (Windows) holds a character above U+FFFF as a surrogate pair.
/// - vekWideRead(wide, taken): the value of the character at wide, with the
///   wide characters it takes in taken: 2 for a surrogate pair on a 16-bit
///   host, otherwise 1. A lone surrogate, and a 32-bit value that is no
///   character (a negative one reads as a value above U+10FFFF), come back as
///   they are, for vekUtf8Write to refuse.
/// - vekWideWrite(out, character): writes character (at most U+10FFFF) as one
///   wide character, or as a surrogate pair on a 16-bit host, and returns how
///   many it wrote.
#ifndef OMBUTF8_H
#define OMBUTF8_H

#include "vekplatform.h"

#include <cstddef>
#include <cstdint>

/// The longest UTF-8 character.
constexpr int vekUtf8Longest = 4;

/// Reads the character at text, looking at no more than count bytes.
/// \return its length (1 to 4) with its value in character; 0 at a
/// terminator; -1, character left alone, for bytes that begin no well-formed
/// character.
OMBREL_API int vekUtf8Read(char const* text, std::size_t count, std::uint32_t& character);
/// Writes the 1 to 4 bytes of character to out, without a terminator.
/// \return how many; -1, writing nothing, for a surrogate or a value above
/// U+10FFFF.
OMBREL_API int vekUtf8Write(char* out, std::uint32_t character);

/// The most wide characters that vekWideWrite writes.
constexpr int vekWideLongest = sizeof(wchar_t) == 2 ? 2 : 1;

/// Reads the character at wide.
/// \return its value, with the wide characters it takes in taken (2 for a
/// surrogate pair on a 16-bit host, else 1); a lone surrogate or a value that
/// is no character comes back as it is.
OMBREL_API std::uint32_t vekWideRead(wchar_t const* wide, int& taken);
/// Writes character (at most U+10FFFF) as one wide character, or a surrogate
/// pair on a 16-bit host.
/// \return how many wide characters it wrote.
OMBREL_API int vekWideWrite(wchar_t* out, std::uint32_t character);

#endif
