/// \file
/// quillon neutral text: conversions between the native text of the current C
/// locale and the neutral text that means the same on every machine, and the
/// character-by-character walk over native text.
///
/// Neutral text is UTF-8. A conversion always passes through wide text, and
/// the wide intermediate is gone before the call returns. Every result is a
/// fresh block from new[], owned by the caller and released with delete[]; a
/// null result means failure (an invalid sequence in the input, text that the
/// current locale cannot express, native text with no neutral form such as a
/// value above U+10FFFF, or neutral text that is not well-formed UTF-8) and
/// leaves nothing to release: no text is ever replaced, so two texts never
/// become one. A null text gives null. The functions keep no state and may
/// run on any thread at once; they read the process's C locale and never set
/// it. The C and POSIX locales count as UTF-8 on POSIX hosts.
#ifndef MBXTEXT_H
#define MBXTEXT_H

#include "quillonbase.h"
// Wide text to and from neutral text (mbxWideToNeut, mbxNeutToWide), the
// wildcard match (Strmatch) and the byte-string helpers of the lower library.
#include "vektext.h"

/// The whole native string as neutral text: a new[] block the caller
/// deletes, or null.
QUILLON_API char* mbxNativeToNeut(char const* text);
/// The whole neutral string as native text: a new[] block the caller
/// deletes, or null.
QUILLON_API char* mbxNeutToNative(char const* text);

///@{
/// The first character only, measured in the current locale (also for neutral
/// input). An empty text gives an empty string; a first character that the
/// locale rejects gives null. The result is a new[] block the caller deletes.
QUILLON_API char* mbcNativeToNeut(char const* text);
QUILLON_API char* mbcNeutToNative(char const* text);
///@}

/// The size in bytes of the result of the block form of mbxNativeToNeut().
int const mbxBlockLimit = 4096;
/// A block of length bytes holding native strings separated by NUL bytes (the
/// last one need not be terminated: the block ends at length), converted to
/// neutral text. The result is a new[] buffer of mbxBlockLimit bytes, owned
/// by the caller, that lists the converted pieces the same way, each with its
/// terminator, followed by one more NUL; a length below 1 gives an empty list
/// (a null block gives null).
///
/// When a piece cannot be converted the result is null. When the pieces with
/// their terminators and the final NUL would pass the buffer, the message
/// "mbxNativeToNeut:Cannot handle strings longer than 4096" goes to the
/// standard output (without a line end) and the result is null. An empty
/// piece looks like the end of the list, so a caller whose block holds empty
/// pieces counts them from its input.
QUILLON_API char* mbxNativeToNeut(char const* block, int length);

/// Multibyte stepping: the length in bytes of the native character at
/// position, or 0 at the terminator or at an invalid sequence, where a walk
/// stops. Walking with it, only the first byte of each character is seen, so a
/// trail byte that equals a separator is never taken for one:
/// \code
///   for (char* p = text; int n = mbxStepLength(p); p += n) ...
/// \endcode
QUILLON_API int mbxStepLength(char const* position);

#endif
