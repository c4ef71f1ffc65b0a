// Neutral text: any bytes as native and as neutral text, any 32-bit values as
// wide text, and any block of pieces, in a UTF-8 locale and in the C locale.
// The neutral codec must agree with a plain UTF-8 reader and writer and fill
// no more than its documented room; a neutral spelling must be strict UTF-8
// and lead back to the native text it came from; and the single-character and
// block forms must be what the whole-string form gives piece by piece.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <memory>
#include <string>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"
#include "vektext.h"

namespace {

using Owned = std::unique_ptr<char[]>;
std::uint32_t const kReplacement = 0xFFFD;

std::string Text(char const* owned) { return owned == nullptr ? "<null>" : std::string(owned); }

// Whether a value is a character: no surrogate, nothing above U+10FFFF.
bool IsCharacter(std::uint32_t value) { return value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF); }

// The plain UTF-8 reader of neutral text: a byte that does not begin a
// well-formed character (stray, overlong, cut short, a surrogate, above
// U+10FFFF) stands for U+FFFD on its own, and makes the text malformed.
std::vector<std::uint32_t> ReadNeutral(std::string const& text, bool* whole = nullptr) {
  if (whole != nullptr) *whole = true;
  std::vector<std::uint32_t> wide;
  for (std::size_t i = 0; i < text.size();) {
    unsigned char const lead = static_cast<unsigned char>(text[i]);
    std::size_t const trail = lead < 0x80 ? 0 : lead >= 0xC0 && lead < 0xE0 ? 1 : lead >= 0xE0 && lead < 0xF0 ? 2 : lead >= 0xF0 && lead < 0xF8 ? 3 : 9;
    std::uint32_t value = trail == 0 ? lead : lead & (0x3Fu >> trail);
    bool good = trail != 9 && text.size() - i > trail;
    for (std::size_t k = 1; good && k <= trail; ++k) {
      unsigned char const next = static_cast<unsigned char>(text[i + k]);
      good = (next & 0xC0) == 0x80;
      value = value << 6 | (next & 0x3Fu);
    }
    std::uint32_t const least[] = {0, 0x80, 0x800, 0x10000};
    good = good && value >= least[trail] && IsCharacter(value);
    if (!good && whole != nullptr) *whole = false;
    wide.push_back(good ? value : kReplacement);
    i += good ? trail + 1 : 1;
  }
  return wide;
}

// The plain UTF-8 writer: a value that is no character becomes U+FFFD, and
// makes the text incomplete.
std::string WriteNeutral(std::vector<std::uint32_t> const& wide, bool* whole) {
  std::string text;
  *whole = true;
  for (std::uint32_t c : wide) {
    if (!IsCharacter(c)) {
      c = kReplacement;
      *whole = false;
    }
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if (c < 0x800) {
      text += static_cast<char>(0xC0 | c >> 6);
      text += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      text += static_cast<char>(0xE0 | c >> 12);
      text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      text += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      text += static_cast<char>(0xF0 | c >> 18);
      text += static_cast<char>(0x80 | (c >> 12 & 0x3F));
      text += static_cast<char>(0x80 | (c >> 6 & 0x3F));
      text += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return text;
}

// The codec of the lower library, in buffers of exactly the documented room.
void CheckCodec(std::string const& neutral, std::vector<std::uint32_t> const& values) {
  std::unique_ptr<wchar_t[]> wide(new wchar_t[neutral.size() + 1]);
  int const count = mbxNeutToWide(neutral.c_str(), wide.get());
  bool readWhole = true;
  std::vector<std::uint32_t> const expected = ReadNeutral(neutral, &readWhole);
  // Malformed text is still written out, with U+FFFD, but answers -1.
  FUZZ_CHECK(count == (readWhole ? static_cast<int>(expected.size()) : -1) && wide[expected.size()] == 0);
  for (std::size_t i = 0; i < expected.size(); ++i) FUZZ_CHECK(static_cast<std::uint32_t>(wide[i]) == expected[i]);

  std::vector<wchar_t> text;
  for (std::uint32_t v : values) text.push_back(static_cast<wchar_t>(v));
  text.push_back(0);
  std::size_t const length = std::wcslen(text.data());
  std::unique_ptr<char[]> out(new char[4 * length + 1]);
  int const written = mbxWideToNeut(out.get(), text.data());
  std::vector<std::uint32_t> const given(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(length));
  bool writtenWhole = true;
  std::string const spelled = WriteNeutral(given, &writtenWhole);
  FUZZ_CHECK(written == (writtenWhole ? static_cast<int>(spelled.size()) : -1) && out.get() == spelled);
  // Back again: every character as it was, a value that is none as U+FFFD.
  std::vector<std::uint32_t> const back = ReadNeutral(spelled);
  FUZZ_CHECK(back.size() == given.size());
  for (std::size_t i = 0; i < given.size(); ++i) FUZZ_CHECK(back[i] == (IsCharacter(given[i]) ? given[i] : kReplacement));
}

// Native to neutral and back, for text without a byte 0.
void CheckWhole(std::string const& text, bool utf8) {
  Owned const neutral(mbxNativeToNeut(text.c_str()));
  Owned const native(mbxNeutToNative(text.c_str()));
  if (fuzz::IsAscii(text)) {  // every locale spells ASCII as the neutral form does
    FUZZ_CHECK(Text(neutral.get()) == text && Text(native.get()) == text);
  }
  if (neutral != nullptr) {
    // One text, one spelling: the neutral form is strict and leads back.
    FUZZ_CHECK(fuzz::IsStrictUtf8(neutral.get()));
    FUZZ_CHECK(Text(Owned(mbxNeutToNative(neutral.get())).get()) == text);
  }
  if (utf8) {
    FUZZ_CHECK((neutral != nullptr) == fuzz::IsStrictUtf8(text));
    if (neutral != nullptr) FUZZ_CHECK(neutral.get() == text);
    // Neutral text reaches native form as it is when it is well formed, and
    // not at all when it is malformed.
    FUZZ_CHECK(Text(native.get()) == (fuzz::IsStrictUtf8(text) ? text : "<null>"));
  }
}

// The first character alone, measured in the current locale. Outside UTF-8
// only an ASCII first character has a length that every host agrees on.
void CheckFirst(std::string const& text, bool utf8) {
  if (!utf8 && !fuzz::IsAscii(text.substr(0, 1))) return;
  std::mbstate_t state{};
  std::size_t const length = std::mbrlen(text.c_str(), 4, &state);
  bool const invalid = length == static_cast<std::size_t>(-1) || length == static_cast<std::size_t>(-2);
  std::string const first = invalid ? "" : text.substr(0, length);
  Owned const toNeutral(mbcNativeToNeut(text.c_str()));
  Owned const toNative(mbcNeutToNative(text.c_str()));
  FUZZ_CHECK(Text(toNeutral.get()) == (invalid ? "<null>" : Text(Owned(mbxNativeToNeut(first.c_str())).get())));
  FUZZ_CHECK(Text(toNative.get()) == (invalid ? "<null>" : Text(Owned(mbxNeutToNative(first.c_str())).get())));
}

// The block form against the whole-string form, piece by piece: the pieces
// listed each behind the last one's terminator, and one more byte 0.
void CheckBlock(std::string const& block) {
  std::string list;
  bool failed = false;
  for (std::size_t offset = 0; !block.empty();) {
    std::string const piece = block.substr(offset, block.find('\0', offset) - offset);
    Owned const converted(mbxNativeToNeut(piece.c_str()));
    if (converted == nullptr || list.size() + std::strlen(converted.get()) + 2 > static_cast<std::size_t>(mbxBlockLimit)) {
      failed = true;
      break;
    }
    list += std::string(converted.get()) + '\0';
    offset += piece.size();
    if (offset >= block.size()) break;
    ++offset;
  }
  list += '\0';
  Owned const result(mbxNativeToNeut(block.data(), static_cast<int>(block.size())));
  FUZZ_CHECK((result == nullptr) == failed);
  if (result != nullptr) FUZZ_CHECK(std::memcmp(result.get(), list.data(), list.size()) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The block form reports an overlong list on the standard output.
  FUZZ_CHECK(std::freopen("/dev/null", "w", stdout) != nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  bool const utf8 = input.ConsumeBool();
  fuzz::UseLocale(utf8);
  std::size_t const repeat = input.ConsumeIntegralInRange<std::size_t>(1, 64);
  std::vector<std::uint32_t> values(input.ConsumeIntegralInRange<std::size_t>(0, 8));
  for (std::uint32_t& v : values) {
    // Mostly characters and their edges, sometimes any value at all.
    v = input.ConsumeBool() ? input.ConsumeIntegral<std::uint32_t>() : input.ConsumeIntegralInRange<std::uint32_t>(1, 0x110001);
  }
  std::string const bytes = input.ConsumeRemainingBytesAsString();
  std::string const text = bytes.substr(0, bytes.find('\0'));

  CheckCodec(text, values);
  CheckWhole(text, utf8);
  CheckFirst(text, utf8);
  std::string block;
  for (std::size_t i = 0; i < repeat; ++i) block += bytes;
  CheckBlock(block);
  return 0;
}
