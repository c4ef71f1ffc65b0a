/// \file
/// quillon binary streams: typed values written to and read from any
/// std::basic_streambuf<char>, in one of two wire forms chosen per stream.
///
/// Portable form: numbers big-endian, 16-bit values widened to 4 bytes, long
/// and unsigned long 4 bytes, text in the neutral encoding. Native form: the
/// host's own bytes (long and unsigned long still 4 bytes). Values follow each
/// other with no header, tag or padding; reader and writer agree on order,
/// types and form.
///
/// | value | portable | native |
/// |---|---|---|
/// | char, unsigned char | 1 byte | 1 byte |
/// | short, unsigned short | 4 bytes, big-endian | 2 bytes |
/// | int, unsigned int, long, unsigned long, float | 4 bytes, big-endian | 4 bytes |
/// | double | 8 bytes, big-endian | 8 bytes |
/// | char const* | int32 count, neutral bytes | int32 count, bytes |
/// | wchar_t const* | int32 count, neutral bytes, a byte 0 | int32 count, multibyte bytes, a byte 0 |
/// | block (Write) | int32 count, the bytes | int32 count, the bytes |
///
/// The count of a string counts its bytes, the byte 0 of the wide form
/// included; a null string is the count -1 and nothing else.
///
/// A stream never owns its buffer: no destructor flushes or releases it, and
/// the buffer must outlive the stream. Nothing is thrown of the library's own
/// accord (a reader's block may throw std::bad_alloc, the language's own) and
/// nothing is printed; every failure is a bit of the state word, which only
/// ever gains bits:
/// - 1: end of input (always together with 2): fewer bytes than a value needs
/// - 2: failed: a value arrived that cannot be represented, or text did not convert
/// - 4: broken: fewer bytes could be written than a value needs
///
/// Operations do not look at the state before they act. A value that fails
/// leaves its target as it was unless its operator says otherwise.
///
/// Counts that arrive on the wire are not trusted: a reader allocates in steps
/// as the bytes come, never the whole announced count up front, and a negative
/// count allocates nothing.
///
/// A stream has no lock: one thread at a time. Streams on different buffers
/// may be used on different threads at once.
#ifndef BDTSTREAM_H
#define BDTSTREAM_H

#include <atomic>
#include <streambuf>

#include "quillonbase.h"
#include "dsstring.h"

/// The root of the stream tree: the byte-order latch and the wire sizes.
/// The latch is atomic; a stream object is for one thread at a time.
class QUILLON_API bdtBase {
 public:
  /// Sets the byte-order latch on the first construction in the process.
  bdtBase();
  virtual ~bdtBase();

  /// 1 on a big-endian host, else 0; computed on every call.
  static int IsByteOrderOK();
  ///@{
  /// Reverse 4 or 8 bytes in place, unless the byte-order latch says that the
  /// host is big-endian.
  static void Swap4(char* bytes);
  static void Swap8(char* bytes);
  ///@}

  /// \name Wire sizes
  /// The number of wire bytes of a value. The string overloads ignore the
  /// form and count native bytes.
  ///@{

  static unsigned int Length(char value, int portable);            ///< 1.
  static unsigned int Length(unsigned char value, int portable);   ///< 1.
  static unsigned int Length(short value, int portable);           ///< 4 portable, 2 native.
  static unsigned int Length(unsigned short value, int portable);  ///< 4 portable, 2 native.
  static unsigned int Length(int value, int portable);             ///< 4.
  static unsigned int Length(unsigned int value, int portable);    ///< 4.
  static unsigned int Length(float value, int portable);           ///< 4.
  static unsigned int Length(double value, int portable);          ///< 8.
  static unsigned int Length(char const* text, int portable);  ///< 4 for null, else strlen + 4.
  /// 4 for null, else 4 + the native multibyte count + the terminator (4
  /// also for text that the locale cannot express).
  static unsigned int Length(wchar_t const* text, int portable);
  /// With both flags set, 4 + the multibyte count of the character; else 2.
  static unsigned int Length(wchar_t character, int portable, int multibyte);
  ///@}

 protected:
  /// The byte-order latch: set by the first construction of any stream, read
  /// by every swap. Atomic, because streams may be built on several threads at
  /// once; every thread stores the same values. 0 until computed.
  static std::atomic<int> byteOrderOK;
  static std::atomic<int> firstUse;  ///< 1 until the first construction.
};

/// The state word, the form and the buffer that reading and writing share.
/// One thread at a time.
class QUILLON_API bdtStream : public bdtBase {
 public:
  /// A stream on buffer, which it does not own (null: a stream that moves
  /// no bytes); portable non-zero for the portable form. State 0.
  bdtStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtStream() override;  ///< Leaves the buffer alone.

  int rdstate() const { return state; }        ///< The state word: 0, or the bits 1, 2 and 4.
  void setstate(int bits) { state |= bits; }   ///< Adds bits to the state word.
  /// Non-zero, on a portable stream: unsigned short values travel as
  /// multibyte characters of the current locale (an int32 count, then the
  /// bytes). Off after construction.
  void setMultibyte(int on) { multibyte = on; }

  /// The buffer's sgetn: a count other than n adds 3 to the state. A stream
  /// without a buffer moves no bytes. \return the count read.
  int sgetn(char* bytes, int n) {
    int got = buffer != nullptr && n > 0 ? static_cast<int>(buffer->sgetn(bytes, n)) : 0;
    if (got != n) setstate(3);
    return got;
  }
  /// The buffer's sputn: a count other than n adds 4 to the state. A stream
  /// without a buffer moves no bytes. \return the count written.
  int sputn(char const* bytes, int n) {
    int put = buffer != nullptr && n > 0 ? static_cast<int>(buffer->sputn(bytes, n)) : 0;
    if (put != n) setstate(4);
    return put;
  }

  void Swap4(char* bytes) { bdtBase::Swap4(bytes); }  ///< bdtBase::Swap4.
  void Swap8(char* bytes) { bdtBase::Swap8(bytes); }  ///< bdtBase::Swap8.

 protected:
  bdtStream();  ///< Portable, no buffer.

  int state;                           ///< The state word.
  int portable;                        ///< Non-zero: the portable form.
  int multibyte;                       ///< Non-zero: unsigned short as a multibyte character.
  std::basic_streambuf<char>* buffer;  ///< The buffer, not owned; may be null.
};

/// Reading typed values. Each operator reads one value of its type in the
/// stream's form and returns the stream; a short read adds 3 and leaves the
/// target as it was. One thread at a time.
class QUILLON_API bdtIStream : public virtual bdtStream {
 public:
  /// A reader on buffer, which it does not own; portable non-zero for the
  /// portable form.
  bdtIStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtIStream() override;

  bdtIStream& operator>>(char& value);           ///< 1 byte.
  bdtIStream& operator>>(unsigned char& value);  ///< 1 byte.
  /// Portable: a 32-bit value whose low 16 bits are kept; one that does not
  /// fit adds 2, and the target keeps the low 16 bits.
  bdtIStream& operator>>(short& value);
  /// Portable: a 32-bit value whose low 16 bits are kept; in the multibyte
  /// mode a character with its count, and a character that does not decode
  /// to exactly that count, or lies beyond 16 bits, adds 2 (the target keeps
  /// the low 16 bits of what decoded).
  bdtIStream& operator>>(unsigned short& value);
  bdtIStream& operator>>(int& value);            ///< 4 bytes.
  bdtIStream& operator>>(unsigned int& value);   ///< 4 bytes.
  bdtIStream& operator>>(long& value);           ///< 4 bytes, sign-extended.
  bdtIStream& operator>>(unsigned long& value);  ///< 4 bytes, zero-extended.
  bdtIStream& operator>>(float& value);          ///< 4 bytes.
  bdtIStream& operator>>(double& value);         ///< 8 bytes.
  /// Text in either string form. A negative prefix (a null string) empties
  /// the target; text that does not convert adds 2 and leaves it alone.
  bdtIStream& operator>>(dsString& value);

  /// A raw block: count receives the prefix, block a new[] array of that many
  /// bytes (non-null also for 0 bytes), released by the caller with delete[].
  /// A short payload (state 3) or a negative prefix (state 2) leaves block
  /// null; count keeps the prefix. A short prefix leaves both alone.
  bdtIStream& Read(char*& block, int& count);

 protected:
  bdtIStream();  ///< Portable, no buffer: for bdtIOStream.

  /// Reads the int32 prefix of a string or block. \return false on a short
  /// read.
  bool ReadPrefix(int& count);
  /// A new[] array of count + extra bytes whose first count bytes were read
  /// from the buffer, grown in steps as bytes arrive; the caller deletes it.
  /// Null, with the state bits set, on a short read or a negative count.
  char* ReadPayload(int count, int extra);

 private:
  template <class T>
  bool ReadNumber(T& value);
  // An unsigned short sent as one multibyte character with its count.
  void ReadCharacter(unsigned short& value);
};

/// Writing typed values. Each operator writes one value of its type in the
/// stream's form and returns the stream; bytes that the buffer does not take
/// add 4. One thread at a time.
class QUILLON_API bdtOStream : public virtual bdtStream {
 public:
  /// A writer on buffer, which it does not own; portable non-zero for the
  /// portable form.
  bdtOStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtOStream() override;  ///< Does not flush the buffer.

  bdtOStream& operator<<(char value);           ///< 1 byte.
  bdtOStream& operator<<(unsigned char value);  ///< 1 byte.
  bdtOStream& operator<<(short value);          ///< 4 bytes portable, 2 native.
  /// 4 bytes portable, 2 native; in the multibyte mode a character with its
  /// count, and a value that the locale cannot express adds 2 and writes
  /// nothing.
  bdtOStream& operator<<(unsigned short value);
  bdtOStream& operator<<(int value);            ///< 4 bytes.
  bdtOStream& operator<<(unsigned int value);   ///< 4 bytes.
  ///@{
  /// 4 bytes on every host, as int and unsigned int: a value outside their
  /// range adds 4 and writes nothing.
  bdtOStream& operator<<(long value);
  bdtOStream& operator<<(unsigned long value);
  ///@}
  bdtOStream& operator<<(float value);   ///< 4 bytes.
  bdtOStream& operator<<(double value);  ///< 8 bytes.
  /// An int32 count, then the bytes, with no terminator; null: the count -1.
  /// Portable: the neutral text, and text with no neutral form goes out as a
  /// null string.
  bdtOStream& operator<<(char const* text);
  /// An int32 count, then the multibyte text and a terminator byte, which the
  /// count includes; null: the count -1. Portable: the neutral text, and text
  /// with no neutral form goes out as the count 0. Text that the locale
  /// cannot express adds 2 and writes no text.
  bdtOStream& operator<<(wchar_t const* text);
  /// Applies a manipulator such as flush.
  bdtOStream& operator<<(bdtOStream& (*manipulator)(bdtOStream&)) { return manipulator(*this); }

  /// A raw block: the int32 prefix count, then the bytes as they are. A
  /// negative count goes out as the prefix and adds 4, since no bytes can
  /// follow it.
  bdtOStream& Write(char const* block, int count);

 protected:
  bdtOStream();  ///< Portable, no buffer: for bdtIOStream.

 private:
  template <class T>
  void WriteNumber(T value);
  template <class Wire, class T>
  bdtOStream& WriteAs32Bits(T value);
  void WriteCharacter(unsigned short value);
};

/// Both directions on one buffer, with one state word. One thread at a time.
class QUILLON_API bdtIOStream : public bdtIStream, public bdtOStream {
 public:
  bdtIOStream();  ///< Portable, no buffer.
  /// A stream on buffer, which it does not own, in the form that portable
  /// says.
  bdtIOStream(std::basic_streambuf<char>* buffer, bool portable);
  ~bdtIOStream() override;
};

/// A manipulator that returns its stream and does nothing else: in particular
/// it does not synchronise the buffer.
QUILLON_API bdtOStream& flush(bdtOStream& stream);

#endif
