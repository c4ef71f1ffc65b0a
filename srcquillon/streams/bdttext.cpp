// Text on the binary streams: the two string writers, the one string reader
// that takes both forms, and 16-bit values sent as multibyte characters.
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>

#include "bdtstream.h"
#include "mbxtext.h"
#include "ombtext.h"
#include "vektext.h"

namespace {

constexpr std::size_t conversionFailed = static_cast<std::size_t>(-1);

// Whether a wide character needs more than 16 bits; never where wchar_t has
// 16 (Windows), which the test is left out for.
template <class Wide>
bool BeyondSixteenBits(Wide character) {
  if constexpr (sizeof(Wide) > 2) {
    return static_cast<std::uint32_t>(character) > 0xFFFF;
  } else {
    return false;
  }
}

// Every array here comes from new[]: the text conversions hand theirs over
// the same way.
using Owned = std::unique_ptr<char[]>;

// Text of ASCII bytes only, up to its terminator. Every locale that the
// library runs in (the C library's and Windows' alike) encodes ASCII as
// itself, as does the neutral form, and every conversion between them gives
// the same bytes back. Such text takes a short way through the writers and
// the reader, with exactly the result of the long one.
// The test looks at all `length` bytes, a terminator included, eight at a
// time.
bool IsAscii(char const* text, std::size_t length) {
  std::uint64_t seen = 0;
  std::size_t i = 0;
  for (; i + 8 <= length; i += 8) {
    std::uint64_t word;
    std::memcpy(&word, text + i, 8);
    seen |= word;
  }
  for (; i < length; ++i) seen |= static_cast<unsigned char>(text[i]);
  return (seen & 0x8080808080808080ull) == 0;
}

}  // namespace

// ---------------------------------------------------------------------------
// Counts

unsigned int bdtBase::Length(wchar_t const* text, int) {
  if (text == nullptr) return 4;
  return static_cast<unsigned int>(vek_wcstombs(nullptr, text, 0)) + 5u;
}

unsigned int bdtBase::Length(wchar_t character, int portable, int multibyte) {
  if (portable == 0 || multibyte == 0) return 2;
  char bytes[MB_LEN_MAX];
  return 4u + static_cast<unsigned int>(vek_wctomb(bytes, character));
}

// ---------------------------------------------------------------------------
// Writers

bdtOStream& bdtOStream::operator<<(char const* text) {
  if (text == nullptr) return *this << -1;
  int const length = Strlen(text);
  if (portable == 0 || IsAscii(text, static_cast<std::size_t>(length))) return Write(text, length);
  Owned neutral(mbxNativeToNeut(text));
  if (neutral.get() == nullptr) return *this << -1;  // goes out as a null string
  return Write(neutral.get(), Strlen(neutral.get()));
}

bdtOStream& bdtOStream::operator<<(wchar_t const* text) {
  if (text == nullptr) return *this << -1;
  std::size_t const n = vek_wcstombs(nullptr, text, 0);
  if (n == conversionFailed) {
    setstate(2);
    return *this;
  }
  Owned native(new char[n + 2]);
  native.get()[n] = 0;
  if (vek_wcstombs(native.get(), text, n + 2) != n) {
    setstate(2);
    return *this;
  }
  if (portable == 0 || IsAscii(native.get(), n)) return Write(native.get(), static_cast<int>(n) + 1);
  // Text with no neutral form goes out as the count 0 and nothing else.
  Owned neutral(mbxNativeToNeut(native.get()));
  int const length = neutral.get() != nullptr ? Strlen(neutral.get()) : -1;
  return Write(neutral.get(), length + 1);
}

void bdtOStream::WriteCharacter(unsigned short value) {
  char bytes[MB_LEN_MAX];
  int const n = vek_wctomb(bytes, static_cast<wchar_t>(value));
  if (n < 0) {
    setstate(2);
    return;
  }
  Write(bytes, n);
}

// ---------------------------------------------------------------------------
// Readers

void bdtIStream::ReadCharacter(unsigned short& value) {
  int n;
  if (!ReadPrefix(n)) return;
  Owned bytes(ReadPayload(n, 0));
  if (bytes.get() == nullptr) return;
  wchar_t character;
  int const used = vek_mbtowc(&character, bytes.get(), static_cast<std::size_t>(n));
  if (used >= 0) value = static_cast<unsigned short>(character);
  // A character beyond 16 bits cannot be represented: like a short out of
  // range, the target keeps the low bits and the state says so.
  if (used != n || BeyondSixteenBits(character)) setstate(2);
}

bdtIStream& bdtIStream::operator>>(dsString& value) {
  int n;
  if (!ReadPrefix(n)) return *this;
  if (n < 0) {
    value = static_cast<char const*>(nullptr);
    return *this;
  }
  Owned wire(ReadPayload(n, 1));
  if (wire.get() == nullptr) return *this;  // a short payload: nothing to convert
  wire.get()[n] = 0;
  if (IsAscii(wire.get(), static_cast<std::size_t>(n))) {
    value = wire.get();
    return *this;
  }

  // Through wide text, so that the target gets what its wide constructor
  // makes of the text; a terminator sent by a wide writer ends it there.
  std::size_t count;
  char* native;
  Owned converted(portable != 0 ? mbxNeutToNative(wire.get()) : nullptr);
  if (portable != 0) {
    if (converted.get() == nullptr) {
      setstate(2);
      return *this;
    }
    count = static_cast<std::size_t>(n);
    native = converted.get();
  } else {
    count = vek_mbstowcs(nullptr, wire.get(), static_cast<std::size_t>(n));
    if (count == conversionFailed) {
      setstate(2);
      return *this;
    }
    native = wire.get();
  }
  // The last wide character stays 0 whatever the conversion stores.
  std::unique_ptr<wchar_t[]> wide(new wchar_t[count + 1]);
  wide[count] = 0;
  std::size_t const produced = vek_mbstowcs(wide.get(), native, count);
  bool const failed = portable != 0 ? produced == conversionFailed : produced != count;
  if (failed) {
    setstate(2);
  } else {
    value = dsString(wide.get());
  }
  return *this;
}
