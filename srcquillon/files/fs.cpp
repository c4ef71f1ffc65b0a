// The file-system operations of pfuFS, pfStat and the stream opens.
#include "pfufs.h"

#include <cctype>
#include <cstring>

#include "foundation/shared.h"
#include "fsshared.h"
#include "ombcrt.h"
#include "vekfile.h"

using pfuFiles::Fits;
using pfuFiles::Text;
using pfuFiles::Trimmed;

namespace {

// An empty path, or a drive with or without its separator: no directory to
// remove recursively on any host. (What a path resolves to, a root in any
// other spelling, is for the walk to judge.)
bool IsEmptyOrDrive(char const* path) {
  std::size_t length = std::strlen(path);
  while (length > 0 && issep(path + length - 1)) --length;
  return path[0] == '\0' ||
         (length == 2 && std::isalpha(static_cast<unsigned char>(path[0])) && path[1] == ':');
}

bool ReadInfo(pfStat& info, char const* path) {
  if (!Fits(path)) return false;
  pfStat fresh{pfuDirPath(path)};
  if (!fresh.initialized()) return false;
  info = fresh;
  return true;
}

// Whether the information of path can be read and passes test.
bool Holds(char const* path, bool (pfStat::*test)() const) {
  pfStat info;
  return ReadInfo(info, path) && (info.*test)();
}

// Opens a standard stream on the native path, sharing with every other
// opener; 1, or the mapped error when the stream failed.
template <class Stream>
errstatus OpenStreamOn(char const* path, int mode, Stream& stream) {
  stream.clear();
  if (!Fits(path)) {
    stream.setstate(std::ios_base::failbit);
    return errSysNameTooLong;
  }
  vekResetRuntimeError();
  stream.open(static_cast<char const*>(pfuOSPath(Text(path))), static_cast<std::ios_base::openmode>(mode));
  if (!stream.fail() && !stream.bad()) return errOK;
  vekKeepRuntimeError();
  return errMapError();
}

// Fills name from a host query of the lower library, or with fallback.
bool NameOrFallback(int (*query)(char*, std::uint32_t*), dsString& name, char const* fallback) {
  char buffer[256];
  std::uint32_t size = sizeof buffer;
  bool known = query(buffer, &size) != 0;
  name = known ? buffer : fallback;
  return known;
}

}  // namespace

void* pfuFiles::OpenSource(pfuOSPath const& path) {
  void* file = uCreateFile(path, vekGenericRead, vekFileShareRead, nullptr, vekOpenExisting,
                           vekFileFlagSequentialScan, nullptr);
  if (file == VEK_INVALID_HANDLE || vekIsRegularFile(file)) return file;
  win32CloseFileHandle(file);  // keeps the error of the refusal
  return VEK_INVALID_HANDLE;
}

void* pfuFiles::OpenTarget(pfuOSPath const& path) {
  return uCreateFile(path, vekGenericWrite, 0, nullptr, vekCreateAlways, vekFileAttributeNormal, nullptr);
}

// pfStat

pfStat::pfStat()
    : init(false), directory(false), executable(false), readable(false), writable(false),
      link(false), time(0), size(0) {}

pfStat::pfStat(pfuDirPath const& path) : pfStat() { Fill(Trimmed(path)); }

pfStat::pfStat(pfStat const& other) = default;

pfStat::~pfStat() {}

bool pfStat::Fill(char const* path) {
  vekFileInfo info;
  if (!FileInfo_Read(info, path, false)) return false;
  init = executable = readable = writable = true;
  directory = info.type == vekFileType::directory;
  link = info.type == vekFileType::link;
  time = info.modificationTime;
  size = static_cast<std::int32_t>(info.size);
  return true;
}

// Mutating operations

errstatus pfuFS::pfuMakeDir(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  return StatusOf(uCreateDirectory(pfuOSPath(Text(path)), nullptr) != 0);
}

errstatus pfuFS::pfuRemoveDir(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  return StatusOf(uRemoveDirectory(pfuOSPath(Text(path))) != 0);
}

errstatus pfuFS::pfuDeleteFile(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  return StatusOf(uDeleteFile(pfuOSPath(Text(path))) != 0);
}

errstatus pfuFS::pfuUnlink(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  return StatusOf(vek_unlink(pfuOSPath(Text(path))) == 0);
}

errstatus pfuFS::pfuRenameFile(char const* from, char const* to) {
  if (!Fits(from) || !Fits(to)) return errSysNameTooLong;
  return StatusOf(uMoveFileEx(pfuOSPath(Text(from)), pfuOSPath(Text(to)),
                             vekMoveReplaceExisting | vekMoveCopyAllowed) != 0);
}

errstatus pfuFS::pfuCopyFile(char const* from, char const* to) {
  if (!Fits(from) || !Fits(to)) return errSysNameTooLong;
  void* source = pfuFiles::OpenSource(pfuOSPath(Text(from)));
  if (source == VEK_INVALID_HANDLE) return errMapError();
  void* target = pfuFiles::OpenTarget(pfuOSPath(Text(to)));
  if (target == VEK_INVALID_HANDLE) {
    win32CloseFileHandle(source);
    return errMapError();
  }
  // The permissions first, so the data is never readable more widely than
  // the source's.
  bool copied = vekCopyFilePermissions(source, target) && vekCopyFileData(source, target);
  win32CloseFileHandle(source);
  win32CloseFileHandle(target);
  return StatusOf(copied);
}

errstatus pfuFS::pfuChangeDir(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  if (!pfuIsDir(path)) return errNotADirectory;
  pfuOSPath native(Text(path));
  char const* text = native;
  if (IsWinStyleAbsPath(text)) {
    // Drives count from 1 for A; a lower-case letter names the same drive.
    int letter = static_cast<unsigned char>(text[0]);
    if (letter >= 'a' && letter <= 'z') letter -= 'a' - 'A';
    if (vek_chdrive(letter - 'A' + 1) != 0) return errMapError();
  }
  return StatusOf(vek_chdir(text) == 0);
}

errstatus pfuFS::pfuMakeDirRec(char const* path) {
  if (!Fits(path)) return errSysNameTooLong;
  // The path and a final separator. Each separator in turn ends the part to
  // check or make: the part before it, or with it where the part is a root
  // (`|`, `C:|`). So at most the whole path is looked at, and a path of 1023
  // bytes fits a path object at every step.
  char walk[pfuPathSize + 1];
  std::size_t const length = std::strlen(Text(path));
  std::memcpy(walk, Text(path), length);
  walk[length] = '|';
  walk[length + 1] = '\0';
  std::size_t const rootLength = IsUnixStyleAbsPath(walk) ? 1 : IsWinStyleAbsPath(walk) ? 3 : 0;
  errstatus result = errOK;
  for (std::size_t end = 0; end <= length && result == errOK; ++end) {
    if (!issep(walk + end)) continue;
    std::size_t const cut = end < rootLength ? end + 1 : end;
    char const kept = walk[cut];
    walk[cut] = '\0';
    pfStat info;
    if (!ReadInfo(info, walk)) {
      result = pfuMakeDir(walk);
    } else if (!info.isDir()) {
      result = errComponentNotDir;
    }
    walk[cut] = kept;
  }
  return result;
}

errstatus pfuFS::pfuMakeDirRec(pfuDirPath const& base, pfuDirPath const& relative) {
  if (base.IsRefused() || relative.IsRefused()) return errSysNameTooLong;
  pfuDirPath current(base), rest(relative);
  while (!rest.IsEmpty()) {
    pfuDirEntry head;
    rest.GetHead(head);
    if (*static_cast<char const*>(head) != '\0') {
      std::size_t const before = std::strlen(current);
      current += head;
      if (std::strlen(current) == before) return errSysNameTooLong;  // the join did not fit
    }
    if (uCreateDirectory(pfuOSPath(current), nullptr) == 0) {
      errstatus status = errMapError();
      if (status != errOK) return status;
    }
    pfuDirPath tail;
    rest.GetTail(tail);
    rest = tail;
  }
  return errOK;
}

errstatus pfuFS::pfuRemoveDirRec(pfuDirPath const& path) {
  if (path.IsRefused()) return errSysNameTooLong;
  if (IsEmptyOrDrive(path)) return errSysInvalidArgument;
  return StatusOf(vekRemoveTree(Trimmed(path), pfuPathSize - 1) != 0);
}

// Queries

errstatus pfuFS::pfuStat(char const* path, pfStat& info) {
  if (!Fits(path)) return errSysNameTooLong;
  return ReadInfo(info, path) ? errOK : errNoFileInfo;
}

bool pfuFS::pfuIsDir(char const* path) { return Holds(path, &pfStat::isDir); }

bool pfuFS::pfuIsValidDirectory(char const* path) { return pfuIsDir(path); }

bool pfuFS::pfuIsLink(char const* path) { return Holds(path, &pfStat::isLink); }

bool pfuFS::pfuIsExecutable(char const* path) { return Holds(path, &pfStat::canExe); }

bool pfuFS::pfuIsValidFile(char const* path) {
  pfStat info;
  return ReadInfo(info, path) && !info.isDir();
}

errstatus pfuFS::pfuGetFileSize(char const* path, long long& size) {
  pfStat info;
  errstatus status = pfuStat(path, info);
  if (status == errOK) size = info.fileSize();
  return status;
}

errstatus pfuFS::pfuGetModTime(char const* path, long long& time) {
  pfStat info;
  errstatus status = pfuStat(path, info);
  if (status == errOK) time = info.modTime();
  return status;
}

errstatus pfuFS::pfuReadLink(char const* path, pfuDirPath& target) {
  if (!Fits(path)) return errSysNameTooLong;
  char buffer[pfuPathSize];
  int length = uReadLink(Trimmed(path), buffer, sizeof buffer);
  if (length == -2) return errNotOnPlatform;
  if (length < 0) return errMapError();
  pfuOSPath(buffer).ToNeutral(target);
  return errOK;
}

errstatus pfuFS::pfuGetFreeSpace(char const* path, double& bytes) {
  bytes = -2.0;
  if (!Fits(path)) {
    bytes = -1.0;
    return errSysNameTooLong;
  }
  char root[pfuPathSize];
  std::uint32_t perCluster = 0, perSector = 0, available = 0, total = 0;
  if (!vekFreeSpaceRoot(pfuOSPath(Text(path)), root, sizeof root) ||
      uGetDiskFreeSpace(root, &perCluster, &perSector, &available, &total) == 0) {
    bytes = -1.0;
    return errDiskQuery;
  }
  bytes = double(perCluster) * double(perSector) * double(available);
  return errOK;
}

errstatus pfuFS::pfuGetLogicalDrives(dsString& drives) {
  drives = "";
  char buffer[pfuPathSize];
  unsigned length = uGetLogicalDriveStrings(sizeof buffer, buffer);
  if (length >= sizeof buffer) length = 0;  // did not fit: nothing was written
  for (unsigned entry = 0; entry < length / 4; ++entry) drives += buffer[entry * 4];
  return errOK;
}

bool pfuFS::pfuGetComputerName(dsString& name) {
  return NameOrFallback(&uGetComputerName, name, "UnknownComputer");
}

bool pfuFS::pfuGetUserName(dsString& name) {
  return NameOrFallback(&uGetUserName, name, "UnknownUser");
}

bool pfuFS::pfuIsParentPath(char const* path, char const* parent, pfuDirPath& rest) {
  if (path == nullptr || *path == '\0') return true;
  std::size_t const length = parent != nullptr ? std::strlen(parent) : 0;
  if (length != 0) {
    if (std::strncmp(path, parent, length) != 0) return false;
    if (path[length] != '\0' && parent[length - 1] != '|' && path[length] != '|') return false;
  }
  char const* behind = path + length;
  if (length != 0 && *behind == '|') ++behind;
  rest = behind;
  return true;
}

// Streams

errstatus pfuFS::pfuOpenStream(char const* path, int mode, std::fstream& stream) {
  return OpenStreamOn(path, mode, stream);
}

errstatus pfuFS::pfuOpenStream(char const* path, int mode, std::ifstream& stream) {
  return OpenStreamOn(path, mode, stream);
}

errstatus pfuFS::pfuOpenStream(char const* path, int mode, std::ofstream& stream) {
  return OpenStreamOn(path, mode, stream);
}

void OpenFile(std::ifstream& stream, char const* path) {
  OpenStreamOn(path, std::ios_base::in, stream);
}

std::filebuf* OpenFile(std::filebuf& buffer, char const* path, int mode, int) {
  if (!Fits(path)) return nullptr;
  return buffer.open(static_cast<char const*>(pfuOSPath(Text(path))),
                     static_cast<std::ios_base::openmode>(mode));
}
