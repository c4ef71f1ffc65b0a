// Wildcards: Strmatch on any wide texts and patterns, and the pattern
// operations of directory reading over files whose names come from the
// input, made in a private directory. Every answer must agree with a plain
// matcher written here, where '*' is any run, '?' one character, and every
// other character itself, case counting.
#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"
#include "vektext.h"

namespace {

// The plain matcher: whether text from i matches pattern from j, remembered
// per pair so that many stars cost no more than the table.
template <class Char>
class Matcher {
 public:
  Matcher(std::basic_string<Char> text, std::basic_string<Char> pattern)
      : text(std::move(text)), pattern(std::move(pattern)),
        known((this->text.size() + 1) * (this->pattern.size() + 1), -1) {}

  bool Matches(std::size_t i = 0, std::size_t j = 0) {
    int& answer = known[i * (pattern.size() + 1) + j];
    if (answer < 0) {
      if (j == pattern.size()) answer = i == text.size();
      else if (pattern[j] == Char('*')) answer = Matches(i, j + 1) || (i < text.size() && Matches(i + 1, j));
      else answer = i < text.size() && (pattern[j] == Char('?') || pattern[j] == text[i]) && Matches(i + 1, j + 1);
    }
    return answer != 0;
  }

 private:
  std::basic_string<Char> text, pattern;
  std::vector<int> known;
};

template <class Char>
bool Matches(std::basic_string<Char> const& text, std::basic_string<Char> const& pattern) {
  return Matcher<Char>(text, pattern).Matches();
}

// A name or pattern as wide text through the library's own conversion (the
// locale is not what is tested here); false when it is not text.
bool Wide(std::string const& native, std::wstring* wide) {
  std::unique_ptr<wchar_t[]> converted(XStrnew(native.c_str()));
  if (converted == nullptr) return false;
  *wide = converted.get();
  return true;
}

// The directory of the names of one input; the files of the last input are
// removed first.
class NameDirectory {
 public:
  NameDirectory() : path(fuzz::PrivateDir() + "/names") { ::mkdir(path.c_str(), 0700); }

  void Fill(std::set<std::string> const& wanted) {
    for (std::string const& name : names) FUZZ_CHECK(::unlink((path + "/" + name).c_str()) == 0);
    names = wanted;
    for (std::string const& name : names) {
      int fd = ::open((path + "/" + name).c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
      FUZZ_CHECK(fd >= 0);
      ::close(fd);
    }
  }

  std::string const path;
  std::set<std::string> names;
};

std::set<std::string> ReadMatching(pfuDir& dir, std::string const& pattern) {
  std::set<std::string> found;
  pfuDirEntry entry;
  while (dir.ReadNextMatching(entry, pattern.c_str())) FUZZ_CHECK(found.insert(static_cast<char const*>(entry)).second);
  return found;
}

void CheckDirectory(NameDirectory const& directory, std::string const& pattern) {
  std::wstring widePattern;
  bool const patternIsText = Wide(pattern, &widePattern);
  std::set<std::string> expected;
  for (std::string const& name : directory.names) {
    std::wstring wideName;
    if (patternIsText && Wide(name, &wideName) && Matches(wideName, widePattern)) expected.insert(name);
  }

  std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(directory.path.c_str())));
  FUZZ_CHECK(reader != nullptr);
  if (pattern.empty()) {  // reads nothing and answers true
    pfuDirEntry entry;
    entry = "untouched";
    FUZZ_CHECK(reader->ReadNextMatching(entry, "") && std::string(entry) == "untouched");
    dsXArray<pfuDirPath*> paths;
    FUZZ_CHECK(!reader->ExpandPattern("", paths) && paths.GetSize() == 0);
    return;
  }
  FUZZ_CHECK(ReadMatching(*reader, pattern) == expected);

  std::unique_ptr<pfuDir> again(pfuDir::OpenDir(pfuDirPath(directory.path.c_str())));
  FUZZ_CHECK(again != nullptr);
  dsXArray<pfuDirPath*> paths;
  FUZZ_CHECK(again->ExpandPattern(pattern.c_str(), paths) == !expected.empty());
  std::set<std::string> expanded;
  for (unsigned int i = 0; i < paths.GetSize(); ++i) {
    expanded.insert(static_cast<char const*>(*paths[i]));
    delete paths[i];
  }
  FUZZ_CHECK(expanded == expected);
  FUZZ_CHECK(!again->ExpandPattern(pattern.c_str(), paths));  // the reader only moves forward
}

// The lower search takes a wildcard behind the directory and matches bytes;
// "." and ".." are names like any other there.
void CheckSearch(NameDirectory const& directory, std::string const& pattern) {
  std::set<std::string> expected;
  std::set<std::string> everything = directory.names;
  everything.insert(".");
  everything.insert("..");
  for (std::string const& name : everything)
    if (Matches(name, pattern)) expected.insert(name);
  std::set<std::string> found;
  vekFindData data;
  void* search = uFindFirstFile((directory.path + "/" + pattern).c_str(), &data);
  if (search != VEK_INVALID_HANDLE) {
    do FUZZ_CHECK(found.insert(data.name).second);
    while (uFindNextFile(search, &data) != 0);
    win32FindClose(search);
  }
  FUZZ_CHECK(found == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  static NameDirectory directory;
  FuzzedDataProvider input(data, size);
  fuzz::UseLocale(input.ConsumeBool());

  // Wide text and pattern of any values, with the wildcards among them.
  auto consumeWide = [&] {
    std::wstring wide(input.ConsumeIntegralInRange<std::size_t>(0, 24), L'\0');
    for (wchar_t& c : wide) {
      std::uint8_t const pick = input.ConsumeIntegral<std::uint8_t>();
      c = pick < 64 ? L'*' : pick < 96 ? L'?' : pick < 224 ? static_cast<wchar_t>(L'a' + pick % 3)
                                                            : static_cast<wchar_t>(input.ConsumeIntegralInRange<std::uint32_t>(1, 0x10FFFF));
    }
    return wide;
  };
  std::wstring const text = consumeWide();
  std::wstring const pattern = consumeWide();
  FUZZ_CHECK(Strmatch(text.c_str(), pattern.c_str()) == Matches(text, pattern));

  // Names: no separator, no byte 0, not "." or "..", at most 255 bytes.
  std::set<std::string> names;
  std::size_t const count = input.ConsumeIntegralInRange<std::size_t>(0, 8);
  for (std::size_t i = 0; i < count; ++i) {
    std::string name = input.ConsumeRandomLengthString(24);
    for (char& c : name)
      if (c == '/' || c == '\0') c = '_';
    if (!name.empty() && name != "." && name != "..") names.insert(name);
  }
  directory.Fill(names);
  std::string namePattern = input.ConsumeRemainingBytesAsString();
  namePattern = namePattern.substr(0, namePattern.find('\0'));
  CheckDirectory(directory, namePattern);
  for (char& c : namePattern)
    if (c == '/') c = '*';
  CheckSearch(directory, namePattern);
  return 0;
}
