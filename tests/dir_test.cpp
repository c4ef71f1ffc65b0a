// Directory reading and wildcard patterns.
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include "quillon.h"
#include "testsupport.h"

namespace {

using qtest::Neutral;
using qtest::TempDir;
using qtest::WriteFile;

std::set<std::string> ReadAll(pfuDir& reader) {
  std::set<std::string> names;
  pfuDirEntry entry;
  while (reader.Read(entry)) names.insert(static_cast<char const*>(entry));
  return names;
}

std::unique_ptr<pfuDir> Open(std::string const& path) {
  return std::unique_ptr<pfuDir>(pfuDir::OpenDir(pfuDirPath(path.c_str())));
}

TEST(DirReading, ListsEveryEntryButDotAndDotDot) {
  TempDir dir;
  std::unique_ptr<pfuDir> empty = Open(dir.Path());
  ASSERT_NE(empty, nullptr);
  EXPECT_TRUE(ReadAll(*empty).empty());

  // Windows names end in no dot, so "..." is a name on POSIX only.
  std::set<std::string> expected{".a", "..a", "plain"};
  if (qtest::host::kIsPosix) expected.insert("...");
  for (std::string const& name : expected) WriteFile(dir / name, "");
  ASSERT_EQ(pfuFS::pfuMakeDir((dir / "sub").c_str()), errOK);
  expected.insert("sub");
  for (std::string const& path : {Neutral(dir.Path()), Neutral(dir.Path()) + "|", dir.Path() + qtest::host::kSeparator}) {
    std::unique_ptr<pfuDir> reader = Open(path);
    ASSERT_NE(reader, nullptr) << path;
    EXPECT_EQ(ReadAll(*reader), expected) << path;
  }

  EXPECT_EQ(Open(Neutral(dir / "missing")), nullptr);
  EXPECT_EQ(errMapError(), errSysNotFound);
}

TEST(DirReading, ListsDirectoriesWhosePathsFillAPathObject) {
  TempDir dir;
  for (std::size_t length : {1022u, 1023u}) {
    std::string const path = qtest::PathOfLength(dir, length, 'd');
    ASSERT_EQ(pfuFS::pfuMakeDir(path.c_str()), errOK);
    WriteFile(path + "/inside", "");
    std::unique_ptr<pfuDir> reader = Open(path);
    ASSERT_NE(reader, nullptr) << length;
    EXPECT_EQ(ReadAll(*reader), std::set<std::string>{"inside"}) << length;
  }
}

TEST(DirPatterns, MatchingMovesForwardOnly) {
  TempDir dir;
  for (char const* name : {"a.txt", "b.txt", "c.log", "A.TXT"}) WriteFile(dir / name, "");
  std::unique_ptr<pfuDir> reader = Open(dir.Path());
  ASSERT_NE(reader, nullptr);
  pfuDirEntry entry;
  entry = "kept";
  // An empty pattern reads nothing: all four entries are still to come.
  EXPECT_TRUE(reader->ReadNextMatching(entry, ""));
  EXPECT_STREQ(entry, "kept");
  std::set<std::string> logs;
  while (reader->ReadNextMatching(entry, "*.log")) logs.insert(static_cast<char const*>(entry));
  EXPECT_EQ(logs, std::set<std::string>{"c.log"});
  EXPECT_FALSE(reader->ReadNextMatching(entry, "*"));

  // Expansion adds to what the array holds, names alone, case counting.
  reader = Open(dir.Path());
  dsXArray<pfuDirPath*> paths;
  paths += new pfuDirPath("before");
  EXPECT_TRUE(reader->ExpandPattern("?.txt", paths));
  std::set<std::string> found;
  for (unsigned i = 0; i < paths.GetSize(); ++i) found.insert(static_cast<char const*>(*paths[i]));
  EXPECT_EQ(found, (std::set<std::string>{"before", "a.txt", "b.txt"}));
  unsigned const size = paths.GetSize();
  EXPECT_FALSE(reader->ExpandPattern("*", paths));  // the reader stands at its end
  EXPECT_FALSE(reader->ExpandPattern(nullptr, paths));
  EXPECT_EQ(paths.GetSize(), size);
  for (unsigned i = 0; i < paths.GetSize(); ++i) delete paths[i];
}

}  // namespace
