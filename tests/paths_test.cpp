// Paths: the limits of copies and joins, refused paths, the native forms,
// the current and home directories.
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

TEST(PathsJoin, TheLimitsAndARefusedPath) {
  auto join = [](std::string const& left, std::string const& right) {
    return Str(pfuDirPath(pfuDirPath(left.c_str()), pfuDirPath(right.c_str())));
  };
  // 1000 + 21 fits; with 22 the path stays, though 1023 bytes would fit,
  // also when no separator is needed.
  EXPECT_EQ(join(Repeat(1000, 'p'), Repeat(21, 'e')), Repeat(1000, 'p') + "|" + Repeat(21, 'e'));
  EXPECT_EQ(join(Repeat(1000, 'p'), Repeat(22, 'e')), Repeat(1000, 'p'));
  EXPECT_EQ(join(Repeat(1000, 'p') + "|", Repeat(22, 'e')), Repeat(1000, 'p') + "|");

  // A copy that would pass 1023 bytes is refused whole, never cut.
  std::string const longest = Repeat(1023, 'a'), over = Repeat(1024, 'b');
  EXPECT_EQ(Str(pfuDirPath(longest.c_str())) + Str(pfuOSPath(longest.c_str())), longest + longest);
  pfuDirPath refused("old");
  refused = over.c_str();
  pfuDirEntry entry;
  entry = "old";
  entry = over.c_str();
  EXPECT_EQ(Str(refused) + Str(entry) + Str(pfuOSPath(over.c_str())), "");

  // A refused object holds no path, which is not the empty path; a refused
  // right refuses a join, a refused native path its neutral target.
  EXPECT_TRUE(refused.IsEmpty() && refused.IsRefused());
  EXPECT_TRUE(pfuDirPath(pfuDirPath(), entry).IsRefused());
  pfuDirPath target(longest.c_str());
  pfuOSPath(over.c_str()).ToNeutral(target);
  EXPECT_TRUE(target.IsRefused());
  for (pfuDirPath empty : {pfuDirPath(), pfuDirPath(""), pfuDirPath(nullptr)}) EXPECT_FALSE(empty.IsRefused());
  // Whatever gives the object a path again ends the refusal.
  refused.SetEmpty();
  EXPECT_FALSE(refused.IsRefused());
  refused = over.c_str();
  pfuDirPath("a").GetHead(refused);  // an empty head is an empty path
  EXPECT_FALSE(refused.IsRefused());
  refused = over.c_str();
  refused = "a";
  EXPECT_FALSE(refused.IsRefused());
  EXPECT_EQ(Str(refused), "a");
}

// The text rules of joins, heads and tails, the native and neutral rewrites,
// trimming and the wildcard are checked against a plain model by
// fuzz/paths_fuzz.cpp, in both locales; here what depends on the host.
TEST(PathsNative, TrimsAndWildcardsWithTheHostsSeparator) {
  // "C:/" is no root by the text rules, so on a POSIX host it trims; Windows keeps its drive's root.
  for (auto [text, result] : std::vector<std::pair<char const*, std::string>>{
           {"a\\b\\", "a/b"}, {"/", "/"}, {"/a//b//", "/a//b"}, {"C:\\", qtest::host::kIsPosix ? "C:" : "C:/"}}) {
    pfuOSPath path(text);
    path.TrimTrailSeps();
    EXPECT_EQ(Str(path), Native(result)) << text;
  }
  pfuOSPath wildcard("a|");
  wildcard.AddWildcard();
  EXPECT_EQ(Str(wildcard), Native("a/*"));
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
  for (std::string const& value : {std::string(), "/" + Repeat(1023, 'h')}) {  // unset, too long
    homeVar.Set(value.empty() ? nullptr : value.c_str());
    EXPECT_EQ(ask(true), current) << value.size();
  }
}

}  // namespace
