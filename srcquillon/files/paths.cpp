#include <cctype>
#include <cstring>

#include "fsshared.h"
#include "mbxtext.h"
#include "pfupath.h"
#include "vekfile.h"
#include "vektext.h"

namespace {

char const neutralSeparator = '|';

// A refused text leaves a path buffer empty with this byte behind its
// terminator; every write of an empty string clears that byte again. So the
// buffer keeps its size and tells "no path" from the empty path.
char const refusedMark = '\x7F';

bool IsRefusedBuffer(char const* buffer) { return buffer[0] == 0 && buffer[1] == refusedMark; }

void Refuse(char* buffer) {
  buffer[0] = 0;
  buffer[1] = refusedMark;
}

// Copies the n bytes at text (null when n is 0), and a terminator, into a
// path buffer.
void Store(char* buffer, char const* text, std::size_t n) {
  if (n == 0) {
    buffer[0] = buffer[1] = 0;
    return;
  }
  std::memmove(buffer, text, n);
  buffer[n] = 0;
}

// Copies text into a path buffer; a text too long refuses the buffer, a null
// one empties it.
void CopyInto(char* buffer, char const* text) {
  std::size_t length = text == nullptr ? 0 : std::strlen(text);
  if (length >= static_cast<std::size_t>(pfuPathSize)) {
    Refuse(buffer);
  } else {
    Store(buffer, text, length);
  }
}

// Appends text to a path buffer if the whole fits; else, and to a refused
// buffer, changes nothing.
void AppendInto(char* buffer, char const* text) {
  if (IsRefusedBuffer(buffer)) return;
  std::size_t used = std::strlen(buffer), length = text == nullptr ? 0 : std::strlen(text);
  if (length == 0 || used + length >= static_cast<std::size_t>(pfuPathSize)) return;
  Store(buffer + used, text, length);
}

// Multibyte stepping: only the first byte of each character is looked at.
void RewriteSeparators(char* text, char separator) {
  for (char* p = text; int n = mbxStepLength(p); p += n)
    if (issep(p)) *p = separator;
}

// The last separator in [begin, end), or null.
char const* LastSeparator(char const* begin, char const* end) {
  for (char const* p = end; p != begin; --p)
    if (issep(p - 1)) return p - 1;
  return nullptr;
}

char const* FirstSeparator(char const* text) {
  for (; *text != 0; ++text)
    if (issep(text)) return text;
  return nullptr;
}

}  // namespace

bool issep(char const* c) { return *c == '|' || *c == '\\' || *c == '/'; }

bool IsUnixStyleAbsPath(char const* text) { return text[0] == '/' || text[0] == '|'; }

bool IsWinStyleAbsPath(char const* text) {
  return std::isalpha(static_cast<unsigned char>(text[0])) && text[1] == ':' &&
         (text[2] == '|' || text[2] == '\\');
}

bool pfuIsStringPathAbsolute(char const* text) {
  return IsUnixStyleAbsPath(text) || IsWinStyleAbsPath(text);
}

// pfuDirEntry

pfuDirEntry& pfuDirEntry::operator=(char const* text) {
  CopyInto(entry, text);
  return *this;
}

pfuDirEntry& pfuDirEntry::operator+=(char const* text) {
  AppendInto(entry, text);
  return *this;
}

// pfuDirPath

pfuDirPath::pfuDirPath(char const* text) { CopyInto(path, text); }

pfuDirPath::pfuDirPath(pfuDirPath const& left, pfuDirPath const& right) : pfuDirPath(left) {
  Join(right);
}

pfuDirPath::pfuDirPath(pfuDirPath const& left, pfuDirEntry const& right) : pfuDirPath(left) {
  Join(right);
}

pfuDirPath& pfuDirPath::operator=(char const* text) {
  CopyInto(path, text);
  return *this;
}

pfuDirPath& pfuDirPath::operator+=(pfuDirPath const& right) {
  Join(right);
  return *this;
}

pfuDirPath& pfuDirPath::operator+=(pfuDirEntry const& right) {
  Join(right);
  return *this;
}

// right is the array of a path object, so its byte behind an empty string
// can be read.
void pfuDirPath::Join(char const* right) {
  if (IsRefusedBuffer(path)) return;
  if (IsRefusedBuffer(right)) {
    Refuse(path);
    return;
  }
  if (right[0] == 0) return;
  if (path[0] == 0) {
    std::memmove(path, right, std::strlen(right) + 1);
    return;
  }
  std::size_t used = std::strlen(path), length = std::strlen(right);
  // The same limit whether or not a separator goes in.
  if (used + length + 2 >= static_cast<std::size_t>(pfuPathSize)) return;
  // right may be this path itself: its terminator is overwritten below.
  if (path[used - 1] != neutralSeparator) path[used++] = neutralSeparator;
  std::memmove(path + used, right, length);
  path[used + length] = 0;
}

bool pfuDirPath::IsRefused() const { return IsRefusedBuffer(path); }

char const* pfuDirPath::GetRelPathStart() const {
  if (IsUnixStyleAbsPath(path)) return path + 1;
  if (IsWinStyleAbsPath(path)) return path + 3;
  return path;
}

void pfuDirPath::GetCurrentDir() {
  pfuOSPath native;
  native.GetCurrentDir();
  native.ToNeutral(*this);
}

void pfuDirPath::GetHomeDir() {
  pfuOSPath native;
  native.GetHomeDir();
  native.ToNeutral(*this);
}

bool pfuDirPath::GetHead(pfuDirEntry& head) const {
  if (IsEmpty()) return false;
  char const* separator = FirstSeparator(path);
  if (separator == nullptr) {
    Store(head.entry, path, std::strlen(path));
  } else {
    std::size_t n = static_cast<std::size_t>(separator - path);
    Store(head.entry, path, pfuIsStringPathAbsolute(path) ? n + 1 : n);
  }
  return true;
}

bool pfuDirPath::GetTail(pfuDirPath& tail) const {
  if (IsEmpty()) return false;
  char const* rest = path + std::strlen(path);
  if (pfuIsStringPathAbsolute(path)) {
    rest = GetRelPathStart();
  } else if (char const* separator = FirstSeparator(path)) {
    rest = separator + 1;
  }
  Store(tail.path, rest, std::strlen(rest));
  return true;
}

bool pfuDirPath::GetHead(pfuDirPath& head) const {
  if (IsEmpty()) return false;
  char const* relative = GetRelPathStart();
  char const* separator = LastSeparator(relative, path + std::strlen(path));
  char const* end = separator != nullptr ? separator : relative;
  Store(head.path, path, static_cast<std::size_t>(end - path));
  return true;
}

bool pfuDirPath::GetTail(pfuDirEntry& tail) const {
  if (IsEmpty()) return false;
  char const* end = path + std::strlen(path);
  char const* separator = LastSeparator(path, end);
  char const* begin = separator != nullptr ? separator + 1 : path;
  Store(tail.entry, begin, static_cast<std::size_t>(end - begin));
  return true;
}

// pfuOSPath

pfuOSPath::pfuOSPath(char const* text) {
  CopyInto(path, text);
  RewriteSeparators(path, VEK_NATIVE_SEPARATOR);
}

void pfuOSPath::ToNeutral(pfuDirPath& target) const {
  if (IsRefusedBuffer(path)) {
    Refuse(target.path);
    return;
  }
  target = path;
  RewriteSeparators(target.path, neutralSeparator);
}

char const* pfuFiles::WildcardFor(char const* native) {
  static char const wildcard[] = {VEK_NATIVE_SEPARATOR, '*', 0};
  std::size_t used = std::strlen(native);
  return used != 0 && native[used - 1] == VEK_NATIVE_SEPARATOR ? wildcard + 1 : wildcard;
}

void pfuOSPath::AddWildcard() { AppendInto(path, pfuFiles::WildcardFor(path)); }

void pfuOSPath::TrimTrailSeps() {
  char* p = path;
  int n;
  // A leading native separator is the root of the current drive on Windows
  // ("\"), which trimming must keep as it keeps "/" and "C:\".
  if (pfuIsStringPathAbsolute(path) || path[0] == VEK_NATIVE_SEPARATOR) {
    while ((n = mbxStepLength(p)) != 0 && !issep(p)) p += n;
    while ((n = mbxStepLength(p)) != 0 && issep(p)) p += n;
  }
  char* cut = nullptr;  // the first separator of the current run
  for (; (n = mbxStepLength(p)) != 0; p += n) {
    if (!issep(p)) cut = nullptr;
    else if (cut == nullptr) cut = p;
  }
  if (cut != nullptr) *cut = 0;
}

void pfuOSPath::GetCurrentDir() { uGetCurrentDirectory(pfuPathSize, path); }

void pfuOSPath::GetHomeDir() {
  char drive[4], home[256];
  unsigned driveLength = uGetEnvironmentVariable("HOMEDRIVE", drive, sizeof drive);
  unsigned homeLength = uGetEnvironmentVariable("HOMEPATH", home, sizeof home);
  if (driveLength >= 1 && driveLength < sizeof drive && homeLength >= 1 && homeLength < sizeof home) {
    CopyInto(path, drive);
    AppendInto(path, home);
  } else if (uGetHomeDirectory(pfuPathSize, path) == 0) {
    GetCurrentDir();
  }
}
