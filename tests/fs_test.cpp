// File-system operations: the lower file calls and pfuFS.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "quillon.h"
#include "testsupport.h"
#include "vekfile.h"

namespace {

using qtest::Neutral;
using qtest::ReadFile;
using qtest::TempDir;
using qtest::WriteFile;
namespace fs = std::filesystem;

void* Open(std::string const& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) {
  return uCreateFile(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7919) >> 3);
  return bytes;
}

// True for anything there, a dangling link too.
bool Exists(std::string const& path) {
  std::error_code failed;
  return fs::exists(fs::symlink_status(path, failed));
}

// Makes a symbolic link at link that holds target.
void Link(std::string const& target, std::string const& link) {
  std::error_code failed;
  fs::create_symlink(target, link, failed);
  ASSERT_FALSE(failed) << link << ": " << failed.message();
}

TEST(FilesLower, OpensHonourShareModesAndKeepTheirCause) {
  TempDir dir;
  std::string const file = dir / "f";
  WriteFile(file, "keep");
  void* exclusive = Open(file, GENERIC_WRITE, 0, OPEN_EXISTING);
  ASSERT_NE(exclusive, VEK_INVALID_HANDLE);
  // Refused within one process too; and a refused CREATE_ALWAYS leaves the file whole.
  EXPECT_EQ(Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysSharingViolation);
  EXPECT_EQ(Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS), VEK_INVALID_HANDLE);
  EXPECT_EQ(ReadFile(file), "keep");
  ASSERT_TRUE(win32CloseFileHandle(exclusive));

  void* reader1 = Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
  void* reader2 = Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
  EXPECT_NE(reader2, VEK_INVALID_HANDLE);
  EXPECT_EQ(Open(file, GENERIC_WRITE, 0, OPEN_ALWAYS), VEK_INVALID_HANDLE);
  EXPECT_TRUE(win32CloseFileHandle(reader1) && win32CloseFileHandle(reader2));

  // A directory is never opened as a file.
  EXPECT_EQ(Open(dir.Path(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysIsDirectory);
}

TEST(FilesLower, DirectoriesAndLinksKeepTheirCause) {
  TempDir dir;
  std::string const link = dir / "link";
  WriteFile(dir / "f", "");
  EXPECT_EQ(uRemoveDirectory(dir.Path().c_str()), 0);
  EXPECT_EQ(errMapError(), errSysNotEmpty);
  WIN32_FIND_DATAA data;
  EXPECT_EQ(uFindFirstFile((dir / "*.none").c_str(), &data), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysNotFound);
  QTEST_POSIX_ONLY("symbolic links");
  Link("f", link);
  char target[1];
  EXPECT_EQ(uReadLink(link.c_str(), target, sizeof target), -1);  // no room for the terminator
  EXPECT_EQ(errMapError(), errSysNameTooLong);
}

TEST(FilesTree, MakeAndRemoveTrees) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree||x|y|z|").c_str()), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "tree/x/y/z").c_str()));
  WriteFile(dir / "tree/f", "");
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree|f|x").c_str()), errComponentNotDir);
  EXPECT_FALSE(Exists(dir / "tree/f/x"));
  // Below a base: each level judged by what the create reports.
  pfuDirPath const base(top.c_str());
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|m")), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "outside/m").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|k")), errSysExists);
  EXPECT_FALSE(Exists(dir / "outside/k"));

  // Removal takes links away, never what they point to.
  QTEST_POSIX_ONLY("symbolic links");
  WriteFile(dir / "outside/keep", "k");
  for (char const* file : {"tree/x/g", "tree/x/y/z/h"}) WriteFile(dir / file, "data");
  Link(dir / "outside", dir / "tree/x/dirlink");
  EXPECT_TRUE(pfuFS::pfuIsLink((dir / "tree/x/dirlink").c_str()));
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((top + "|tree").c_str())), errOK);
  EXPECT_FALSE(Exists(dir / "tree"));
  EXPECT_EQ(ReadFile(dir / "outside/keep"), "k");
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((top + "|tree").c_str())), errSysNotFound);
  for (char const* refused : {"", "/", "\\\\", "c:", "D:\\"})
    EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath(refused)), errSysInvalidArgument) << refused;
  EXPECT_TRUE(Exists(dir / "outside/keep"));
}

TEST(FilesTree, RemoveDirRecStopsWhereAPathCannotGrow) {
  QTEST_POSIX_ONLY("paths past 260 characters, which Win32 takes only with long-path support");
  TempDir dir;
  // Levels of 200-byte names until a child no longer fits a path object.
  std::string const name(200, 'd');
  std::string native = dir.Path();
  for (; native.size() + name.size() + 2 < 1100; native += "/" + name) {
    ASSERT_TRUE(fs::create_directory(native + "/" + name));
  }
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((dir / name).c_str())), errSysNameTooLong);
  EXPECT_TRUE(Exists(dir / name));
  // Every path operation refuses such a path before it reaches the disk.
  pfStat info;
  EXPECT_EQ(pfuFS::pfuStat(native.c_str(), info), errSysNameTooLong);
}

TEST(FilesOps, RenameCopyAndQueries) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  auto at = [&](char const* name) { return top + "|" + name; };
  WriteFile(dir / "from", "new");
  WriteFile(dir / "to", "old contents");
  EXPECT_EQ(pfuFS::pfuRenameFile(at("from").c_str(), at("to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), "new");
  EXPECT_FALSE(Exists(dir / "from"));

  std::string const big = Pattern(5 * 1024 * 1024 + 3);
  WriteFile(dir / "big", big);
  WriteFile(dir / "empty", "");
  EXPECT_EQ(pfuFS::pfuCopyFile(at("big").c_str(), at("to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), big);
  EXPECT_EQ(pfuFS::pfuCopyFile(at("empty").c_str(), at("to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), "");  // emptied, though the source gave nothing
  EXPECT_EQ(pfuFS::pfuCopyFile(at("big").c_str(), at("big").c_str()), errSysSharingViolation);
  EXPECT_EQ(ReadFile(dir / "big"), big);
  EXPECT_EQ(pfuFS::pfuCopyFile(at("none").c_str(), at("to2").c_str()), errSysNotFound);
  EXPECT_FALSE(Exists(dir / "to2"));

  long long size = -1;
  EXPECT_EQ(pfuFS::pfuGetFileSize(at("big").c_str(), size), errOK);
  EXPECT_EQ(size, static_cast<long long>(big.size()));
  EXPECT_EQ(pfuFS::pfuGetFileSize(at("none").c_str(), size), errNoFileInfo);
  EXPECT_TRUE(pfuFS::pfuIsValidFile(at("to").c_str()));

  QTEST_POSIX_ONLY("symbolic links");
  Link("sub/target", dir / "link");
  pfuDirPath target("unchanged");
  EXPECT_EQ(pfuFS::pfuReadLink(at("link").c_str(), target), errOK);
  EXPECT_STREQ(target, "sub|target");
}

TEST(FilesOps, CurrentDirectoryFreeSpaceAndStreams) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  fs::path const before = fs::current_path();
  WriteFile(dir / "file", "text");
  EXPECT_EQ(pfuFS::pfuChangeDir((dir / "file").c_str()), errNotADirectory);
  ASSERT_EQ(pfuFS::pfuChangeDir(top.c_str()), errOK);
  EXPECT_EQ(fs::current_path(), fs::canonical(dir.Path()));
  fs::current_path(before);

  double bytes = 0;
  EXPECT_EQ(pfuFS::pfuGetFreeSpace(top.c_str(), bytes), errOK);
  EXPECT_GT(bytes, 0.0);
  EXPECT_EQ(pfuFS::pfuGetFreeSpace((dir / "missing").c_str(), bytes), errDiskQuery);
  EXPECT_EQ(bytes, -1.0);

  std::ifstream in;
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|missing").c_str(), std::ios::in, in), errSysNotFound);
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|file").c_str(), std::ios::in, in), errOK);  // state cleared first
  std::string word;
  in >> word;
  EXPECT_EQ(word, "text");
}

TEST(FilesOps, ParentPaths) {
  struct Case { char const *path, *parent; bool is; char const* rest; } const cases[] = {{"", "a", true, "untouched"}, {"a|b|c", "a|b", true, "c"}, {"a|bc", "a|b", false, "untouched"},
                     {"a|b", "a|b", true, ""},     {"a|b", "a|", true, "b"},    {"a|b", nullptr, true, "a|b"}};
  for (Case const& c : cases) {
    pfuDirPath rest("untouched");
    EXPECT_EQ(pfuFS::pfuIsParentPath(c.path, c.parent, rest), c.is) << c.path;
    EXPECT_STREQ(rest, c.rest) << c.path;
  }
}

// The checksum as documented: count, sum and exclusive or of the bytes.
unsigned Checksum(std::string const& bytes) {
  unsigned sum = 0, xorValue = 0;
  for (unsigned char c : bytes) sum += c, xorValue ^= c;
  return (bytes.size() & 0xFFFF) << 16 | (sum & 0xFF) << 8 | xorValue;
}

TEST(FilesContent, ChecksumCountsSumsAndXors) {
  TempDir dir;
  unsigned value = 42;
  WriteFile(dir / "f", "\x01\x02\x03");
  EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "f").c_str(), value), errOK);
  EXPECT_EQ(value, 0x00030600u);
  for (std::size_t size : {0u, 65535u, 65536u, 65537u}) {
    std::string const bytes = Pattern(size);
    WriteFile(dir / "f", bytes);
    ASSERT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "f").c_str(), value), errOK);
    EXPECT_EQ(value, Checksum(bytes)) << size;
  }
  EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "missing").c_str(), value), errNoMemoryOrIO);
}

// Every occurrence, left to right, without overlap.
std::string Replaced(std::string text, std::string const& search, std::string const& replacement) {
  for (std::size_t at = text.find(search); at != std::string::npos; at = text.find(search, at + replacement.size()))
    text.replace(at, search.size(), replacement);
  return text;
}

TEST(FilesContent, ReplaceStringAcrossBlocksAndBinary) {
  TempDir dir;
  std::string const source = dir / "source", target = dir / "target";
  auto check = [&](std::string const& bytes, std::string const& search, std::string const& replacement) {
    WriteFile(source, bytes);
    EXPECT_EQ(pfuFS::pfuReplaceString(search.c_str(), replacement.c_str(), source.c_str(), target.c_str()), errOK);
    EXPECT_EQ(ReadFile(target), Replaced(bytes, search, replacement)) << search.size() << " in " << bytes.size();
    EXPECT_EQ(ReadFile(source), bytes);
  };
  check("aaa", "aa", "b");
  check("one two one", "one", "one one");
  check(std::string("zero\0byte\0zero", 14) + "zero", "zero", "0");  // binary: nothing dropped
  // Matches over every block edge a reader may have: 4095/4096 and 65536.
  for (std::size_t edge : {4095u, 4096u, 65536u}) {
    std::string bytes = Pattern(200000);
    std::replace(bytes.begin(), bytes.end(), 'M', 'm');
    bytes.replace(edge - 2, 4, "MMMM");
    check(bytes, "MMMM", "<replaced>");
  }
  std::string const longSearch = std::string(5000, 'L') + "!";
  check(Pattern(70000) + longSearch + Pattern(70000) + longSearch, longSearch, "short");

  // Refusals: nothing is made, the source stays.
  WriteFile(source, "abc");
  for (auto [search, from, to] : {std::make_tuple("", source, target), std::make_tuple("b", dir / "none", target),
                                  std::make_tuple("b", source, source), std::make_tuple("b", source, dir / "no/t")}) {
    fs::remove(target);
    EXPECT_EQ(pfuFS::pfuReplaceString(search, "x", from.c_str(), to.c_str()), errNoMemoryOrIO) << search << from << to;
    EXPECT_FALSE(Exists(target));
  }
  EXPECT_EQ(ReadFile(source), "abc");
}

}  // namespace
