// File-system operations: the lower file calls, pfuFS, directory reading and
// file locks between processes.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "quillon.h"
#include "testsupport.h"
#include "vekfile.h"

namespace {

using qtest::Neutral;
using qtest::PathOfLength;
using qtest::Pattern;
using qtest::ReadFile;
using qtest::TempDir;
using qtest::WriteFile;
namespace fs = std::filesystem;

void* Open(std::string const& path, std::uint32_t access, std::uint32_t share, std::uint32_t disposition) {
  return uCreateFile(path.c_str(), access, share, nullptr, disposition, vekFileAttributeNormal, nullptr);
}

// What is at path, a link itself rather than what it names (so Exists holds
// for a dangling link too).
fs::file_status Status(std::string const& path) {
  std::error_code failed;
  return fs::symlink_status(path, failed);
}

bool Exists(std::string const& path) { return fs::exists(Status(path)); }
bool IsDir(std::string const& path) { return fs::is_directory(Status(path)); }

unsigned Permissions(std::string const& path) { return static_cast<unsigned>(Status(path).permissions()) & 07777u; }

void Link(std::string const& target, std::string const& link) {
  ASSERT_TRUE(qtest::host::MakeSymbolicLink(target, link)) << link;
}

bool MakeDir(std::string const& path) {
  std::error_code failed;
  return fs::create_directory(path, failed);
}

bool SetPermissions(std::string const& path, unsigned mode) {
  std::error_code failed;
  fs::permissions(path, static_cast<fs::perms>(mode), fs::perm_options::replace, failed);
  return !failed;
}

bool ChangeDir(std::string const& path) {
  std::error_code failed;
  fs::current_path(path, failed);
  return !failed;
}

// What pfuDir reads in a directory that must open.
std::set<std::string> Names(std::string const& dir) {
  std::set<std::string> names;
  std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(dir.c_str())));
  if (reader == nullptr) ADD_FAILURE() << "cannot read " << dir;
  pfuDirEntry entry;
  while (reader != nullptr && reader->Read(entry)) names.insert(static_cast<char const*>(entry));
  return names;
}

// Puts the current directory, which is the whole process's, back at the end.
struct CurrentDirAtEnd {
  std::string const saved = fs::current_path().string();
  ~CurrentDirAtEnd() {
    if (!ChangeDir(saved)) ADD_FAILURE() << "cannot return to " << saved;
  }
};

TEST(FilesLower, OpensHonourShareModesAndKeepTheirCause) {
  TempDir dir;
  std::string const file = dir / "f";
  WriteFile(file, "keep");
  void* exclusive = Open(file, vekGenericWrite, 0, vekOpenExisting);
  ASSERT_NE(exclusive, VEK_INVALID_HANDLE);
  // No child process inherits a file handle.
  EXPECT_FALSE(qtest::host::IsInheritable(reinterpret_cast<std::uintptr_t>(exclusive)));
  // Refused within one process too; and a refused vekCreateAlways leaves the file whole.
  EXPECT_EQ(Open(file, vekGenericRead, vekFileShareRead, vekOpenExisting), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysSharingViolation);
  EXPECT_EQ(Open(file, vekGenericWrite, 0, vekCreateAlways), VEK_INVALID_HANDLE);
  ASSERT_TRUE(win32CloseFileHandle(exclusive));
  EXPECT_EQ(ReadFile(file), "keep");  // read once the handle that shares nothing is gone

  void* reader1 = Open(file, vekGenericRead, vekFileShareRead, vekOpenExisting);
  void* reader2 = Open(file, vekGenericRead, vekFileShareRead, vekOpenExisting);
  EXPECT_NE(reader2, VEK_INVALID_HANDLE);
  EXPECT_EQ(Open(file, vekGenericWrite, 0, vekOpenAlways), VEK_INVALID_HANDLE);
  EXPECT_TRUE(win32CloseFileHandle(reader1) && win32CloseFileHandle(reader2));

  EXPECT_EQ(Open(dir.Path(), vekGenericRead, vekFileShareRead, vekOpenExisting), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysIsDirectory);
}

TEST(FilesLower, InformationNamesTheTypeOfEveryFileAndErrorsKeepTheirCause) {
  TempDir dir;
  WriteFile(dir / "f", "12345");
  EXPECT_EQ(uRemoveDirectory(dir.Path().c_str()), 0);
  EXPECT_EQ(errMapError(), errSysNotEmpty);
  vekFindData data;
  EXPECT_EQ(uFindFirstFile((dir / "*.none").c_str(), &data), VEK_INVALID_HANDLE);
  EXPECT_EQ(errMapError(), errSysNotFound);

  vekFileInfo info{};
  ASSERT_TRUE(FileInfo_Read(info, (dir / "f").c_str(), false));
  EXPECT_EQ(info.type, vekFileType::regular);
  long long const now = static_cast<long long>(std::time(nullptr));
  EXPECT_LE(std::llabs(info.modificationTime - now), 60) << info.modificationTime;
  ASSERT_TRUE(FileInfo_Read(info, dir.Path().c_str(), false));
  EXPECT_EQ(info.type, vekFileType::directory);
  EXPECT_FALSE(FileInfo_Read(info, (dir / "none").c_str(), false));
  EXPECT_EQ(errMapError(), errSysNotFound);
  EXPECT_EQ(info.type, vekFileType::directory);  // left alone

  QTEST_POSIX_ONLY("symbolic links and FIFOs");
  std::string const link = dir / "link";
  Link("f", link);
  ASSERT_TRUE(FileInfo_Read(info, link.c_str(), false));
  EXPECT_EQ(info.type, vekFileType::link);
  ASSERT_TRUE(FileInfo_Read(info, link.c_str(), true));
  EXPECT_EQ(info.type, vekFileType::regular);
  char target[1];
  EXPECT_EQ(uReadLink(link.c_str(), target, sizeof target), -1);  // no room for the terminator
  EXPECT_EQ(errMapError(), errSysNameTooLong);
  ASSERT_TRUE(qtest::host::MakeFifo(dir / "fifo"));
  ASSERT_TRUE(FileInfo_Read(info, (dir / "fifo").c_str(), false));
  EXPECT_EQ(info.type, vekFileType::other);
}

// Which names a pattern matches, and that a reader only moves forward, are
// checked against a plain matcher by fuzz/wildcard_fuzz.cpp.
TEST(DirReading, ListsEveryEntryButDotAndDotDotAndExpandsPatterns) {
  TempDir dir;
  // Windows names end in no dot, so "..." is a name on POSIX only.
  std::set<std::string> expected{".a", "..a", "plain"};
  if (qtest::host::kIsPosix) expected.insert("...");
  for (std::string const& name : expected) WriteFile(dir / name, "");
  ASSERT_EQ(pfuFS::pfuMakeDir((dir / "sub").c_str()), errOK);
  expected.insert("sub");
  for (std::string const& path : {Neutral(dir.Path()), Neutral(dir.Path()) + "|", dir.Path() + qtest::host::kSeparator}) {
    EXPECT_EQ(Names(path), expected) << path;
  }
  EXPECT_EQ(pfuDir::OpenDir(pfuDirPath(Neutral(dir / "missing").c_str())), nullptr);
  EXPECT_EQ(errMapError(), errSysNotFound);

  // An expansion adds names alone to what the array holds; no pattern, nothing.
  // Case counts on POSIX; Windows names match without regard to it.
  dsXArray<pfuDirPath*> paths;
  paths += new pfuDirPath("before");
  bool const caseless = !qtest::host::kIsPosix;
  for (auto [pattern, matches] : {std::pair<char const*, bool>{"?A", caseless}, {"*a", true}, {nullptr, false}}) {
    std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(dir.Path().c_str())));
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->ExpandPattern(pattern, paths), matches) << pattern;
  }
  std::set<std::string> found;
  for (unsigned i = 0; i < paths.GetSize(); ++i) {
    found.insert(static_cast<char const*>(*paths[i]));
    delete paths[i];
  }
  EXPECT_EQ(found, (std::set<std::string>{"before", ".a", "..a"}));

  // A directory whose path fills a path object.
  std::string const longest = PathOfLength(dir, 1023, 'd');
  ASSERT_EQ(pfuFS::pfuMakeDir(longest.c_str()), errOK);
  WriteFile(longest + "/inside", "");
  EXPECT_EQ(Names(longest), std::set<std::string>{"inside"});
}

TEST(FilesTree, MakeTreesButNoneFromARefusedPath) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  pfuDirPath const base(top.c_str());
  CurrentDirAtEnd const back;
  ASSERT_TRUE(ChangeDir(dir.Path()));
  // Neither the root nor the current directory: an empty path object means
  // either, a refused one neither.
  pfuDirPath const refused(std::string(1500, 'r').c_str());
  EXPECT_EQ(pfuDir::OpenDir(refused), nullptr);
  EXPECT_EQ(errMapError(), errSysNameTooLong);
  EXPECT_EQ(pfuFS::pfuMakeDirRec(refused, pfuDirPath("stray|dir")), errSysNameTooLong);
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, refused), errSysNameTooLong);
  EXPECT_TRUE(Names(dir.Path()).empty());

  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree||x|y|z|").c_str()), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "tree/x/y/z").c_str()));
  WriteFile(dir / "tree/f", "");
  EXPECT_EQ(pfuFS::pfuMakeDirRec((top + "|tree|f|x").c_str()), errComponentNotDir);
  EXPECT_FALSE(Exists(dir / "tree/f/x"));
  // Below a base: each level judged by what the create reports.
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|m")), errOK);
  EXPECT_TRUE(pfuFS::pfuIsDir((dir / "outside/m").c_str()));
  EXPECT_EQ(pfuFS::pfuMakeDirRec(base, pfuDirPath("outside|k")), errSysExists);
  EXPECT_FALSE(Exists(dir / "outside/k"));
  // Nor is a join that does not fit read as the path it was to extend.
  std::string const deep = PathOfLength(dir, 1000, 'd');
  ASSERT_TRUE(MakeDir(deep));
  EXPECT_EQ(pfuFS::pfuMakeDirRec(pfuDirPath(deep.c_str()), pfuDirPath(("x|" + std::string(30, 'y')).c_str())),
            errSysNameTooLong);
  EXPECT_EQ(Names(deep), std::set<std::string>{"x"});
}

// Recursive removal runs in a child confined to the test's directory, so
// whatever the walk gets wrong, nothing outside that directory can go.
class FilesRemoveTree : public testing::Test {
 protected:
  void SetUp() override {
    QTEST_POSIX_ONLY("confinement with chroot");
    WriteFile(dir / "marker", "");
    QTEST_REQUIRE_RAN(qtest::RunConfined(dir.Path(), "marker", [] { return 0; }));
  }

  // pfuRemoveDirRec(path) run from the directory `from` of the jail.
  int Remove(std::string const& path, std::string const& from = "/") {
    qtest::ChildOutcome const run = qtest::RunConfined(dir.Path(), "marker", [&] {
      return ChangeDir(from) ? int(pfuFS::pfuRemoveDirRec(pfuDirPath(path.c_str()))) : -1;
    });
    EXPECT_TRUE(run.ran) << path << ": " << run.why;
    return run.value;
  }

  void MakeDirs(std::initializer_list<char const*> names) {
    for (char const* name : names) ASSERT_TRUE(MakeDir(dir / name)) << name;
  }

  TempDir dir;
};

TEST_F(FilesRemoveTree, RootsDotsAndRefusedPathsRemoveNothing) {
  MakeDirs({"keep", "keep/sub"});
  WriteFile(dir / "keep/file", "k");
  // Every spelling of the root; an empty path, a drive, a name of `.` or `..`
  // anywhere; a text too long for a path object: no directory to remove.
  struct Case { char const* from; std::vector<std::string> paths; errstatus expected; } const cases[] = {
      {"/", {"|", "/", "\\", "||", "/./", "|.", "|..", "|keep|..", "|keep|.|..|", ".", "keep|..", "", "c:", "D:\\",
             "|keep|sub|.."}, errSysInvalidArgument},
      {"/keep", {".", "sub|."}, errSysInvalidArgument},
      {"/", {std::string(1500, 'r')}, errSysNameTooLong}};
  for (Case const& c : cases) {
    for (std::string const& path : c.paths) {
      EXPECT_EQ(Remove(path, c.from), c.expected) << path << " from " << c.from;
      ASSERT_TRUE(Exists(dir / "marker") && IsDir(dir / "keep/sub") && ReadFile(dir / "keep/file") == "k")
          << path << " from " << c.from;
    }
  }
}

TEST_F(FilesRemoveTree, LinksAndNamesHoldingSeparatorsStayInsideTheTree) {
  // Linux names may hold `\` and `|`, which paths read as separators.
  MakeDirs({"keep", "tree", "tree/..|keep", "tree/x", "tree/x/..\\..\\keep", "tree/x/y"});
  WriteFile(dir / "keep/file", "k");
  WriteFile(dir / "tree/..\\keep.txt", "");
  WriteFile(dir / "tree/x/..|..|keep.txt", "");
  WriteFile(dir / "keep.txt", "o");
  WriteFile(dir / "tree/x/y/h", "data");
  for (auto [target, link] : {std::pair{"keep", "link"}, {"keep/file", "filelink"}, {"/", "rootlink"},
                              {"/keep", "tree/x/dirlink"}, {"/keep/file", "tree/x/y/filelink"}})
    Link(target, dir / link);

  // A link given as the path goes itself, with or without a trailing separator.
  for (auto [path, name] : {std::pair{"|link", "link"}, {"|filelink", "filelink"}, {"|rootlink|", "rootlink"}}) {
    EXPECT_EQ(Remove(path), errOK) << path;
    EXPECT_FALSE(Exists(dir / name)) << path;
    ASSERT_TRUE(Exists(dir / "marker") && ReadFile(dir / "keep/file") == "k") << path;
  }
  EXPECT_EQ(Remove("|tree"), errOK);
  EXPECT_FALSE(Exists(dir / "tree"));
  EXPECT_EQ(ReadFile(dir / "keep/file") + ReadFile(dir / "keep.txt"), "ko");

  // What is not there, or is no directory, is reported and left alone.
  EXPECT_EQ(Remove("|tree"), errSysNotFound);
  EXPECT_EQ(Remove("keep|file|"), errSysNotDirectory);
  EXPECT_EQ(ReadFile(dir / "keep/file"), "k");
}

TEST_F(FilesRemoveTree, StopsWhereAPathCannotGrow) {
  // Levels of 200-byte names until one no longer fits a path object.
  std::string const name(200, 'd');
  for (std::string level; level.size() < 1024;) {
    level += "/" + name;
    ASSERT_TRUE(MakeDir(dir.Path() + level)) << level.size();
  }
  EXPECT_EQ(Remove("|" + name), errSysNameTooLong);
  EXPECT_TRUE(Exists(dir / name));
}

// Every operation that takes a path as text, at 1023 bytes and at 1024: what
// each needs is there at both lengths, so only the refusal stops the longer.
TEST(FilesLimits, EveryPathOperationTakes1023BytesAndRefuses1024) {
  TempDir dir;
  CurrentDirAtEnd const back;
  // Windows makes symbolic links only with a privilege (Wine not at all).
  bool const links = qtest::host::MakeSymbolicLink("f", dir / "probe");
  struct Paths { std::string file, fresh, sub, link; };
  struct Operation {
    char const* name;
    int refused;  // the answer at 1024 bytes; 1 (errOK or true) at 1023
    std::function<int(Paths const&)> call;
    std::function<bool(Paths const&)> done;  // for a change: whether the disk shows it
  };
  std::nullptr_t const nothing = nullptr;
  int const tooLong = errSysNameTooLong, noFile = errNoMemoryOrIO, no = false;
  auto const freshDir = [](Paths const& p) { return IsDir(p.fresh); };
  auto const freshMade = [](Paths const& p) { return Exists(p.fresh); };
  auto const subGone = [](Paths const& p) { return !Exists(p.sub); };
  auto const fileGone = [](Paths const& p) { return !Exists(p.file); };
  Operation const operations[] = {
      {"MakeDir", tooLong, [](Paths const& p) { return int(pfuFS::pfuMakeDir(p.fresh.c_str())); }, freshDir},
      {"MakeDirRec", tooLong, [](Paths const& p) { return int(pfuFS::pfuMakeDirRec(p.fresh.c_str())); }, freshDir},
      {"RemoveDir", tooLong, [](Paths const& p) { return int(pfuFS::pfuRemoveDir(p.sub.c_str())); }, subGone},
      {"RemoveDirRec", tooLong, [](Paths const& p) { return int(pfuFS::pfuRemoveDirRec(pfuDirPath(p.sub.c_str()))); }, subGone},
      {"DeleteFile", tooLong, [](Paths const& p) { return int(pfuFS::pfuDeleteFile(p.file.c_str())); }, fileGone},
      {"Unlink", tooLong, [](Paths const& p) { return int(pfuFS::pfuUnlink(p.file.c_str())); }, fileGone},
      {"RenameFile", tooLong, [](Paths const& p) { return int(pfuFS::pfuRenameFile(p.file.c_str(), p.fresh.c_str())); },
       [](Paths const& p) { return ReadFile(p.fresh) == "data" && !Exists(p.file); }},
      {"CopyFile", tooLong, [](Paths const& p) { return int(pfuFS::pfuCopyFile(p.file.c_str(), p.fresh.c_str())); },
       [](Paths const& p) { return ReadFile(p.fresh) == "data"; }},
      {"ChangeDir", tooLong, [](Paths const& p) { return int(pfuFS::pfuChangeDir(p.sub.c_str())); },
       [](Paths const& p) { return fs::current_path() == fs::path(p.sub); }},
      {"Stat", tooLong, [](Paths const& p) { pfStat info; return int(pfuFS::pfuStat(p.file.c_str(), info)); }, nothing},
      {"IsDir", no, [](Paths const& p) { return int(pfuFS::pfuIsDir(p.sub.c_str())); }, nothing},
      {"IsValidDirectory", no, [](Paths const& p) { return int(pfuFS::pfuIsValidDirectory(p.sub.c_str())); }, nothing},
      {"IsLink", no, [](Paths const& p) { return int(pfuFS::pfuIsLink(p.link.c_str())); }, nothing},
      {"IsExecutable", no, [](Paths const& p) { return int(pfuFS::pfuIsExecutable(p.file.c_str())); }, nothing},
      {"IsValidFile", no, [](Paths const& p) { return int(pfuFS::pfuIsValidFile(p.file.c_str())); }, nothing},
      {"GetFileSize", tooLong,
       [](Paths const& p) {
         long long size = 0;
         errstatus status = pfuFS::pfuGetFileSize(p.file.c_str(), size);
         return status == errOK && size != 4 ? -1 : int(status);
       }, nothing},
      {"GetModTime", tooLong, [](Paths const& p) { long long time = 0; return int(pfuFS::pfuGetModTime(p.file.c_str(), time)); }, nothing},
      {"ReadLink", tooLong, [](Paths const& p) { pfuDirPath target; return int(pfuFS::pfuReadLink(p.link.c_str(), target)); }, nothing},
      {"GetFreeSpace", tooLong, [](Paths const& p) { double bytes = 0; return int(pfuFS::pfuGetFreeSpace(p.sub.c_str(), bytes)); }, nothing},
      {"OpenStream", tooLong,
       [](Paths const& p) { std::ofstream out; return int(pfuFS::pfuOpenStream(p.fresh.c_str(), std::ios::out, out)); },
       freshMade},
      {"OpenFile", no,
       [](Paths const& p) { std::filebuf buffer; return int(OpenFile(buffer, p.fresh.c_str(), std::ios::out, 0) != nullptr); },
       freshMade},
      {"CalcCheckSumByPath", noFile, [](Paths const& p) { unsigned sum = 0; return int(pfuFS::pfuCalcCheckSumByPath(p.file.c_str(), sum)); }, nothing},
      {"ReplaceString", noFile, [](Paths const& p) { return int(pfuFS::pfuReplaceString("a", "b", p.file.c_str(), p.fresh.c_str())); },
       [](Paths const& p) { return ReadFile(p.fresh) == "dbtb"; }},
  };
  for (std::size_t length : {std::size_t(1023), std::size_t(1024)}) {
    Paths const p{PathOfLength(dir, length, 'f'), PathOfLength(dir, length, 'n'), PathOfLength(dir, length, 's'),
                  PathOfLength(dir, length, 'l')};
    for (Operation const& op : operations) {
      if (!links && (std::strcmp(op.name, "IsLink") == 0 || std::strcmp(op.name, "ReadLink") == 0)) continue;
      std::error_code ignored;
      for (std::string const& made : {p.fresh, p.sub, p.link}) fs::remove(made, ignored);
      WriteFile(p.file, "data");
      ASSERT_TRUE(MakeDir(p.sub));
      if (links) Link("f", p.link);
      // Windows holds no current directory of MAX_PATH characters or more.
      bool const fits = length < 1024 && (qtest::host::kIsPosix || std::strcmp(op.name, "ChangeDir") != 0);
      EXPECT_EQ(op.call(p), fits ? 1 : op.refused) << op.name << " at " << length;
      if (op.done) {
        EXPECT_EQ(op.done(p), fits) << op.name << " at " << length;
      }
      ASSERT_TRUE(ChangeDir(dir.Path()));
    }
  }
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
  EXPECT_EQ(pfuFS::pfuGetFileSize(at("none").c_str(), size), errNoFileInfo);

  QTEST_POSIX_ONLY("symbolic links");
  Link("sub/target", dir / "link");
  pfuDirPath target("unchanged");
  EXPECT_EQ(pfuFS::pfuReadLink(at("link").c_str(), target), errOK);
  EXPECT_STREQ(target, "sub|target");
}

TEST(FilesOps, CopyKeepsPermissionsAndTakesOnlyFiles) {
  QTEST_POSIX_ONLY("file modes and FIFOs");
  TempDir dir;
  // Each copy in a child of its own: its file-creation mask, and an end to a copy that blocks.
  auto copy = [&](char const* from, char const* to) {
    qtest::ChildOutcome const run = qtest::RunInChild([&] {
      qtest::host::SetFileCreationMask(022);
      return int(pfuFS::pfuCopyFile((dir / from).c_str(), (dir / to).c_str()));
    }, std::chrono::seconds(10));
    EXPECT_TRUE(run.ran) << from << ": " << run.why;
    return run.value;
  };
  WriteFile(dir / "from", "bytes");
  WriteFile(dir / "old", "old");
  ASSERT_TRUE(SetPermissions(dir / "old", 0600));
  ASSERT_TRUE(SetPermissions(dir / "from", 0762));  // neither a default nor what the mask leaves
  for (char const* to : {"new", "old"}) {
    EXPECT_EQ(copy("from", to), errOK);
    EXPECT_EQ(Permissions(dir / to), 0762u) << to;
  }
  // A FIFO without a writer would block an open for ever; a directory has no bytes.
  ASSERT_TRUE(qtest::host::MakeFifo(dir / "fifo"));
  EXPECT_EQ(copy("fifo", "to"), errSysInvalidArgument);
  EXPECT_EQ(pfuFS::pfuCopyFile(dir.Path().c_str(), (dir / "to").c_str()), errSysIsDirectory);
  EXPECT_FALSE(Exists(dir / "to"));
}

// Moves between two file systems copy the file and remove the original:
// /dev/shm is a file system of its own on most Linux hosts.
class FilesMoveAcross : public testing::Test {
 protected:
  void SetUp() override {
    QTEST_POSIX_ONLY("file modes, and /dev/shm as a second file system");
    if (!qtest::host::OnOtherFileSystems("/dev/shm", here.Path())) GTEST_SKIP() << "no second file system at /dev/shm";
    there = std::make_unique<TempDir>("/dev/shm");
  }

  // An unprivileged child's move is refused: both stay, nothing else is left.
  void ExpectRefusedMove(std::string const& from, std::string const& to) {
    ASSERT_TRUE(SetPermissions(here.Path(), 0777));
    ASSERT_TRUE(SetPermissions(there->Path(), 0777));
    qtest::ChildOutcome const run = qtest::RunUnprivileged([&] { return int(pfuFS::pfuRenameFile(from.c_str(), to.c_str())); });
    QTEST_REQUIRE_RAN(run);
    EXPECT_EQ(run.value, errSysAccessDenied);
    EXPECT_EQ(ReadFile(from), "moved");
    EXPECT_EQ(ReadFile(to), "old");
    EXPECT_EQ(Names(fs::path(to).parent_path().string()), std::set<std::string>{"to"});
  }

  void MakeFromAndTo(std::string const& from, unsigned fromMode, std::string const& to) {
    WriteFile(from, "moved");
    WriteFile(to, "old");
    ASSERT_TRUE(SetPermissions(from, fromMode));
    ASSERT_TRUE(SetPermissions(to, 0666));
  }

  TempDir here;
  std::unique_ptr<TempDir> there;
};

TEST_F(FilesMoveAcross, TheMovedFileKeepsItsPermissions) {
  std::string const from = *there / "from", to = here / "to";
  MakeFromAndTo(from, 0600, to);
  EXPECT_EQ(pfuFS::pfuRenameFile(from.c_str(), to.c_str()), errOK);
  EXPECT_EQ(ReadFile(to), "moved");
  EXPECT_EQ(Permissions(to), 0600u);
  EXPECT_FALSE(Exists(from));
  EXPECT_EQ(Names(here.Path()), std::set<std::string>{"to"});  // nothing else left behind
}

TEST_F(FilesMoveAcross, AnOriginalThatCannotGoLeavesBothAsTheyWere) {
  std::string const locked = *there / "locked", from = locked + "/from";
  ASSERT_TRUE(MakeDir(locked));
  MakeFromAndTo(from, 0644, here / "to");
  ASSERT_TRUE(SetPermissions(locked, 0555));  // no name in it can be removed
  ExpectRefusedMove(from, here / "to");
}

TEST_F(FilesMoveAcross, ATargetThatCannotBeReplacedLeavesBothAsTheyWere) {
  if (!qtest::host::IsPrivileged()) GTEST_SKIP() << "needs a target owned by another user";
  // In a sticky directory only a file's owner may replace it.
  std::string const sticky = here / "sticky", from = *there / "from";
  ASSERT_TRUE(MakeDir(sticky));
  ASSERT_TRUE(SetPermissions(sticky, 01777));
  MakeFromAndTo(from, 0604, sticky + "/to");
  ExpectRefusedMove(from, sticky + "/to");
  EXPECT_EQ(Permissions(from), 0604u);
}

TEST(FilesOps, CurrentDirectoryFreeSpaceAndStreams) {
  TempDir dir;
  std::string const top = Neutral(dir.Path());
  CurrentDirAtEnd const back;
  WriteFile(dir / "file", "text");
  EXPECT_EQ(pfuFS::pfuChangeDir((dir / "file").c_str()), errNotADirectory);
  ASSERT_EQ(pfuFS::pfuChangeDir(top.c_str()), errOK);
  EXPECT_EQ(fs::current_path(), fs::canonical(dir.Path()));

  double bytes = 0;
  EXPECT_EQ(pfuFS::pfuGetFreeSpace(top.c_str(), bytes), errOK);
  EXPECT_GT(bytes, 0.0);
  // No file system to ask: a missing path; on Windows, which asks the drive's root, no drive.
  std::string const unanswerable = qtest::host::kIsPosix ? dir / "missing" : std::string("missing");
  EXPECT_EQ(pfuFS::pfuGetFreeSpace(unanswerable.c_str(), bytes), errDiskQuery);
  EXPECT_EQ(bytes, -1.0);

  std::ifstream in;
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|missing").c_str(), std::ios::in, in), errSysNotFound);
  EXPECT_EQ(pfuFS::pfuOpenStream((top + "|file").c_str(), std::ios::in, in), errOK);  // state cleared first
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "text");
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
  unsigned value = 0;
  // All 0xFF fills the lanes of a wide sum the most; at this length the carries
  // of lanes that overflowed cannot add up to a multiple of 256.
  for (std::string const& bytes : {Pattern(0), Pattern(65535), Pattern(65536), Pattern(65537),
                                   std::string(70001, '\xFF')}) {
    WriteFile(dir / "f", bytes);
    ASSERT_EQ(pfuFS::pfuCalcCheckSumByPath((dir / "f").c_str(), value), errOK);
    EXPECT_EQ(value, Checksum(bytes)) << bytes.size();
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
  // Texts made of nothing but matches, of a short and of a long search:
  // reads of any size end inside some of them.
  for (std::string const& search : {std::string("0123456789"), std::string(5000, 'L') + "!"}) {
    std::string bytes;
    while (bytes.size() < 300000) bytes += search;
    check(bytes, search, "<replaced>");
  }

  WriteFile(source, "abc");
  for (auto [search, from, to] : {std::make_tuple("", source, target), std::make_tuple("b", dir / "none", target),
                                  std::make_tuple("b", source, source), std::make_tuple("b", source, dir / "no/t")}) {
    fs::remove(target);
    EXPECT_EQ(pfuFS::pfuReplaceString(search, "x", from.c_str(), to.c_str()), errNoMemoryOrIO) << search << from << to;
    EXPECT_FALSE(Exists(target));
  }
  EXPECT_EQ(ReadFile(source), "abc");
}


// Holds args[0] open with no sharing, reports args[1] + ".ready", and closes
// it once args[1] exists.
QTEST_HELPER(holdlock) {
  void* handle = Open(args[0], vekGenericWrite, 0, vekOpenAlways);
  if (handle == VEK_INVALID_HANDLE) return 2;
  WriteFile(args[1] + ".ready", "");
  if (!qtest::WaitUntil([&] { return Exists(args[1]); }, std::chrono::seconds(20))) return 3;
  return win32CloseFileHandle(handle) ? 0 : 4;
}

TEST(FileLocks, LockWaitsForAnotherHolderOnly) {
  TempDir dir;
  std::string const file = dir / "lock", go = dir / "go";
  std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct(pfuDirPath(file.c_str())));
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(lock->Release(), errOK);  // before any Lock: size 0
  WriteFile(file, std::string(70000, 'x'));  // a size past 16 bits
  std::future<int> holder = std::async(std::launch::async, [&] {
    return qtest::RunProgram({qtest::SelfPath(), "--helper", "holdlock", file, go});
  });
  ASSERT_TRUE(qtest::WaitUntil([&] { return Exists(go + ".ready"); }));
  EXPECT_EQ(lock->Release(), errSysSharingViolation);  // no wait here
  std::thread letGo([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    WriteFile(go, "");
  });
  // Lock retries every second, so it comes back soon after the holder let go.
  EXPECT_EQ(QTEST_BOUNDED("the lock after the holder let go", lock->Lock()), errOK);
  EXPECT_TRUE(Exists(go));  // it returned only after the holder let go
  letGo.join();
  EXPECT_EQ(QTEST_BOUNDED("the holder's end", holder.get()), 0);
  EXPECT_EQ(lock->Lock(), errOK);  // nothing stays held between calls
  EXPECT_EQ(lock->Release(), errOK);

  // The lock file's stream buffer answers false for success.
  lockFileBuf buffer;
  EXPECT_FALSE(buffer.Open((dir / "f").c_str(), std::ios::out | std::ios::in | std::ios::trunc, 0));
  EXPECT_EQ(buffer.sputn("abc", 3), 3);
  EXPECT_FALSE(buffer.Close());
  EXPECT_EQ(ReadFile(dir / "f"), "abc");
  EXPECT_TRUE(buffer.Open((dir / "missing|f").c_str(), std::ios::in, 0));

  // A file that can never be opened ends Lock at once.
  std::unique_ptr<pfuFileLock> lost(pfuFileLock::Construct(pfuDirPath((dir / "no|lock").c_str())));
  EXPECT_EQ(QTEST_BOUNDED("a lock on a file that cannot be made", lost->Lock()), errSysNotFound);
}

}  // namespace
