// quillon binary streams: typed values written to and read from any
// std::basic_streambuf<char>, in one of two wire forms chosen per stream.
//
// Portable form: numbers big-endian, 16-bit values widened to 4 bytes, long
// and unsigned long 4 bytes, text in the neutral encoding. Native form: the
// host's own bytes (long and unsigned long still 4 bytes). Values follow each
// other with no header, tag or padding; reader and writer agree on order,
// types and form.
//
// A stream never owns its buffer: no destructor flushes or releases it.
// Nothing is thrown of the library's own accord and nothing is printed; every
// failure is a bit of the state word, which only ever gains bits:
//   1  end of input (always together with 2): fewer bytes than a value needs
//   2  failed: a value arrived that cannot be represented, or text did not convert
//   4  broken: fewer bytes could be written than a value needs
// Operations do not look at the state before they act.
//
// Counts that arrive on the wire are not trusted: a reader allocates in steps
// as the bytes come, never the whole announced count up front, and a negative
// count allocates nothing.
#ifndef BDTSTREAM_H
#define BDTSTREAM_H

#include <atomic>
#include <streambuf>

#include "quillonbase.h"
#include "dsstring.h"

class QUILLON_API bdtBase {
 public:
  bdtBase();
  virtual ~bdtBase();

  // 1 on a big-endian host, else 0; computed on every call.
  static int IsByteOrderOK();
  // Reverse 4 or 8 bytes in place, unless the byte-order latch says that the
  // host is big-endian.
  static void Swap4(char* bytes);
  static void Swap8(char* bytes);

  // The number of wire bytes of a value. The string overloads ignore the
  // form and count native bytes.
  static unsigned int Length(char value, int portable);
  static unsigned int Length(unsigned char value, int portable);
  static unsigned int Length(short value, int portable);           // 4 portable, 2 native
  static unsigned int Length(unsigned short value, int portable);  // 4 portable, 2 native
  static unsigned int Length(int value, int portable);
  static unsigned int Length(unsigned int value, int portable);
  static unsigned int Length(float value, int portable);
  static unsigned int Length(double value, int portable);
  static unsigned int Length(char const* text, int portable);  // 4 for null, else strlen + 4
  // 4 for null, else 4 + the native multibyte count + the terminator.
  static unsigned int Length(wchar_t const* text, int portable);
  // With both flags set, 4 + the multibyte count of the character; else 2.
  static unsigned int Length(wchar_t character, int portable, int multibyte);

 protected:
  // The byte-order latch: set by the first construction of any stream, read
  // by every swap. Atomic, because streams may be built on several threads at
  // once; every thread stores the same values.
  static std::atomic<int> byteOrderOK;  // 0 until computed
  static std::atomic<int> firstUse;     // 1 until the first construction
};

class QUILLON_API bdtStream : public bdtBase {
 public:
  bdtStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtStream() override;

  int rdstate() const { return state; }
  void setstate(int bits) { state |= bits; }
  // Non-zero, on a portable stream: unsigned short values travel as
  // multibyte characters of the current locale (an int32 count, then the
  // bytes). Off after construction.
  void setMultibyte(int on) { multibyte = on; }

  // The buffer's sgetn and sputn; a count other than n adds 3 (reading) or 4
  // (writing) to the state. A stream without a buffer moves no bytes.
  int sgetn(char* bytes, int n) {
    int got = buffer != nullptr && n > 0 ? static_cast<int>(buffer->sgetn(bytes, n)) : 0;
    if (got != n) setstate(3);
    return got;
  }
  int sputn(char const* bytes, int n) {
    int put = buffer != nullptr && n > 0 ? static_cast<int>(buffer->sputn(bytes, n)) : 0;
    if (put != n) setstate(4);
    return put;
  }

  void Swap4(char* bytes) { bdtBase::Swap4(bytes); }
  void Swap8(char* bytes) { bdtBase::Swap8(bytes); }

 protected:
  bdtStream();  // portable, no buffer

  int state;
  int portable;
  int multibyte;
  std::basic_streambuf<char>* buffer;
};

class QUILLON_API bdtIStream : public virtual bdtStream {
 public:
  bdtIStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtIStream() override;

  bdtIStream& operator>>(char& value);
  bdtIStream& operator>>(unsigned char& value);
  // Portable: a 32-bit value whose low 16 bits are kept; one that does not
  // fit adds 2, and the target keeps the low 16 bits.
  bdtIStream& operator>>(short& value);
  bdtIStream& operator>>(unsigned short& value);
  bdtIStream& operator>>(int& value);
  bdtIStream& operator>>(unsigned int& value);
  bdtIStream& operator>>(long& value);           // 4 bytes, sign-extended
  bdtIStream& operator>>(unsigned long& value);  // 4 bytes, zero-extended
  bdtIStream& operator>>(float& value);
  bdtIStream& operator>>(double& value);
  // Text in either string form. A negative prefix (a null string) empties
  // the target; text that does not convert adds 2 and leaves it alone.
  bdtIStream& operator>>(dsString& value);

  // A raw block: count receives the prefix, block a new[] array of that many
  // bytes (non-null also for 0 bytes), released by the caller with delete[].
  // A short payload or a negative prefix leaves block null; count keeps the
  // prefix. A short prefix leaves both alone.
  bdtIStream& Read(char*& block, int& count);

 protected:
  bdtIStream();

  // Reads the int32 prefix of a string or block. False on a short read.
  bool ReadPrefix(int& count);
  // A new[] array of count + extra bytes whose first count bytes were read
  // from the buffer, grown in steps as bytes arrive. Null, with the state
  // bits set, on a short read or a negative count.
  char* ReadPayload(int count, int extra);

 private:
  template <class T>
  bool ReadNumber(T& value);
  // An unsigned short sent as one multibyte character with its count.
  void ReadCharacter(unsigned short& value);
};

class QUILLON_API bdtOStream : public virtual bdtStream {
 public:
  bdtOStream(std::basic_streambuf<char>* buffer, int portable);
  ~bdtOStream() override;

  bdtOStream& operator<<(char value);
  bdtOStream& operator<<(unsigned char value);
  bdtOStream& operator<<(short value);
  bdtOStream& operator<<(unsigned short value);
  bdtOStream& operator<<(int value);
  bdtOStream& operator<<(unsigned int value);
  // 4 bytes on every host, as int and unsigned int: a value outside their
  // range adds 4 and writes nothing.
  bdtOStream& operator<<(long value);
  bdtOStream& operator<<(unsigned long value);
  bdtOStream& operator<<(float value);
  bdtOStream& operator<<(double value);
  // An int32 count, then the bytes, with no terminator; null: the count -1.
  // Portable: the neutral text, and text with no neutral form goes out as a
  // null string.
  bdtOStream& operator<<(char const* text);
  // An int32 count, then the multibyte text and a terminator byte, which the
  // count includes; null: the count -1. Portable: the neutral text, and text
  // with no neutral form goes out as the count 0. Text that the locale
  // cannot express adds 2 and writes no text.
  bdtOStream& operator<<(wchar_t const* text);
  bdtOStream& operator<<(bdtOStream& (*manipulator)(bdtOStream&)) { return manipulator(*this); }

  // A raw block: the int32 prefix count, then the bytes as they are.
  bdtOStream& Write(char const* block, int count);

 protected:
  bdtOStream();

 private:
  template <class T>
  void WriteNumber(T value);
  template <class Wire, class T>
  bdtOStream& WriteAs32Bits(T value);
  void WriteCharacter(unsigned short value);
};

// Both directions on one buffer, with one state word.
class QUILLON_API bdtIOStream : public bdtIStream, public bdtOStream {
 public:
  bdtIOStream();  // portable, no buffer
  bdtIOStream(std::basic_streambuf<char>* buffer, bool portable);
  ~bdtIOStream() override;
};

// A manipulator that returns its stream and does nothing else: in particular
// it does not synchronise the buffer.
QUILLON_API bdtOStream& flush(bdtOStream& stream);

#endif
