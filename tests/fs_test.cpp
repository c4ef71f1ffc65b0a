// File-system operations: the lower file calls and pfuFS.
#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <string>

#include "quillon.h"
#include "testsupport.h"
#include "vekfile.h"

namespace {

using qtest::ReadFile;
using qtest::TempDir;
using qtest::WriteFile;

void* Open(std::string const& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) {
  return uCreateFile(path.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
}

std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 7919) >> 3);
  return bytes;
}

// The neutral form of a native path.
std::string Neutral(std::string path) {
  std::replace(path.begin(), path.end(), '/', '|');
  return path;
}

bool Exists(std::string const& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
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
  void* truncating = Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS);
  EXPECT_EQ(ReadFile(file), "");
  EXPECT_TRUE(win32CloseFileHandle(truncating));
  EXPECT_FALSE(win32CloseFileHandle(VEK_INVALID_HANDLE));
  EXPECT_EQ(errMapError(), errSysBadHandle);

  struct Case {
    std::string path;
    std::uint32_t disposition;
    errstatus error;
  } const failures[] = {{dir / "missing", OPEN_EXISTING, errSysNotFound},
                        {dir.Path(), OPEN_EXISTING, errSysIsDirectory},
                        {file, CREATE_NEW, errSysExists}};
  for (Case const& c : failures) {
    EXPECT_EQ(Open(c.path, GENERIC_READ, FILE_SHARE_READ, c.disposition), VEK_INVALID_HANDLE) << c.path;
    EXPECT_EQ(errMapError(), c.error) << c.path;
  }
}

TEST(FilesLower, ReadWriteSizeAndCopy) {
  TempDir dir;
  std::string const bytes = Pattern(3 * 1024 * 1024 + 17);
  void* out = Open(dir / "a", GENERIC_WRITE, 0, CREATE_ALWAYS);
  ASSERT_NE(out, VEK_INVALID_HANDLE);
  std::uint32_t written = 0, high = 7;
  ASSERT_TRUE(vekWriteFile(out, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &written));
  EXPECT_EQ(written, bytes.size());
  EXPECT_EQ(vekGetFileSize(out, &high), bytes.size());
  EXPECT_EQ(high, 0u);
  EXPECT_TRUE(vekLockFile(out, 0, 0, 100, 0));
  EXPECT_TRUE(vekUnlockFile(out, 0, 0, 100, 0));
  ASSERT_TRUE(win32CloseFileHandle(out));

  void* in = uCreateFile((dir / "a").c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  char head[10];
  std::uint32_t got = 0;
  ASSERT_TRUE(vekReadFile(in, head, sizeof head, &got));
  EXPECT_EQ(std::string(head, got), bytes.substr(0, 10));
  // The copy goes on from where the source stands.
  void* copy = Open(dir / "b", GENERIC_WRITE, 0, CREATE_ALWAYS);
  ASSERT_TRUE(vekCopyFileData(in, copy));
  EXPECT_TRUE(vekReadFile(in, head, sizeof head, &got));
  EXPECT_EQ(got, 0u);
  EXPECT_TRUE(win32CloseFileHandle(in) && win32CloseFileHandle(copy));
  EXPECT_EQ(ReadFile(dir / "b"), bytes.substr(10));
}

TEST(FilesLower, DirectoriesMovesAndLinks) {
  TempDir dir;
  std::string const sub = dir / "sub", old = dir / "old", link = dir / "link";
  ASSERT_EQ(uCreateDirectory(sub.c_str(), nullptr), 1);
  EXPECT_EQ(uCreateDirectory(sub.c_str(), nullptr), 0);
  EXPECT_EQ(errMapError(), errSysExists);
  WriteFile(sub + "/f", "new");
  WriteFile(old, "old");
  EXPECT_EQ(uRemoveDirectory(sub.c_str()), 0);
  EXPECT_EQ(errMapError(), errSysNotEmpty);
  EXPECT_EQ(uDeleteFile(sub.c_str()), 0);
  EXPECT_EQ(uMoveFileEx((sub + "/f").c_str(), old.c_str(), 0), 0);
  EXPECT_EQ(errMapError(), errSysExists);
  EXPECT_EQ(uMoveFileEx((sub + "/f").c_str(), old.c_str(), MOVEFILE_REPLACE_EXISTING), 1);
  EXPECT_EQ(ReadFile(old), "new");

  ASSERT_EQ(::symlink("old", link.c_str()), 0);
  struct stat info;
  ASSERT_TRUE(FileInfo_Read(info, link.c_str(), false));
  EXPECT_EQ(info.st_mode & 0xF000, 0xA000u);
  ASSERT_TRUE(FileInfo_Read(info, link.c_str(), true));
  EXPECT_EQ(info.st_mode & 0xF000, 0x8000u);
  char target[3];
  EXPECT_EQ(uReadLink(link.c_str(), target, sizeof target), -1);  // no room for the terminator
  EXPECT_EQ(errMapError(), errSysNameTooLong);
  EXPECT_EQ(uDeleteFile(link.c_str()), 1);
  EXPECT_EQ(ReadFile(old), "new");
  EXPECT_EQ(uRemoveDirectory(sub.c_str()), 1);
  EXPECT_FALSE(FileInfo_Read(info, sub.c_str(), false));
  EXPECT_EQ(errMapError(), errSysNotFound);
}

std::set<std::string> Listing(std::string const& pattern) {
  std::set<std::string> names;
  WIN32_FIND_DATAA data;
  void* search = uFindFirstFile(pattern.c_str(), &data);
  if (search == VEK_INVALID_HANDLE) return names;
  do names.insert(data.cFileName + std::string(data.dwFileAttributes == FILE_ATTRIBUTE_DIRECTORY ? "/" : ""));
  while (uFindNextFile(search, &data) != 0);
  EXPECT_TRUE(win32FindClose(search));
  return names;
}

TEST(FilesLower, SearchesMatchTheWildcard) {
  TempDir dir;
  for (char const* name : {"a.txt", "b.txt", "ab.TXT", ".hidden"}) WriteFile(dir / name, "");
  ASSERT_EQ(uCreateDirectory((dir / "d.txt").c_str(), nullptr), 1);
  using Names = std::set<std::string>;
  EXPECT_EQ(Listing(dir / "*"), (Names{"./", "../", "a.txt", "b.txt", "ab.TXT", ".hidden", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "*.txt"), (Names{"a.txt", "b.txt", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "?.*t"), (Names{"a.txt", "b.txt", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "*b*"), (Names{"b.txt", "ab.TXT"}));
  WIN32_FIND_DATAA data;
  for (char const* nothing : {"*.none", "missing/*"}) {
    EXPECT_EQ(uFindFirstFile((dir / nothing).c_str(), &data), VEK_INVALID_HANDLE);
    EXPECT_EQ(errMapError(), errSysNotFound);
  }
}

TEST(FilesTree, MakeAndRemoveTrees) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree||x|y|z|").c_str()), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "tree/x/y/z").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec((dir / "tree/x/y/z").c_str()), errOK);  // all there: nothing to do
  EXPECT_EQ(pfuFS::pfuMakeDirRec(nullptr), errOK);                       // the root alone
  WriteFile(dir / "tree/f", "");
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree|f|x").c_str()), errComponentNotDir);
  EXPECT_FALSE(Exists(dir / "tree/f/x"));
  // Below a base: each level judged by what the create reports.
  pfuDirPath const base(top.c_str());
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath()), errOK);
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|m")), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "outside/m").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|k")), errSysExists);
  EXPECT_FALSE(Exists(dir / "outside/k"));

  // Removal takes links away, never what they point to.
  WriteFile(dir / "outside/keep", "k");
  for (char const* file : {"tree/x/g", "tree/x/y/z/h"}) WriteFile(dir / file, "data");
  ASSERT_EQ(::symlink((dir / "outside").c_str(), (dir / "tree/x/dirlink").c_str()), 0);
  ASSERT_EQ(::symlink("missing", (dir / "tree/dangling").c_str()), 0);
  EXPECT_TRUE(pfuFS::pfuIsLink((dir / "tree/x/dirlink").c_str()));
  EXPECT_FALSE(pfuFS::pfuIsDir((dir / "tree/x/dirlink").c_str()));
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((top + "|tree").c_str())), errOK);
  EXPECT_FALSE(Exists(dir / "tree"));
  EXPECT_EQ(ReadFile(dir / "outside/keep"), "k");
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((top + "|tree").c_str())), errSysNotFound);
  for (char const* refused : {"", "|", "/", "\\\\", "C:|", "c:", "D:\\"})
    EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath(refused)), errSysInvalidArgument) << refused;
  EXPECT_TRUE(Exists(dir / "outside/keep"));
}

TEST(FilesTree, RemoveDirRecStopsWhereAPathCannotGrow) {
  TempDir dir;
  // Levels of 200-byte names until a child no longer fits a path object.
  std::string const name(200, 'd');
  int fd = ::open(dir.Path().c_str(), O_RDONLY | O_DIRECTORY);
  std::string native = dir.Path();
  for (; native.size() + name.size() + 2 < 1100; native += "/" + name) {
    ASSERT_EQ(::mkdirat(fd, name.c_str(), 0777), 0);
    int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
  }
  ::close(fd);
  EXPECT_EQ(pfuFS::pfuRemoveDirRec(pfuDirPath((dir / name).c_str())), errSysNameTooLong);
  EXPECT_TRUE(Exists(dir / name));
  // Every path operation refuses such a path before it reaches the disk.
  EXPECT_EQ(pfuFS::pfuMakeDir(native.c_str()), errSysNameTooLong);
  pfStat info;
  EXPECT_EQ(pfuFS::pfuStat(native.c_str(), info), errSysNameTooLong);
  EXPECT_FALSE(pfuFS::pfuIsDir(native.c_str()));
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
  EXPECT_EQ(ReadFile(dir / "to"), "");
  EXPECT_EQ(pfuFS::pfuCopyFile(at("big").c_str(), at("big").c_str()), errSysSharingViolation);
  EXPECT_EQ(ReadFile(dir / "big"), big);
  EXPECT_EQ(pfuFS::pfuCopyFile(at("none").c_str(), at("to2").c_str()), errSysNotFound);
  EXPECT_FALSE(Exists(dir / "to2"));

  long long size = -1, time = -1;
  EXPECT_EQ(pfuFS::pfuGetFileSize(at("big").c_str(), size), errOK);
  EXPECT_EQ(size, static_cast<long long>(big.size()));
  EXPECT_EQ(pfuFS::pfuGetModTime(at("big").c_str(), time), errOK);
  EXPECT_GT(time, 0);
  EXPECT_EQ(pfuFS::pfuGetFileSize(at("none").c_str(), size), errNoFileInfo);
  EXPECT_EQ(size, static_cast<long long>(big.size())) << "left alone";

  pfStat info{pfuDirPath(at("").c_str())};
  EXPECT_TRUE(info.initialized() && info.isDir() && info.canExe() && !info.isLink());
  EXPECT_TRUE(pfuFS::pfuIsDir(at("|").c_str()));
  EXPECT_TRUE(pfuFS::pfuIsExecutable(at("to").c_str()));
  EXPECT_TRUE(pfuFS::pfuIsValidFile(at("to").c_str()));
  EXPECT_FALSE(pfuFS::pfuIsValidFile(top.c_str()));
  EXPECT_FALSE(pfuFS::pfuIsExecutable(at("none").c_str()));
  EXPECT_EQ(pfuFS::pfuStat(at("none").c_str(), info), errNoFileInfo);
  EXPECT_TRUE(info.isDir()) << "left alone";

  ASSERT_EQ(::symlink("sub/target", (dir / "link").c_str()), 0);
  pfuDirPath target("unchanged");
  EXPECT_EQ(pfuFS::pfuReadLink(at("link").c_str(), target), errOK);
  EXPECT_STREQ(target, "sub|target");
  EXPECT_EQ(pfuFS::pfuReadLink(at("to").c_str(), target), errSysInvalidArgument);
}

TEST(FilesOps, CurrentDirectoryHostAndStreams) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  char before[4096], now[4096], expected[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  WriteFile(dir / "file", "text");
  EXPECT_EQ(pfuFS::pfuChangeDir((dir / "file").c_str()), errNotADirectory);
  ASSERT_EQ(pfuFS::pfuChangeDir(top.c_str()), errOK);
  ASSERT_NE(::realpath(dir.Path().c_str(), expected), nullptr);
  EXPECT_STREQ(::getcwd(now, sizeof now), expected);
  ASSERT_EQ(::chdir(before), 0);

  double bytes = 0;
  EXPECT_EQ(pfuFS::pfuGetFreeSpace(top.c_str(), bytes), errOK);
  EXPECT_GT(bytes, 0.0);
  EXPECT_EQ(pfuFS::pfuGetFreeSpace((dir / "missing").c_str(), bytes), errDiskQuery);
  EXPECT_EQ(bytes, -1.0);
  dsString host, user;
  EXPECT_TRUE(pfuFS::pfuGetComputerName(host));
  EXPECT_FALSE(host.IsEmpty());
  EXPECT_TRUE(pfuFS::pfuGetUserName(user) || std::string(user) == "UnknownUser");
  EXPECT_FALSE(user.IsEmpty());

  std::ifstream in;
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|missing").c_str(), std::ios::in, in), errSysNotFound);
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|file").c_str(), std::ios::in, in), errOK);  // state cleared first
  std::string word;
  in >> word;
  EXPECT_EQ(word, "text");
}

TEST(FilesOps, ParentPaths) {
  struct Case {
    char const *path, *parent;
    bool is;
    char const* rest;
  } const cases[] = {{"", "a", true, "untouched"}, {"a|b|c", "a|b", true, "c"}, {"a|bc", "a|b", false, "untouched"},
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
  for (std::size_t size : {0u, 7u, 65535u, 65536u, 65537u, 1000003u}) {
    std::string const bytes = Pattern(size);
    WriteFile(dir / "f", bytes);
    ASSERT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "f").c_str(), value), errOK);
    EXPECT_EQ(value, Checksum(bytes)) << size;
  }
  unsigned const last = value;
  EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "missing").c_str(), value), errNoMemoryOrIO);
  EXPECT_EQ(value, last);
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
  check("", "x", "y");
  check("aaa", "aa", "b");
  check("abcabc", "b", "");
  check("one two one", "one", "one one");
  check(std::string("zero\0byte\0zero", 14) + "zero", "zero", "0");  // binary: nothing dropped
  // Matches over every block edge a reader may have: 4095/4096 and 65536.
  for (std::size_t edge : {4094u, 4095u, 4096u, 65535u, 65536u, 131071u}) {
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
    ::unlink(target.c_str());
    EXPECT_EQ(pfuFS::pfuReplaceString(search, "x", from.c_str(), to.c_str()), errNoMemoryOrIO) << search << from << to;
    EXPECT_FALSE(Exists(target));
  }
  EXPECT_EQ(ReadFile(source), "abc");
}

}  // namespace
