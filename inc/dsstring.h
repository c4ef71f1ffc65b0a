/// \file
/// quillon strings: the owning string, its abstract face, a plain writable
/// copy, the byte-level string functions, and the utilities around them
/// (numbers to text, token lists, the environment, C-style escaped text).
///
/// A dsString holds NUL-terminated bytes in a buffer of exactly length + 1
/// bytes; it has no length field and no spare capacity, and every change makes
/// a new buffer. A string that holds nothing sits on one shared, read-only,
/// process-wide byte 0, recognised by its address: default construction,
/// destruction of such a string and assignment of null never allocate. An
/// empty text that was stored explicitly has a one-byte buffer of its own, so
/// emptiness is always tested on the first byte (IsEmpty), never on the
/// address. Owned buffers come from new[] and go back with delete[], never
/// through the collection hooks.
///
/// Wherever text is given as a char const*, null is accepted and means "no
/// text". Lengths, indexes and counts are in bytes.
///
/// Nothing here reports an error: the only failure is the language's own
/// std::bad_alloc, and every change makes its new buffer before it lets the
/// old one go, so a string whose change failed keeps the text it had.
#ifndef DSSTRING_H
#define DSSTRING_H

#include <string.h>  // strpbrk(char*, char const*): see the byte-level functions

#include <ostream>

// std::strstream is part of this interface (assignment from a stream, and the
// stream that ToString fills). The header is deprecated in the standard
// library; its warning is silenced here and nowhere else.
#pragma push_macro("__DEPRECATED")
#undef __DEPRECATED
#include <strstream>
#pragma pop_macro("__DEPRECATED")

#include "quillonbase.h"

/// The abstract face shared by the owning string and the interned string.
/// One thread at a time per object.
class QUILLON_API dsBaseString {
 public:
  dsBaseString() {}
  virtual ~dsBaseString();
  /// The text: a pointer into the object, valid while the object lives and
  /// keeps that text. A dsString never gives null; a subclass that can is
  /// read as empty by GetLength and IsEmpty.
  virtual operator char const*() const = 0;

  unsigned int GetLength() const;  ///< Bytes, without the terminator.
  bool IsEmpty() const;            ///< The first byte is 0.

 protected:
  ///@{
  /// Copied only as part of a subclass.
  dsBaseString(dsBaseString const&) = default;
  dsBaseString& operator=(dsBaseString const&) = default;
  ///@}
};

/// The owning string: text in an exact-size buffer of its own, or on the
/// shared empty buffer.
///
/// One thread at a time per object; different objects may be used on
/// different threads at once, since all they share is the read-only empty
/// buffer.
class QUILLON_API dsString : public dsBaseString {
 public:
  dsString();                                     ///< On the shared buffer.
  /// Null: shared buffer; else an owned copy, also of "".
  dsString(char const* text);
  /// Both null: shared buffer; else both texts joined.
  dsString(char const* first, char const* second);
  /// At most limit bytes of text. Nothing taken (null text, limit 0, empty
  /// text): the shared buffer.
  dsString(char const* text, unsigned int limit);
  /// Wide text converted to the multibyte text of the current C locale. Null,
  /// empty, or text that the locale cannot express: the shared buffer.
  dsString(wchar_t const* wide);
  /// A deep copy. A copy of a string on the shared buffer stays on it.
  dsString(dsString const& other);
  ~dsString() override;

  /// Never null. The pointer is valid until the string changes or goes.
  operator char const*() const override;

  /// Null leaves the string on the shared buffer.
  dsString& operator=(char const* text);
  /// Nothing if other is this object; otherwise an owned copy, also of an
  /// empty string.
  dsString& operator=(dsString const& other);
  /// Takes the bytes that source still has to give, up to its first byte 0 or
  /// its end; the stream's read position moves behind them (and behind the 0).
  /// The result always owns its buffer.
  dsString& operator=(std::strstream& source);

  /// Null or "" changes nothing. text may point into this string.
  dsString& operator+=(char const* text);
  /// The character 0 changes nothing.
  dsString& operator+=(char c);

  /// Puts text in the place of the bytes [from, to); the two may come in
  /// either order, and to must not exceed the length. An empty range is an
  /// insertion, a null or empty text a deletion.
  /// \return false, changing nothing, for an empty range with no text; true
  ///         otherwise.
  bool Replace(unsigned int from, unsigned int to, char const* text);
  /// Replaces the leftmost non-overlapping occurrences of pattern by text, at
  /// most limit of them (limit <= 0: all, up to one million). The text put in
  /// is not searched again. pattern and text must not be null.
  /// \return how many were replaced; with 0 the buffer stays as it was.
  int ReplaceSubStr(char const* pattern, char const* text, int limit);

 private:
  static char* StrEmpty();
  // A new owned copy of text, or the shared buffer for null.
  static char* StrNew(char const* text);
  // A new owned buffer with both texts; null counts as empty.
  static char* Concatenate(char const* first, char const* second);
  // Releases an owned buffer and goes back to the shared one.
  void Cleanup();
  // Releases the current buffer unless it is the shared one, then takes
  // buffer. The new buffer is always made before the old one goes.
  void Take(char* buffer);

  // The shared empty buffer: one byte 0 in read-only storage, in place before
  // any static constructor runs. Never written, never released.
  static char* const emptyBuffer;

  char* chars;
};

/// A new string with the text of first followed by second (null: nothing).
QUILLON_API dsString operator+(dsString const& first, char const* second);

/// A plain writable copy of a text, released with the object. A null text
/// gives an empty text (one byte 0). Not copyable; one thread at a time.
class QUILLON_API dscharStr {
 public:
  dscharStr(char const* text);  ///< Copies text into a new[] block of the object's own.
  ~dscharStr();                 ///< Releases the copy.
  ///@{
  /// Not copyable: the object owns its block alone.
  dscharStr(dscharStr const&) = delete;
  dscharStr& operator=(dscharStr const&) = delete;
  ///@}

  /// The copy: writable, never null, owned by the object and valid while it
  /// lives.
  char* GetChars() const { return chars; }

 private:
  char* chars;
};

/// \name Byte-level string functions
/// None accepts a null pointer and none checks the size of a destination.
/// They keep no state and may run on any thread.
///@{

/// Writes source with its terminator over the terminator of destination.
/// \return destination.
QUILLON_API char* Strcat(char* destination, char const* source);
/// Copies source with its terminator. \return destination.
QUILLON_API char* Strcpy(char* destination, char const* source);
/// The bytes that text occupies, including its terminator: Strlen + 1.
QUILLON_API int Strbytes(char const* text);
/// The C library's strchr: a pointer into text, or null.
QUILLON_API char* Strchr(char const* text, int c);
/// The C library's strstr: a pointer into text, or null.
QUILLON_API char* Strstr(char const* text, char const* pattern);
// strpbrk(char* text, char const* set), the search for a non-constant string,
// is the C library's own overload, which <string.h> declares in the global
// namespace; a second definition here would replace the C library's symbol.

/// memcpy of count elements; returns destination. Only the char form exists.
template <class T>
T* MemCpy(T* destination, T const* source, unsigned int count);
/// memcpy of count bytes (none when count is 0). \return destination.
template <>
QUILLON_API char* MemCpy<char>(char* destination, char const* source, unsigned int count);
///@}

/// The number base of ToString. Any value other than ToStringOct and
/// ToStringHex gives decimal.
enum ToStringOptions : int {
  ToStringDec = 0,  ///< Decimal.
  ToStringOct = 1,  ///< Octal.
  ToStringHex = 2   ///< Hexadecimal.
};

///@{
/// The digits of number in text, by the standard stream formatting: no
/// prefix, no fill, lower-case hexadecimal digits. A negative int in octal or
/// hexadecimal shows its 32-bit two's complement. text always owns its
/// buffer afterwards.
QUILLON_API void ToString(int number, dsString& text, ToStringOptions options = ToStringDec);
QUILLON_API void ToString(unsigned int number, dsString& text,
                          ToStringOptions options = ToStringDec);
///@}

/// \name Token lists
/// Fields joined by a separator, in which a doubled separator stands for one
/// literal separator. Nothing else is special.
///@{

/// Encodes one field into token (it adds no separator at either end). A null
/// field gives an empty token.
QUILLON_API void dsMkToken(char const* field, dsString& token, char separator);
/// Decodes the first field of list into token. A null list gives an empty
/// token and null. separator must not be the byte 0.
/// \return a pointer into list where the next field begins, or null when
///         nothing follows (a separator at the very end adds no empty field).
QUILLON_API char const* dsGetNextToken(char const* list, dsString& token, char separator);
///@}

/// The value of an environment variable, copied into value.
/// \return false if the variable does not exist; value then keeps what it
///         held.
QUILLON_API bool Getenv(char const* name, dsString& value);

/// Writes text, which must not be null, as a double-quoted C-style string:
/// backslash and double quote get a backslash, bytes 0x20 to 0x7E stand as
/// they are, and every other byte becomes a backslash and its value as a
/// signed char in octal, at least three digits (bytes from 0x80 up give the
/// eleven digits of their 32-bit two's complement). If any byte took the
/// octal form, out is left in decimal with the fill character '0'. A failure
/// of out stays in out's own state.
QUILLON_API void NativeStringToCStyle(char const* text, std::ostream& out);
/// Writes the plain bytes of a C-style string, then one byte 0 (always). With
/// unquoted false, text has a double quote at each end, which is not read.
/// Escapes: \\a \\b \\f \\n \\r \\t \\v; \\ with octal digits and \\x with
/// hexadecimal digits (any number of them; the low 8 bits of the value
/// count); \\" gives the two bytes \\ and "; \\ and any other byte gives that
/// byte. Nothing is reported: a malformed escape reads as the rule says, and
/// a failure of out stays in out's own state.
QUILLON_API void CStyleStringToNative(char const* text, bool unquoted, std::ostream& out);

/// Writes the text through the inserter for char const*, so width and fill
/// apply. Writes nothing if the text pointer is null.
QUILLON_API std::ostream& operator<<(std::ostream& out, dsBaseString const& text);

#endif
