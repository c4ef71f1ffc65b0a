// Paths: the absolute forms, the join and its limit, head and tail, the
// native and neutral rewrites, trimming, the wildcard, the current and home
// directories.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "quillon.h"
#include "testsupport.h"

namespace {

using qtest::EnvVar;
using qtest::Native;

std::string Str(char const* text) { return text; }
std::string Repeat(std::size_t n, char c) { return std::string(n, c); }

TEST(PathsJoin, OneNeutralSeparatorAndTheLimits) {
  auto join = [](std::string const& left, std::string const& right) {
    return Str(pfuDirPath(pfuDirPath(left.c_str()), pfuDirPath(right.c_str())));
  };
  EXPECT_EQ(join("a|", "b") + " " + join("a\\", "b"), "a|b a\\|b");  // only '|' counts as already there
  EXPECT_EQ(join("", "b|c") + " " + join("a", "|b"), "b|c a||b");  // right is taken as it is
  // 1000 + 21 fits; with 22 the path stays, though 1023 bytes would fit,
  // also when no separator is needed.
  EXPECT_EQ(join(Repeat(1000, 'p'), Repeat(21, 'e')), Repeat(1000, 'p') + "|" + Repeat(21, 'e'));
  EXPECT_EQ(join(Repeat(1000, 'p'), Repeat(22, 'e')), Repeat(1000, 'p'));
  EXPECT_EQ(join(Repeat(1000, 'p') + "|", Repeat(22, 'e')), Repeat(1000, 'p') + "|");

  pfuDirEntry name;
  (name = "x") += ".txt";
  pfuDirPath path("dir");
  path += name;
  path += path;  // its own text
  EXPECT_EQ(Str(path), "dir|x.txt|dir|x.txt");

  // A copy or an append that would pass 1023 bytes is refused whole, never cut.
  std::string const longest = Repeat(1023, 'a'), over = Repeat(1024, 'b');
  EXPECT_EQ(Str(pfuDirPath(longest.c_str())) + Str(pfuOSPath(longest.c_str())), longest + longest);
  path = over.c_str();
  pfuDirEntry entry;
  entry = over.c_str();
  EXPECT_EQ(Str(path) + Str(entry) + Str(pfuOSPath(over.c_str())), "");

  // A refused object holds no path, which is not the empty path; it stays
  // so through appends and joins, and a refused right refuses a join.
  static_assert(sizeof(pfuDirPath) == 1024 && sizeof(pfuDirEntry) == 1024 && sizeof(pfuOSPath) == 1024);
  pfuDirPath refused(over.c_str());
  EXPECT_TRUE(refused.IsEmpty() && refused.IsRefused());
  refused += pfuDirPath("x");
  EXPECT_TRUE(pfuDirPath(refused, pfuDirPath("y")).IsRefused() && refused.IsRefused() && Str(refused).empty());
  EXPECT_TRUE(pfuDirPath(pfuDirPath(), entry).IsRefused());
  pfuDirPath target(longest.c_str());
  pfuOSPath(over.c_str()).ToNeutral(target);
  EXPECT_TRUE(target.IsRefused());
  for (pfuDirPath empty : {pfuDirPath(), pfuDirPath(""), pfuDirPath(nullptr)}) EXPECT_FALSE(empty.IsRefused());
  refused.SetEmpty();
  EXPECT_FALSE(refused.IsRefused());
  refused = over.c_str();
  pfuDirPath("a").GetHead(refused);  // an empty head is an empty path
  EXPECT_FALSE(refused.IsRefused());
  refused = over.c_str();
  refused = "a";
  EXPECT_FALSE(refused.IsRefused());
  EXPECT_EQ(Str(refused), "a");

  pfuOSPath almost(Repeat(1022, 'a').c_str());
  almost.AddWildcard();  // "/*" would need 1024 bytes with the terminator
  EXPECT_EQ(Str(almost), Repeat(1022, 'a'));
}

TEST(PathsText, HeadsAndTailsOfEachForm) {
  // GetHead/GetTail from the front (entry, path), then from the back (path,
  // entry). An absolute path's first component keeps its root.
  struct Case { char const *path, *firstHead, *firstTail, *lastHead, *lastTail; };
  for (Case c : std::vector<Case>{
           {"/a|b", "/", "a|b", "/a", "b"}, {"|", "|", "", "|", ""}, {"c:\\a|b", "c:\\", "a|b", "c:\\a", "b"},
           {"C:/a", "C:", "a", "C:", "a"}, {"1:|a", "1:", "a", "1:", "a"}, {"\\a", "", "a", "", "a"},
           {"a", "a", "", "", "a"}, {"a/b\\c|d", "a", "b\\c|d", "a/b\\c", "d"}}) {
    pfuDirPath const path(c.path);
    pfuDirEntry firstHead, lastTail;
    pfuDirPath firstTail("old"), lastHead("old");
    EXPECT_TRUE(path.GetHead(firstHead) && path.GetTail(firstTail) && path.GetHead(lastHead) &&
                path.GetTail(lastTail));
    EXPECT_EQ(Str(firstHead) + " " + Str(firstTail) + " " + Str(lastHead) + " " + Str(lastTail),
              Str(c.firstHead) + " " + c.firstTail + " " + c.lastHead + " " + c.lastTail) << c.path;
  }
  // An empty path gives false and leaves every target alone.
  pfuDirPath empty, dirTarget("keep");
  EXPECT_FALSE(empty.GetHead(dirTarget) || empty.GetTail(dirTarget));
  EXPECT_EQ(Str(dirTarget), "keep");
  pfuDirPath self("x|y|z");  // its own target
  self.GetHead(self);
  self.GetTail(self);
  EXPECT_EQ(Str(self), "y");
}

std::string Trimmed(char const* text) {
  pfuOSPath path(text);
  path.TrimTrailSeps();
  return Str(path);
}

TEST(PathsNative, RewritesTrimsAndWildcards) {
  pfuDirPath neutral("old");
  pfuOSPath("C:\\x/y|").ToNeutral(neutral);
  EXPECT_EQ(Str(neutral) + " " + Str(pfuOSPath("a/b\\c|d")), "C:|x|y| " + Native("a/b/c/d"));
  // "C:/" is no root by the text rules, so on a POSIX host it trims; Windows keeps its drive's root.
  for (auto [text, result] : std::vector<std::pair<char const*, std::string>>{
           {"a\\b\\", "a/b"}, {"/", "/"}, {"//", "//"}, {"/a//b//", "/a//b"},
           {"C:\\", qtest::host::kIsPosix ? "C:" : "C:/"}})
    EXPECT_EQ(Trimmed(text), Native(result)) << text;
  pfuOSPath wildcard("a|");
  wildcard.AddWildcard();
  EXPECT_EQ(Str(wildcard), Native("a/*"));

  QTEST_UTF8_LOCALE(guard);
  // Characters of several bytes are stepped over; behind an invalid sequence
  // nothing is rewritten, and the trim walk ends there as at the end.
  EXPECT_EQ(Str(pfuOSPath("\xC3\xA9|\xE2\x82\xAC\\x")), Native("\xC3\xA9/\xE2\x82\xAC/x"));
  EXPECT_EQ(Str(pfuOSPath("a|\xFF|b\\c")), Native("a/") + "\xFF|b\\c");
  EXPECT_EQ(Trimmed("ab\xFF||") + " " + Trimmed("a|\xFF|"), "ab\xFF|| a");
}

TEST(PathsDirectories, CurrentAndHome) {
  std::string const cwd = std::filesystem::current_path().string();
  std::string const current = cwd + " " + qtest::Neutral(cwd);  // the native and the neutral answer
  auto ask = [](bool home) {
    pfuOSPath os;
    pfuDirPath dir;
    home ? os.GetHomeDir() : os.GetCurrentDir();
    home ? dir.GetHomeDir() : dir.GetCurrentDir();
    return Str(os) + " " + Str(dir);
  };
  EXPECT_EQ(ask(false), current);

  EnvVar homeVar("HOME", "/home/someone");
  // Only POSIX has a home directory of its own beside HOMEDRIVE and HOMEPATH.
  std::string const home = qtest::host::kIsPosix ? "/home/someone |home|someone" : current;
  for (auto [driveValue, pathValue, result] : std::vector<std::tuple<char const*, std::string, std::string>>{
           {"D:", "/" + Repeat(254, 'p'), "D:/" + Repeat(254, 'p') + " D:|" + Repeat(254, 'p')},  // 255 bytes count
           {"ABCD", "\\x", ""},                 // a drive of 4 bytes does not
           {"D:", "/" + Repeat(255, 'p'), ""},  // nor a path of 256
           {nullptr, "\\x", ""}}) {
    EnvVar drive("HOMEDRIVE", driveValue), path("HOMEPATH", pathValue.c_str());
    EXPECT_EQ(ask(true), result.empty() ? home : result) << pathValue;
  }
  EnvVar drive("HOMEDRIVE", nullptr), path("HOMEPATH", nullptr);
  {
    EnvVar unset("HOME", nullptr);
    EXPECT_EQ(ask(true), current);
  }
  EnvVar tooLong("HOME", ("/" + Repeat(1023, 'h')).c_str());
  EXPECT_EQ(ask(true), current);
}

}  // namespace
