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

TEST(FilesLower, ShareModesRefuseConflictingOpens) {
  TempDir dir;
  std::string const file = dir / "f";
  WriteFile(file, "keep");

  void* exclusive = Open(file, GENERIC_WRITE, 0, OPEN_EXISTING);
  ASSERT_NE(exclusive, VEK_INVALID_HANDLE);
  // Also within one process, as Windows refuses it; and CREATE_ALWAYS must not
  // empty the file it was refused.
  EXPECT_EQ(Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysSharingViolation);
  EXPECT_EQ(Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS), VEK_INVALID_HANDLE);
  EXPECT_EQ(ReadFile(file), "keep");
  ASSERT_TRUE(win32CloseFileHandle(exclusive));

  void* reader1 = Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
  void* reader2 = Open(file, GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING);
  EXPECT_NE(reader1, VEK_INVALID_HANDLE);
  EXPECT_NE(reader2, VEK_INVALID_HANDLE);
  EXPECT_EQ(Open(file, GENERIC_WRITE, 0, OPEN_ALWAYS), VEK_INVALID_HANDLE);
  EXPECT_TRUE(win32CloseFileHandle(reader1));
  EXPECT_TRUE(win32CloseFileHandle(reader2));

  void* truncating = Open(file, GENERIC_WRITE, 0, CREATE_ALWAYS);
  ASSERT_NE(truncating, VEK_INVALID_HANDLE);
  EXPECT_EQ(ReadFile(file), "");
  EXPECT_TRUE(win32CloseFileHandle(truncating));
  EXPECT_FALSE(win32CloseFileHandle(VEK_INVALID_HANDLE));
  EXPECT_EQ(errMapError(), errSysBadHandle);
}

TEST(FilesLower, OpenFailuresKeepTheirCause) {
  TempDir dir;
  EXPECT_EQ(Open(dir / "missing", GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysNotFound);
  EXPECT_EQ(Open(dir.Path(), GENERIC_READ, FILE_SHARE_READ, OPEN_EXISTING), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysIsDirectory);
  WriteFile(dir / "present", "x");
  EXPECT_EQ(Open(dir / "present", GENERIC_WRITE, 0, CREATE_NEW), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysExists);
}

TEST(FilesLower, ReadWriteSizeAndCopy) {
  TempDir dir;
  std::string const bytes = Pattern(3 * 1024 * 1024 + 17);
  void* out = Open(dir / "a", GENERIC_WRITE, 0, CREATE_ALWAYS);
  ASSERT_NE(out, VEK_INVALID_HANDLE);
  std::uint32_t written = 0;
  ASSERT_TRUE(vekWriteFile(out, bytes.data(), static_cast<std::uint32_t>(bytes.size()), &written));
  EXPECT_EQ(written, bytes.size());
  std::uint32_t high = 7;
  EXPECT_EQ(vekGetFileSize(out, &high), bytes.size());
  EXPECT_EQ(high, 0u);
  EXPECT_TRUE(vekLockFile(out, 0, 0, 100, 0));
  EXPECT_TRUE(vekUnlockFile(out, 0, 0, 100, 0));
  EXPECT_TRUE(vekLockFile(out, 0, 0, 0, 0));
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
  EXPECT_TRUE(win32CloseFileHandle(in));
  EXPECT_TRUE(win32CloseFileHandle(copy));
  EXPECT_EQ(ReadFile(dir / "b"), bytes.substr(10));
}

TEST(FilesLower, DirectoriesMovesAndLinks) {
  TempDir dir;
  std::string const sub = dir / "sub";
  ASSERT_EQ(uCreateDirectory(sub.c_str(), nullptr), 1);
  EXPECT_EQ(uCreateDirectory(sub.c_str(), nullptr), 0);
  EXPECT_EQ(errMapError(), errSysExists);
  WriteFile(sub + "/f", "new");
  WriteFile(dir / "old", "old");
  EXPECT_EQ(uRemoveDirectory(sub.c_str()), 0);
  EXPECT_EQ(errMapError(), errSysNotEmpty);
  EXPECT_EQ(uDeleteFile(sub.c_str()), 0);

  EXPECT_EQ(uMoveFileEx((sub + "/f").c_str(), (dir / "old").c_str(), 0), 0);
  EXPECT_EQ(errMapError(), errSysExists);
  EXPECT_EQ(uMoveFileEx((sub + "/f").c_str(), (dir / "old").c_str(), MOVEFILE_REPLACE_EXISTING), 1);
  EXPECT_EQ(ReadFile(dir / "old"), "new");

  ASSERT_EQ(::symlink("old", (dir / "link").c_str()), 0);
  struct stat info;
  ASSERT_TRUE(FileInfo_Read(info, (dir / "link").c_str(), false));
  EXPECT_EQ(info.st_mode & 0xF000, 0xA000u);
  ASSERT_TRUE(FileInfo_Read(info, (dir / "link").c_str(), true));
  EXPECT_EQ(info.st_mode & 0xF000, 0x8000u);
  char target[3];
  EXPECT_EQ(uReadLink((dir / "link").c_str(), target, sizeof target), -1);  // no room for the terminator
  EXPECT_EQ(errMapError(), errSysNameTooLong);
  EXPECT_EQ(uDeleteFile((dir / "link").c_str()), 1);
  EXPECT_EQ(ReadFile(dir / "old"), "new");
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
  EXPECT_EQ(Listing(dir / "*"),
            (std::set<std::string>{"./", "../", "a.txt", "b.txt", "ab.TXT", ".hidden", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "*.txt"), (std::set<std::string>{"a.txt", "b.txt", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "?.*t"), (std::set<std::string>{"a.txt", "b.txt", "d.txt/"}));
  EXPECT_EQ(Listing(dir / "*b*"), (std::set<std::string>{"b.txt", "ab.TXT"}));

  WIN32_FIND_DATAA data;
  EXPECT_EQ(uFindFirstFile((dir / "*.none").c_str(), &data), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysNotFound);
  EXPECT_EQ(uFindFirstFile((dir / "missing/*").c_str(), &data), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysNotFound);
}

std::string Neutral(std::string path) {
  std::replace(path.begin(), path.end(), '/', '|');
  return path;
}

bool Exists(std::string const& path) {
  struct stat info;
  return ::lstat(path.c_str(), &info) == 0;
}

TEST(FilesTree, MakeDirRecWalksFromTheTop) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|a||b|c|").c_str()), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "a/b/c").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec((dir / "a/b/c").c_str()), errOK);  // all there: nothing to do
  EXPECT_EQ(pfuFS::pfuMakeDirRec(nullptr), errOK);                   // the root alone

  WriteFile(dir / "a/file", "");
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|a|file|x").c_str()), errComponentNotDir);
  EXPECT_FALSE(Exists(dir / "a/file/x"));

  // Below a base: each level judged by what the create reports.
  pfuDirPath const base(top.c_str());
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath()), errOK);
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("n|m")), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "n/m").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("n|k")), errSysExists);
  EXPECT_FALSE(Exists(dir / "n/k"));
}

TEST(FilesTree, RemoveDirRecRemovesLinksNotTheirTargets) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  ASSERT_EQ(pfuFS::pfuMakeDirRec((top + "|tree|x|y|z").c_str()), errOK);
  ASSERT_EQ(pfuFS::pfuMakeDirRec((top + "|outside").c_str()), errOK);
  WriteFile(dir / "outside/keep", "k");
  for (char const* file : {"tree/f", "tree/x/g", "tree/x/y/z/h"}) WriteFile(dir / file, "data");
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
  while (native.size() + name.size() + 2 < 1100) {
    ASSERT_EQ(::mkdirat(fd, name.c_str(), 0777), 0);
    int next = ::openat(fd, name.c_str(), O_RDONLY | O_DIRECTORY);
    ::close(fd);
    fd = next;
    native += "/" + name;
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
  WriteFile(dir / "from", "new");
  WriteFile(dir / "to", "old contents");
  EXPECT_EQ(pfuFS::pfuRenameFile((top + "|from").c_str(), (top + "|to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), "new");
  EXPECT_FALSE(Exists(dir / "from"));

  std::string const big = Pattern(5 * 1024 * 1024 + 3);
  WriteFile(dir / "big", big);
  WriteFile(dir / "empty", "");
  EXPECT_EQ(pfuFS::pfuCopyFile((top + "|big").c_str(), (top + "|to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), big);
  EXPECT_EQ(pfuFS::pfuCopyFile((top + "|empty").c_str(), (top + "|to").c_str()), errOK);
  EXPECT_EQ(ReadFile(dir / "to"), "");
  EXPECT_EQ(pfuFS::pfuCopyFile((top + "|big").c_str(), (top + "|big").c_str()), errSysSharingViolation);
  EXPECT_EQ(ReadFile(dir / "big"), big);
  EXPECT_EQ(pfuFS::pfuCopyFile((top + "|none").c_str(), (top + "|to2").c_str()), errSysNotFound);
  EXPECT_FALSE(Exists(dir / "to2"));

  long long size = -1, time = -1;
  EXPECT_EQ(pfuFS::pfuGetFileSize((top + "|big").c_str(), size), errOK);
  EXPECT_EQ(size, static_cast<long long>(big.size()));
  EXPECT_EQ(pfuFS::pfuGetModTime((top + "|big").c_str(), time), errOK);
  EXPECT_GT(time, 0);
  EXPECT_EQ(pfuFS::pfuGetFileSize((top + "|none").c_str(), size), errNoFileInfo);
  EXPECT_EQ(size, static_cast<long long>(big.size()));

  pfStat info{pfuDirPath((top + "|").c_str())};
  EXPECT_TRUE(info.initialized() && info.isDir() && info.canExe() && !info.isLink());
  EXPECT_TRUE(pfuFS::pfuIsDir((top + "||").c_str()));
  EXPECT_TRUE(pfuFS::pfuIsExecutable((top + "|to").c_str()));
  EXPECT_TRUE(pfuFS::pfuIsValidFile((top + "|to").c_str()));
  EXPECT_FALSE(pfuFS::pfuIsValidFile(top.c_str()));
  EXPECT_FALSE(pfuFS::pfuIsExecutable((top + "|none").c_str()));
  EXPECT_EQ(pfuFS::pfuStat((top + "|none").c_str(), info), errNoFileInfo);
  EXPECT_TRUE(info.isDir());  // left as it was

  ASSERT_EQ(::symlink("sub/target", (dir / "link").c_str()), 0);
  pfuDirPath target("unchanged");
  EXPECT_EQ(pfuFS::pfuReadLink((top + "|link").c_str(), target), errOK);
  EXPECT_STREQ(target, "sub|target");
  EXPECT_EQ(pfuFS::pfuReadLink((top + "|to").c_str(), target), errSysInvalidArgument);
}

TEST(FilesOps, CurrentDirectoryAndHost) {
  TempDir dir;
  char before[4096];
  ASSERT_NE(::getcwd(before, sizeof before), nullptr);
  WriteFile(dir / "file", "");
  EXPECT_EQ(pfuFS::pfuChangeDir((dir / "file").c_str()), errNotADirectory);
  ASSERT_EQ(pfuFS::pfuChangeDir(Neutral(dir.Path()).c_str()), errOK);
  char now[4096], expected[4096];
  ASSERT_NE(::realpath(dir.Path().c_str(), expected), nullptr);
  EXPECT_STREQ(::getcwd(now, sizeof now), expected);
  ASSERT_EQ(::chdir(before), 0);

  double bytes = 0;
  EXPECT_EQ(pfuFS::pfuGetFreeSpace(Neutral(dir.Path()).c_str(), bytes), errOK);
  EXPECT_GT(bytes, 0.0);
  EXPECT_EQ(pfuFS::pfuGetFreeSpace((dir / "missing").c_str(), bytes), errDiskQuery);
  EXPECT_EQ(bytes, -1.0);

  dsString drives("x");
  EXPECT_EQ(pfuFS::pfuGetLogicalDrives(drives), errOK);
  EXPECT_TRUE(drives.IsEmpty());
  dsString host, user;
  EXPECT_TRUE(pfuFS::pfuGetComputerName(host));
  EXPECT_FALSE(host.IsEmpty());
  if (!pfuFS::pfuGetUserName(user)) {
    EXPECT_STREQ(user, "UnknownUser");
  }
  EXPECT_FALSE(user.IsEmpty());
}

TEST(FilesOps, ParentPathsAndStreams) {
  pfuDirPath rest("untouched");
  EXPECT_TRUE(pfuFS::pfuIsParentPath("", "a", rest));
  EXPECT_STREQ(rest, "untouched");
  EXPECT_TRUE(pfuFS::pfuIsParentPath("a|b|c", "a|b", rest));
  EXPECT_STREQ(rest, "c");
  EXPECT_FALSE(pfuFS::pfuIsParentPath("a|bc", "a|b", rest));
  EXPECT_TRUE(pfuFS::pfuIsParentPath("a|b", "a|b", rest));
  EXPECT_STREQ(rest, "");
  EXPECT_TRUE(pfuFS::pfuIsParentPath("a|b", "a|", rest));
  EXPECT_STREQ(rest, "b");
  EXPECT_TRUE(pfuFS::pfuIsParentPath("a|b", nullptr, rest));
  EXPECT_STREQ(rest, "a|b");

  TempDir dir;
  std::string const top = Neutral(dir.Path());
  std::ofstream out;
  ASSERT_EQ(pfuFS::pfuOpenStream((top + "|s").c_str(), std::ios::out, out), errOK);
  out << "text";
  out.close();
  std::ifstream in;
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|missing").c_str(), std::ios::in, in), errSysNotFound);
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|s").c_str(), std::ios::in, in), errOK);  // state cleared first
  std::string word;
  in >> word;
  EXPECT_EQ(word, "text");
}

unsigned Checksum(std::string const& bytes) {
  unsigned sum = 0, xorValue = 0;
  for (unsigned char c : bytes) {
    sum += c;
    xorValue ^= c;
  }
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
  EXPECT_EQ(value >> 16, 1000003u & 0xFFFF);
  WriteFile(dir / "f", std::string(100001, '\xFF'));  // the largest sums
  ASSERT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "f").c_str(), value), errOK);
  EXPECT_EQ(value, Checksum(std::string(100001, '\xFF')));
  EXPECT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "missing").c_str(), value), errNoMemoryOrIO);
  EXPECT_EQ(value, Checksum(std::string(100001, '\xFF')));
}

// Every occurrence, left to right, without overlap.
std::string Replaced(std::string text, std::string const& search, std::string const& replacement) {
  for (std::size_t at = text.find(search); at != std::string::npos;
       at = text.find(search, at + replacement.size())) {
    text.replace(at, search.size(), replacement);
  }
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
}

TEST(FilesContent, ReplaceStringRefusals) {
  TempDir dir;
  std::string const source = dir / "source";
  WriteFile(source, "abc");
  EXPECT_EQ(pfuFS::pfuReplaceString("", "x", source.c_str(), (dir / "t").c_str()), errNoMemoryOrIO);
  EXPECT_FALSE(Exists(dir / "t"));  // refused before any file was made
  EXPECT_EQ(pfuFS::pfuReplaceString("b", "x", (dir / "none").c_str(), (dir / "t").c_str()), errNoMemoryOrIO);
  EXPECT_FALSE(Exists(dir / "t"));
  EXPECT_EQ(pfuFS::pfuReplaceString("b", "x", source.c_str(), source.c_str()), errNoMemoryOrIO);
  EXPECT_EQ(ReadFile(source), "abc");
  EXPECT_EQ(pfuFS::pfuReplaceString("b", "x", source.c_str(), (dir / "no/t").c_str()), errNoMemoryOrIO);
}

}  // namespace
