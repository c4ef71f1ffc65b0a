// File-system operations: the lower file calls and pfuFS.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
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
  char target[8];
  EXPECT_EQ(uReadLink((dir / "link").c_str(), target, sizeof target), 3);
  EXPECT_STREQ(target, "old");
  EXPECT_EQ(uReadLink((dir / "link").c_str(), target, 3), -1);
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

TEST(FilesLower, HostQueries) {
  TempDir dir;
  std::uint32_t perCluster = 0, perSector = 0, available = 0, total = 0;
  ASSERT_EQ(uGetDiskFreeSpace(dir.Path().c_str(), &perCluster, &perSector, &available, &total), 1);
  EXPECT_GT(double(perCluster) * perSector * total, 0.0);
  EXPECT_LE(available, total);
  EXPECT_EQ(uGetDiskFreeSpace((dir / "missing").c_str(), &perCluster, &perSector, &available, &total), 0);

  char name[256];
  std::uint32_t size = sizeof name;
  ASSERT_EQ(uGetComputerName(name, &size), 1);
  EXPECT_EQ(size, std::string(name).size());
  std::uint32_t tiny = 1;
  EXPECT_EQ(uGetComputerName(name, &tiny), 0);
  EXPECT_EQ(tiny, size + 1);
}

}  // namespace
