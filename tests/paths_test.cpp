// Paths: the absolute forms, the join and its limit, head and tail, the
// native and neutral rewrites, trimming, the wildcard, the current and home
// directories.
#include <gtest/gtest.h>
#include <unistd.h>

#include <clocale>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "quillon.h"

namespace {

std::string Str(char const* text) { return text; }

// Sets (or, with null, removes) an environment variable for one test and
// puts the old value back.
class EnvVar {
 public:
  EnvVar(char const* name, char const* value) : name(name) {
    if (char const* old = std::getenv(name)) saved = old;
    Set(value);
  }
  ~EnvVar() { Set(saved ? saved->c_str() : nullptr); }

 private:
  void Set(char const* value) {
    if (value != nullptr) setenv(name, value, 1);
    else unsetenv(name);
  }
  char const* name;
  std::optional<std::string> saved;
};

class Utf8Locale {
 public:
  Utf8Locale() : saved(std::setlocale(LC_ALL, nullptr)) { ok = std::setlocale(LC_ALL, "C.UTF-8") != nullptr; }
  ~Utf8Locale() { std::setlocale(LC_ALL, saved.c_str()); }
  bool ok;

 private:
  std::string saved;
};

TEST(PathsText, AbsoluteFormsAndSeparators) {
  struct Case { char const* text; bool unix, win; };
  for (Case c : std::vector<Case>{{"|a", true, false}, {"/a", true, false}, {"\\a", false, false},
                                  {"C:|a", false, true}, {"c:\\", false, true}, {"C:/a", false, false},
                                  {"C:", false, false}, {"C:a", false, false}, {"1:|a", false, false},
                                  {"", false, false}, {"a|b", false, false}}) {
    EXPECT_EQ(IsUnixStyleAbsPath(c.text), c.unix) << c.text;
    EXPECT_EQ(IsWinStyleAbsPath(c.text), c.win) << c.text;
    EXPECT_EQ(pfuIsStringPathAbsolute(c.text), c.unix || c.win) << c.text;
  }
  char chars[] = "|\\/a:";
  EXPECT_TRUE(issep(chars) && issep(chars + 1) && issep(chars + 2));
  EXPECT_FALSE(issep(chars + 3) || issep(chars + 4) || issep(chars + 5));
}

TEST(PathsJoin, AddsOneNeutralSeparator) {
  auto join = [](char const* left, char const* right) { return Str(pfuDirPath(pfuDirPath(left), pfuDirPath(right))); };
  EXPECT_EQ(join("a", "b"), "a|b");
  EXPECT_EQ(join("a|", "b"), "a|b");
  EXPECT_EQ(join("a\\", "b"), "a\\|b");  // only '|' counts as already there
  EXPECT_EQ(join("a/", "b"), "a/|b");
  EXPECT_EQ(join("", "b|c"), "b|c");
  EXPECT_EQ(join("a||", ""), "a||");
  EXPECT_EQ(join("a", "|b"), "a||b");  // right is taken as it is

  pfuDirEntry name;
  name = "x";
  name += ".txt";
  pfuDirPath path("dir");
  (path += name) += pfuDirPath("y");
  EXPECT_EQ(Str(pfuDirPath(path, name)), "dir|x.txt|y|x.txt");
  path += path;  // the path joined to itself
  EXPECT_EQ(Str(path), "dir|x.txt|y|dir|x.txt|y");
}

TEST(PathsJoin, SkipsWhatWouldReachTheLimit) {
  std::string const left(1000, 'p');
  pfuDirPath path(left.c_str());
  path += pfuDirPath(std::string(21, 'e').c_str());
  EXPECT_EQ(Str(path), left + "|" + std::string(21, 'e'));

  pfuDirPath same(left.c_str());
  same += pfuDirPath(std::string(22, 'e').c_str());  // 1023 bytes would fit, but the rule says no
  EXPECT_EQ(Str(same), left);
  pfuDirPath ending((left + "|").c_str());  // also when no separator is needed
  ending += pfuDirPath(std::string(22, 'e').c_str());
  EXPECT_EQ(Str(ending), left + "|");
}

TEST(PathsCopy, RefusesTextTooLongAndNeverCuts) {
  std::string const longest(1023, 'a'), over(1024, 'b');
  EXPECT_EQ(Str(pfuDirPath(longest.c_str())), longest);
  EXPECT_EQ(Str(pfuOSPath(longest.c_str())), longest);
  EXPECT_EQ(Str(pfuDirPath(over.c_str())), "");
  EXPECT_EQ(Str(pfuOSPath(over.c_str())), "");
  EXPECT_EQ(Str(pfuDirPath(nullptr)), "");

  pfuDirPath path("kept");
  path = over.c_str();
  EXPECT_TRUE(path.IsEmpty());
  pfuDirEntry entry;
  entry = over.c_str();
  EXPECT_EQ(Str(entry), "");
  entry = std::string(1020, 'e').c_str();
  entry += "xyz";  // 1023: fits
  entry += "!";    // 1024: refused whole
  EXPECT_EQ(Str(entry), std::string(1020, 'e') + "xyz");

  pfuOSPath full(longest.c_str()), almost(std::string(1022, 'a').c_str());
  full.AddWildcard();
  EXPECT_EQ(Str(full), longest);
  almost.AddWildcard();  // "/*" would need 1024 bytes with the terminator
  EXPECT_EQ(Str(almost), std::string(1022, 'a'));
}

TEST(PathsSplit, FirstComponent) {
  struct Case { char const* path; char const* head; char const* tail; };
  for (Case c : std::vector<Case>{{"a|b|c", "a", "b|c"}, {"|a|b", "|", "a|b"}, {"C:|a|b", "C:|", "a|b"},
                                  {"C:/a", "C:", "a"}, {"C:a|b", "C:a", "b"}, {"\\a", "", "a"},
                                  {"a", "a", ""}, {"|", "|", ""}, {"a/b\\c|d", "a", "b\\c|d"}}) {
    pfuDirEntry head;
    pfuDirPath tail("old");
    EXPECT_TRUE(pfuDirPath(c.path).GetHead(head));
    EXPECT_TRUE(pfuDirPath(c.path).GetTail(tail));
    EXPECT_EQ(Str(head), c.head) << c.path;
    EXPECT_EQ(Str(tail), c.tail) << c.path;
  }
}

TEST(PathsSplit, LastComponent) {
  struct Case { char const* path; char const* head; char const* tail; };
  for (Case c : std::vector<Case>{{"a|b|c", "a|b", "c"}, {"|a|b", "|a", "b"}, {"|a", "|", "a"},
                                  {"C:|a", "C:|", "a"}, {"a", "", "a"}, {"a|", "a", ""}, {"|", "|", ""},
                                  {"C:|", "C:|", ""}, {"a/b\\c|d", "a/b\\c", "d"}, {"a|b/c", "a|b", "c"}}) {
    pfuDirPath head("old");
    pfuDirEntry tail;
    EXPECT_TRUE(pfuDirPath(c.path).GetHead(head));
    EXPECT_TRUE(pfuDirPath(c.path).GetTail(tail));
    EXPECT_EQ(Str(head), c.head) << c.path;
    EXPECT_EQ(Str(tail), c.tail) << c.path;
  }
  // An empty path gives false and leaves every target alone.
  pfuDirPath empty, dirTarget("keep");
  pfuDirEntry entryTarget;
  entryTarget = "keep";
  EXPECT_FALSE(empty.GetHead(dirTarget) || empty.GetTail(dirTarget));
  EXPECT_FALSE(empty.GetHead(entryTarget) || empty.GetTail(entryTarget));
  EXPECT_EQ(Str(dirTarget), "keep");
  EXPECT_EQ(Str(entryTarget), "keep");
  // A path that is its own target.
  pfuDirPath self("x|y|z");
  self.GetHead(self);
  EXPECT_EQ(Str(self), "x|y");
  self.GetTail(self);
  EXPECT_EQ(Str(self), "y");
}

TEST(PathsNative, RewritesEverySeparator) {
  pfuOSPath native("a/b\\c|d");
  EXPECT_EQ(Str(native), "a/b/c/d");
  pfuDirPath neutral("old");
  native.ToNeutral(neutral);
  EXPECT_EQ(Str(neutral), "a|b|c|d");
  pfuOSPath("C:\\x/y|").ToNeutral(neutral);
  EXPECT_EQ(Str(neutral), "C:|x|y|");

  Utf8Locale utf8;
  ASSERT_TRUE(utf8.ok);
  // Characters of several bytes are stepped over; behind an invalid
  // sequence nothing is rewritten.
  EXPECT_EQ(Str(pfuOSPath("\xC3\xA9|\xE2\x82\xAC\\x")), "\xC3\xA9/\xE2\x82\xAC/x");
  EXPECT_EQ(Str(pfuOSPath("a|\xFF|b\\c")), "a/\xFF|b\\c");
}

TEST(PathsNative, TrimAndWildcard) {
  struct Case { char const* path; char const* trimmed; };
  for (Case c : std::vector<Case>{{"a\\b\\", "a/b"}, {"a//", "a"}, {"/a/", "/a"}, {"/", "/"}, {"//", "//"},
                                  {"/a//b//", "/a//b"}, {"a", "a"}, {"", ""},
                                  // "C:/" is no root by the text rules, so on a POSIX host it trims.
                                  {"C:\\a\\\\", "C:/a"}, {"C:\\", "C:"}}) {
    pfuOSPath path(c.path);
    path.TrimTrailSeps();
    EXPECT_EQ(Str(path), c.trimmed) << c.path;
  }
  for (Case c : std::vector<Case>{{"a", "a/*"}, {"a/", "a/*"}, {"/", "/*"}, {"", "/*"}}) {
    pfuOSPath path(c.path);
    path.AddWildcard();
    EXPECT_EQ(Str(path), c.trimmed) << c.path;
  }
}

TEST(PathsDirectories, CurrentAndHome) {
  char* cwd = getcwd(nullptr, 0);
  ASSERT_NE(cwd, nullptr);
  std::string const current = cwd;
  std::free(cwd);
  pfuDirPath neutralCurrent;
  pfuOSPath nativeCurrent;
  neutralCurrent.GetCurrentDir();
  nativeCurrent.GetCurrentDir();
  EXPECT_EQ(Str(nativeCurrent), current);
  std::string neutral = current;
  for (char& c : neutral) c = c == '/' ? '|' : c;
  EXPECT_EQ(Str(neutralCurrent), neutral);

  auto home = [] {
    pfuOSPath native;
    native.GetHomeDir();
    pfuDirPath neutral;
    neutral.GetHomeDir();
    return Str(native) + " " + Str(neutral);
  };
  EnvVar homeVar("HOME", "/home/someone");
  {
    EnvVar drive("HOMEDRIVE", "C:"), path("HOMEPATH", "\\Users\\me");
    EXPECT_EQ(home(), "C:\\Users\\me C:|Users|me");
  }
  {
    EnvVar drive("HOMEDRIVE", "ABCD"), path("HOMEPATH", "\\x");  // drive too long for its 4 bytes
    EXPECT_EQ(home(), "/home/someone |home|someone");
  }
  {
    EnvVar drive("HOMEDRIVE", "D:"), path("HOMEPATH", ("/" + std::string(254, 'p')).c_str());  // 255 counts
    EXPECT_EQ(Str([] { pfuOSPath p; p.GetHomeDir(); return p; }()), "D:/" + std::string(254, 'p'));
  }
  {
    EnvVar drive("HOMEDRIVE", "D:"), path("HOMEPATH", ("/" + std::string(255, 'p')).c_str());  // 256 does not
    EXPECT_EQ(home(), "/home/someone |home|someone");
  }
  {
    EnvVar drive("HOMEDRIVE", nullptr), path("HOMEPATH", "\\x");
    EXPECT_EQ(home(), "/home/someone |home|someone");
  }
  EnvVar drive("HOMEDRIVE", nullptr), path("HOMEPATH", nullptr);
  std::string const currentPair = current + " " + Str(neutralCurrent);
  {
    EnvVar unset("HOME", nullptr);
    EXPECT_EQ(home(), currentPair);
  }
  {
    EnvVar empty("HOME", "");
    EXPECT_EQ(home(), currentPair);
  }
  EnvVar tooLong("HOME", ("/" + std::string(1023, 'h')).c_str());
  EXPECT_EQ(home(), currentPair);
}

}  // namespace
