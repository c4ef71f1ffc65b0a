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

#endif
