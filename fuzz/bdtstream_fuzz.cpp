// Binary streams: any bytes read as a sequence of typed values, in the
// portable or the native form. Every value that reads without a failure is
// written back and must give the bytes it came from (text and 16-bit values
// where their wire form allows it, and otherwise the same value again); a
// failure leaves the target as it was; a short read drains the buffer; and no
// count on the wire becomes an allocation larger than what arrived.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <memory>
#include <sstream>
#include <string>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

enum class Kind { Char, UChar, Short, UShort, Int, UInt, Long, ULong, Float, Double, Text, Block, kMaxValue = Block };

struct Form {
  int portable;
  int multibyte;
  bool utf8;
};

// The bytes a writer of this form gives for whatever write does.
template <class Write>
std::string Encode(Form form, Write write) {
  std::stringbuf out;
  bdtOStream writer(&out, form.portable);
  writer.setMultibyte(form.multibyte);
  write(writer);
  FUZZ_CHECK(writer.rdstate() == 0);
  return out.str();
}

std::int32_t Prefix(Form form, std::string const& wire) {
  std::uint32_t raw;
  std::memcpy(&raw, wire.data(), 4);
  if (form.portable != 0) raw = __builtin_bswap32(raw);
  return static_cast<std::int32_t>(raw);
}

// Whether text must read back and write out unchanged, in either form:
// ASCII everywhere, and strict UTF-8 in a UTF-8 locale. Other text may still
// read; it must then be its own fixed point.
bool TextSurvives(Form form, std::string const& text) {
  return fuzz::IsAscii(text) || (form.utf8 && fuzz::IsStrictUtf8(text));
}

// The wide character that the multibyte bytes stand for, or -1.
long DecodeCharacter(std::string const& bytes) {
  std::mbstate_t state{};
  wchar_t c = 0;
  std::size_t used = std::mbrtowc(&c, bytes.data(), bytes.size(), &state);
  return used == bytes.size() && bytes.size() != 0 ? static_cast<long>(c) : -1;
}

template <class T>
void CheckNumber(bdtIStream& reader, Form form, std::string const& wire, std::size_t before, T sentinel) {
  T value = sentinel;
  reader >> value;
  if (reader.rdstate() != 0) {
    FUZZ_CHECK(reader.rdstate() == 3);
    FUZZ_CHECK(std::memcmp(&value, &sentinel, sizeof value) == 0);  // a short read stores nothing
    return;
  }
  std::string const encoded = Encode(form, [&](bdtOStream& w) { w << value; });
  FUZZ_CHECK(encoded == wire.substr(before, encoded.size()));
}

// One value of the kind from the buffer, in a stream of its own so that its
// state bits are its own.
void ReadOne(Kind kind, Form form, std::stringbuf& buffer, std::string const& wire) {
  std::size_t const before = static_cast<std::size_t>(buffer.pubseekoff(0, std::ios::cur, std::ios::in));
  bdtIStream reader(&buffer, form.portable);
  reader.setMultibyte(form.multibyte);
  std::string const rest = wire.substr(before);

  switch (kind) {
    case Kind::Char: CheckNumber<char>(reader, form, wire, before, 'q'); break;
    case Kind::UChar: CheckNumber<unsigned char>(reader, form, wire, before, 0xA5); break;
    case Kind::Short: {
      short value = 0x1234;
      reader >> value;
      if (form.portable != 0 && rest.size() >= 4) {
        std::int32_t const wide = Prefix(form, rest);
        FUZZ_CHECK(value == static_cast<short>(wide));  // the low 16 bits, also when out of range
        FUZZ_CHECK(reader.rdstate() == (wide == static_cast<short>(wide) ? 0 : 2));
      }
      if (reader.rdstate() == 0)
        FUZZ_CHECK(Encode(form, [&](bdtOStream& w) { w << value; }) == wire.substr(before, form.portable != 0 ? 4 : 2));
      break;
    }
    case Kind::UShort: {
      unsigned short value = 0x1234;
      reader >> value;
      if (form.multibyte != 0) {
        // A count, then one character of the locale that must fit 16 bits.
        if (rest.size() < 4 || Prefix(form, rest) < 0) break;
        std::size_t const count = static_cast<std::size_t>(Prefix(form, rest));
        long const character = rest.size() - 4 >= count ? DecodeCharacter(rest.substr(4, count)) : -1;
        if (character > 0xFFFF) FUZZ_CHECK(reader.rdstate() == 2 && value == static_cast<unsigned short>(character));
        if (character >= 0 && character <= 0xFFFF) {
          FUZZ_CHECK(reader.rdstate() == 0 && value == character);
          FUZZ_CHECK(Encode(form, [&](bdtOStream& w) { w << value; }) == rest.substr(0, 4 + count));
        }
        break;
      }
      if (reader.rdstate() != 0) {
        FUZZ_CHECK(reader.rdstate() == 3 && value == 0x1234);
        break;
      }
      std::string const encoded = Encode(form, [&](bdtOStream& w) { w << value; });
      // Native: two bytes. Portable: four, the low two kept, with no range check.
      FUZZ_CHECK(encoded == (form.portable == 0 ? wire.substr(before, 2) : std::string(2, '\0') + rest.substr(2, 2)));
      break;
    }
    case Kind::Int: CheckNumber<int>(reader, form, wire, before, 0x5A5A5A5A); break;
    case Kind::UInt: CheckNumber<unsigned int>(reader, form, wire, before, 0xA5A5A5A5u); break;
    case Kind::Long: CheckNumber<long>(reader, form, wire, before, 0x7E57L); break;
    case Kind::ULong: CheckNumber<unsigned long>(reader, form, wire, before, 0x7E57UL); break;
    case Kind::Float: CheckNumber<float>(reader, form, wire, before, 1.5f); break;
    case Kind::Double: CheckNumber<double>(reader, form, wire, before, -2.25); break;
    case Kind::Text: {
      char const sentinel[] = "sentinel \xC3\xA9";
      dsString value(sentinel);
      reader >> value;
      if (rest.size() < 4) {
        FUZZ_CHECK(reader.rdstate() == 3 && std::strcmp(value, sentinel) == 0);
        break;
      }
      std::int32_t const count = Prefix(form, rest);
      if (count < 0) {  // a null string: emptied, nothing more read
        FUZZ_CHECK(reader.rdstate() == 0 && value.IsEmpty());
        FUZZ_CHECK(buffer.pubseekoff(0, std::ios::cur, std::ios::in) == std::streamoff(before + 4));
        break;
      }
      if (reader.rdstate() != 0) {
        FUZZ_CHECK(std::strcmp(value, sentinel) == 0);
        FUZZ_CHECK(reader.rdstate() == 2 || reader.rdstate() == 3);
        if (reader.rdstate() == 2) {
          std::string const payload = rest.substr(4, static_cast<std::size_t>(count));
          FUZZ_CHECK(!TextSurvives(form, payload.substr(0, payload.find('\0'))));
        }
        break;
      }
      // The text ends at its first byte 0 (a wide writer's terminator).
      std::string payload = rest.substr(4, static_cast<std::size_t>(count));
      payload = payload.substr(0, payload.find('\0'));
      std::string const encoded = Encode(form, [&](bdtOStream& w) { w << static_cast<char const*>(value); });
      if (TextSurvives(form, payload)) {
        FUZZ_CHECK(std::string(value) == payload);
        FUZZ_CHECK(encoded.substr(4) == payload);
      }
      // Whatever the reader made of the text is its own fixed point.
      std::stringbuf again(encoded);
      bdtIStream rereader(&again, form.portable);
      dsString copy;
      rereader >> copy;
      FUZZ_CHECK(rereader.rdstate() == 0 && std::strcmp(copy, value) == 0);
      FUZZ_CHECK(Encode(form, [&](bdtOStream& w) { w << static_cast<char const*>(copy); }) == encoded);
      break;
    }
    case Kind::Block: {
      char* block = nullptr;
      int count = 0x7E57;
      reader.Read(block, count);
      std::unique_ptr<char[]> owned(block);
      if (rest.size() < 4) {  // no prefix: both left alone
        FUZZ_CHECK(reader.rdstate() == 3 && count == 0x7E57 && block == nullptr);
        break;
      }
      FUZZ_CHECK(count == Prefix(form, rest));
      if (reader.rdstate() != 0) {
        FUZZ_CHECK(block == nullptr);
        FUZZ_CHECK(reader.rdstate() == (count < 0 ? 2 : 3));
        break;
      }
      FUZZ_CHECK(block != nullptr);
      std::string const encoded = Encode(form, [&](bdtOStream& w) { w.Write(block, count); });
      FUZZ_CHECK(encoded == rest.substr(0, 4 + static_cast<std::size_t>(count)));
      break;
    }
  }
  // A value cut short takes what was there: the buffer is drained.
  if ((reader.rdstate() & 1) != 0) FUZZ_CHECK(buffer.in_avail() <= 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  Form form{};
  form.portable = input.ConsumeBool() ? 1 : 0;
  form.multibyte = form.portable != 0 && input.ConsumeBool() ? 1 : 0;
  form.utf8 = input.ConsumeBool();
  fuzz::UseLocale(form.utf8);
  Kind kinds[16];
  std::size_t const count = input.ConsumeIntegralInRange<std::size_t>(1, 16);
  for (std::size_t i = 0; i < count; ++i) kinds[i] = input.ConsumeEnum<Kind>();
  std::string const wire = input.ConsumeRemainingBytesAsString();

  fuzz::AllocationWatch watch;
  std::stringbuf buffer(wire, std::ios::in);
  for (std::size_t i = 0; i < count; ++i) ReadOne(kinds[i], form, buffer, wire);
  // The first step of a payload is 64 KiB; beyond it memory follows the bytes.
  FUZZ_CHECK(watch.Largest() <= 64 * 1024 + 64 + 8 * size);
  return 0;
}
