// Paths: any texts as neutral paths, names and native paths, in a UTF-8 and
// in the C locale. Construction, the join, the four head and tail operations,
// the native form and its trimming must agree with a plain model of the rules
// written on std::string; nothing is ever cut, every object stays terminated
// inside its array, and an operation whose target is its own object gives
// what it gives into another one.
#include <fuzzer/FuzzedDataProvider.h>

#include <cctype>
#include <cstdint>
#include <cstring>
#include <string>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

std::size_t const kRoom = static_cast<std::size_t>(pfuPathSize);

bool IsSep(char c) { return c == '|' || c == '\\' || c == '/'; }
bool IsUnixAbs(std::string const& p) { return !p.empty() && (p[0] == '/' || p[0] == '|'); }
bool IsWinAbs(std::string const& p) {
  return p.size() >= 3 && std::isalpha(static_cast<unsigned char>(p[0])) && p[1] == ':' && (p[2] == '|' || p[2] == '\\');
}
bool IsAbs(std::string const& p) { return IsUnixAbs(p) || IsWinAbs(p); }
std::size_t RelStart(std::string const& p) { return IsUnixAbs(p) ? 1 : IsWinAbs(p) ? 3 : 0; }

// The text an object holds, which must end inside its array.
template <class Path>
std::string Held(Path const& object) {
  static_assert(sizeof(Path) == kRoom, "a path object is its array");
  char const* text = object;
  FUZZ_CHECK(std::memchr(text, 0, kRoom) != nullptr);
  return text;
}

std::string Copied(std::string const& text) { return text.size() >= kRoom ? "" : text; }

std::string Joined(std::string const& path, std::string const& right) {
  if (right.empty()) return path;
  if (path.empty()) return right;
  if (path.size() + right.size() + 2 >= kRoom) return path;
  return path + (path.back() == '|' ? "" : "|") + right;
}

// Whether a text is refused as a path object's content: it does not fit.
bool Refused(std::string const& text) { return text.size() >= kRoom; }

// A join as the model has it; a refused side refuses the result, which then
// holds no path.
void CheckJoin(pfuDirPath const& result, std::string const& left, bool leftRefused, std::string const& right,
               bool rightRefused) {
  bool const refused = leftRefused || rightRefused;
  FUZZ_CHECK(result.IsRefused() == refused);
  FUZZ_CHECK(Held(result) == (refused ? "" : Joined(left, right)));
}

std::string FirstComponent(std::string const& p) {
  std::size_t const sep = p.find_first_of("|\\/");
  if (sep == std::string::npos) return p;
  return p.substr(0, IsAbs(p) ? sep + 1 : sep);
}

std::string AfterFirstComponent(std::string const& p) {
  if (IsAbs(p)) return p.substr(RelStart(p));
  std::size_t const sep = p.find_first_of("|\\/");
  return sep == std::string::npos ? "" : p.substr(sep + 1);
}

std::string BeforeLastComponent(std::string const& p) {
  std::size_t const rel = RelStart(p);
  std::size_t const sep = p.find_last_of("|\\/");
  return p.substr(0, sep != std::string::npos && sep >= rel ? sep : rel);
}

std::string LastComponent(std::string const& p) {
  std::size_t const sep = p.find_last_of("|\\/");
  return sep == std::string::npos ? p : p.substr(sep + 1);
}

// The length of the character at `at` by the library's own stepping (0 at
// the end and at an invalid sequence): what is modelled here is the rewrite
// and the trim, not the locale.
std::size_t StepEnd(std::string const& text, std::size_t at, std::size_t* length) {
  *length = at < text.size() ? static_cast<std::size_t>(mbxStepLength(text.c_str() + at)) : 0;
  return *length;
}

std::string Rewritten(std::string text, char separator) {
  std::size_t n;
  for (std::size_t at = 0; StepEnd(text, at, &n) != 0; at += n)
    if (IsSep(text[at])) text[at] = separator;
  return text;
}

std::string Trimmed(std::string text) {
  std::size_t at = 0, n;
  if (IsAbs(text)) {
    while (StepEnd(text, at, &n) != 0 && !IsSep(text[at])) at += n;
    while (StepEnd(text, at, &n) != 0 && IsSep(text[at])) at += n;
  }
  std::size_t cut = std::string::npos;
  for (; StepEnd(text, at, &n) != 0; at += n) {
    if (!IsSep(text[at])) cut = std::string::npos;
    else if (cut == std::string::npos) cut = at;
  }
  return cut == std::string::npos ? text : text.substr(0, cut);
}

std::string WithWildcard(std::string const& text) {
  char const native = VEK_NATIVE_SEPARATOR;
  std::string const added = !text.empty() && text.back() == native ? "*" : std::string(1, native) + "*";
  return text.size() + added.size() >= kRoom ? text : text + added;
}

// A text from the input, sometimes drawn out to the edge of the arrays.
std::string ConsumeText(FuzzedDataProvider& input) {
  std::string text = input.ConsumeRandomLengthString(48);
  text = text.substr(0, text.find('\0'));
  if (!text.empty() && input.ConsumeBool()) {
    std::size_t const length = input.ConsumeIntegralInRange<std::size_t>(kRoom - 40, kRoom + 8);
    while (text.size() < length) text += text;
    text.resize(length);
  }
  return text;
}

void CheckHeadsAndTails(pfuDirPath const& path) {
  std::string const p = Held(path);
  pfuDirEntry entry;
  entry = "untouched";
  pfuDirPath part("untouched");
  FUZZ_CHECK(path.GetHead(entry) == !p.empty() && Held(entry) == (p.empty() ? "untouched" : FirstComponent(p)));
  FUZZ_CHECK(path.GetTail(part) == !p.empty() && Held(part) == (p.empty() ? "untouched" : AfterFirstComponent(p)));
  FUZZ_CHECK(path.GetHead(part) == !p.empty() && Held(part) == (p.empty() ? "untouched" : BeforeLastComponent(p)));
  FUZZ_CHECK(path.GetTail(entry) == !p.empty() && Held(entry) == (p.empty() ? "untouched" : LastComponent(p)));

  // Into the object itself.
  pfuDirPath self = path;
  self.GetHead(self);
  FUZZ_CHECK(Held(self) == BeforeLastComponent(p));
  self = path;
  self.GetTail(self);
  FUZZ_CHECK(Held(self) == AfterFirstComponent(p));
  self = path;
  self += self;
  FUZZ_CHECK(Held(self) == Joined(p, p));
}

void CheckNative(std::string const& text) {
  pfuOSPath native(text.c_str());
  std::string const expected = Rewritten(Copied(text), VEK_NATIVE_SEPARATOR);
  FUZZ_CHECK(Held(native) == expected);
  pfuDirPath neutral("untouched");
  native.ToNeutral(neutral);
  FUZZ_CHECK(Held(neutral) == Rewritten(expected, '|'));

  pfuOSPath wild = native;
  wild.AddWildcard();
  FUZZ_CHECK(Held(wild) == (Refused(text) ? "" : WithWildcard(expected)));
  pfuOSPath trimmed = native;
  trimmed.TrimTrailSeps();
  FUZZ_CHECK(Held(trimmed) == Trimmed(expected));
  trimmed.TrimTrailSeps();  // trimming is done once and for all
  FUZZ_CHECK(Held(trimmed) == Trimmed(expected));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  fuzz::UseLocale(input.ConsumeBool());
  std::string const left = ConsumeText(input);
  std::string const right = ConsumeText(input);
  std::string const name = ConsumeText(input);

  for (std::string const& text : {left, right, name}) {
    FUZZ_CHECK(IsUnixStyleAbsPath(text.c_str()) == IsUnixAbs(text));
    FUZZ_CHECK(IsWinStyleAbsPath(text.c_str()) == IsWinAbs(text));
    FUZZ_CHECK(pfuIsStringPathAbsolute(text.c_str()) == IsAbs(text));
  }

  pfuDirPath a(left.c_str());
  pfuDirPath b;
  b = right.c_str();
  pfuDirEntry entry;
  entry = name.c_str();
  FUZZ_CHECK(Held(a) == Copied(left) && Held(b) == Copied(right) && Held(entry) == Copied(name));
  pfuDirEntry longer = entry;
  longer += right.c_str();
  std::string const appended = Copied(name) + right;
  // A refused entry stays refused through appends.
  FUZZ_CHECK(Held(longer) == (Refused(name) || right.empty() || appended.size() >= kRoom ? Copied(name) : appended));
  FUZZ_CHECK(a.IsRefused() == Refused(left) && b.IsRefused() == Refused(right));

  CheckJoin(pfuDirPath(a, b), Held(a), Refused(left), Held(b), Refused(right));
  pfuDirPath joined = a;
  joined += entry;
  CheckJoin(joined, Held(a), Refused(left), Held(entry), Refused(name));
  FUZZ_CHECK(Held(pfuDirPath(a, entry)) == Held(joined));

  CheckHeadsAndTails(a);
  CheckHeadsAndTails(joined);
  CheckNative(left);
  CheckNative(Held(joined));
  return 0;
}
