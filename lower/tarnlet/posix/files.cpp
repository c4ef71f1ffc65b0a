// Files, directories, searches, share modes (flock), the tree removal by
// descriptor and the host's names, on POSIX calls. POSIX code only.
#include "vekfile.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "filenames.h"
#include "system.h"
#include "ombmem.h"
#include "textcase.h"
#include "vektext.h"

namespace {

// Fails with the error of the call that just failed, closing fd first.
void* FailClosing(int fd) {
  int code = errno;
  ::close(fd);
  vekSetLastError(code);
  return VEK_INVALID_HANDLE;
}

// One read, repeated when a signal interrupts it; -1 on failure (errno).
ssize_t ReadSome(int fd, void* buffer, std::size_t size) {
  ssize_t n;
  while ((n = ::read(fd, buffer, size)) < 0 && errno == EINTR) {
  }
  return n;
}

// The bytes written; fewer than size when a write failed (errno tells why).
std::size_t WriteAll(int fd, char const* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    ssize_t n = ::write(fd, data + done, size - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      break;
    }
    done += static_cast<std::size_t>(n);
  }
  return done;
}

// Copies the rest of in into out; errno tells a failure. The kernel's copy
// call first; a buffer for what it refuses (other file systems, pipes).
bool CopyDescriptors(int in, int out) {
  bool kernelCopy = true;
  while (kernelCopy) {
    ssize_t n = ::copy_file_range(in, nullptr, out, nullptr, std::size_t(1) << 30, 0);
    if (n == 0) return true;
    if (n > 0) continue;
    if (errno == EINTR) continue;
    if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP &&
        errno != EPERM)
      return false;
    kernelCopy = false;
  }
  std::size_t const size = std::size_t(1) << 20;
  std::unique_ptr<char[]> buffer(new char[size]);
  for (;;) {
    ssize_t n = ReadSome(in, buffer.get(), size);
    if (n <= 0) return n == 0;
    if (WriteAll(out, buffer.get(), static_cast<std::size_t>(n)) != static_cast<std::size_t>(n)) return false;
  }
}

int Fail() {
  vekKeepSystemError();
  return 0;
}

enum class Found { entry, end, failure };

// The next entry of the search that matches its wildcard. The end leaves the
// last error alone; a failure keeps its error.
Found NextMatch(vekFindRecord* record, vekFindData* data) {
  DIR* stream = record->stream;
  for (;;) {
    errno = 0;
    dirent* entry = ::readdir(stream);
    if (entry == nullptr) {
      if (errno == 0) return Found::end;
      vekKeepSystemError();
      return Found::failure;
    }
    std::size_t length = std::strlen(entry->d_name);
    if (length >= sizeof data->name || !vekWildcardMatch<char>(entry->d_name, record->pattern)) continue;
    bool directory = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      struct stat info;
      directory = ::fstatat(::dirfd(stream), entry->d_name, &info, AT_SYMLINK_NOFOLLOW) == 0 &&
                  S_ISDIR(info.st_mode);
    }
    data->attributes = directory ? vekFileAttributeDirectory : vekFileAttributeNormal;
    std::memcpy(data->name, entry->d_name, length + 1);
    return Found::entry;
  }
}

// Fills the new file open as out with all of in and gives it the owner,
// permissions and modification time of in, as a rename would keep them; then
// closes it. Another owner needs privilege: without it the file stays the
// mover's own. False on a failure, errno telling.
bool FillNewFile(int in, struct stat const& info, int out) {
  timespec const times[2] = {info.st_atim, info.st_mtim};
  bool filled = (::fchown(out, info.st_uid, info.st_gid) == 0 || errno == EPERM) &&
                ::fchmod(out, info.st_mode & 07777) == 0 && ::lseek(in, 0, SEEK_SET) == 0 &&
                CopyDescriptors(in, out) && ::futimens(out, times) == 0;
  int code = errno;
  if (::close(out) != 0 && filled) {
    filled = false;
    code = errno;
  }
  errno = code;
  return filled;
}

// Moves a regular file across file systems without a state half done: the
// copy goes to a new file beside the target, the original is removed, and
// only then does the copy take the target's name. Each step that fails undoes
// the ones before it: the copy is removed, or, when the target cannot be
// replaced, the original is made again from the descriptor still open on it.
int MoveByCopy(char const* from, char const* to) {
  int in = ::open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (in < 0) {
    if (errno == ELOOP) errno = EXDEV;  // a link is not copied: the rename's failure stands
    return Fail();
  }
  struct stat info;
  bool const known = ::fstat(in, &info) == 0;
  if (!known || !S_ISREG(info.st_mode)) {
    if (known) errno = EXDEV;  // only a regular file is copied
    FailClosing(in);
    return 0;
  }
  char const* cut = std::strrchr(to, '/');
  std::string copy = cut == nullptr ? std::string() : std::string(to, cut + 1);
  copy += ".quillon-move-XXXXXX";
  int out = ::mkostemp(&copy[0], O_CLOEXEC);
  if (out < 0 || !FillNewFile(in, info, out)) {
    int code = errno;
    if (out >= 0) ::unlink(copy.c_str());
    ::close(in);
    vekSetLastError(code);
    return 0;
  }
  int code = 0;
  if (::unlink(from) != 0) {
    code = errno;
    ::unlink(copy.c_str());
  } else if (::rename(copy.c_str(), to) != 0) {
    code = errno;
    int again = ::open(from, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    // Should even that fail, the data stays in the copy beside the target.
    if (again >= 0 && FillNewFile(in, info, again)) ::unlink(copy.c_str());
  }
  ::close(in);
  if (code == 0) return 1;
  vekSetLastError(code);
  return 0;
}

}  // namespace

unsigned uGetCurrentDirectory(unsigned size, char* buffer) {
  // getcwd writes into its buffer even when it fails; the contract keeps the
  // caller's buffer intact, so the query goes through a buffer of our own.
  char* current = ::getcwd(nullptr, 0);
  if (current == nullptr) {
    vekKeepSystemError();
    return 0;
  }
  std::size_t length = std::strlen(current);
  bool copied = vekCopyFitting(current, length, buffer, size);
  std::free(current);
  return copied ? static_cast<unsigned>(length) : 0;
}

void* uCreateFile(char const* path, std::uint32_t access, std::uint32_t share, void*,
                  std::uint32_t disposition, std::uint32_t flags, void*) {
  // O_NONBLOCK only for the open itself, which so never waits (a FIFO would
  // hold it until its other end came).
  int mode = O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
  bool reads = (access & vekGenericRead) != 0, writes = (access & vekGenericWrite) != 0;
  mode |= reads && writes ? O_RDWR : writes ? O_WRONLY : O_RDONLY;
  switch (disposition) {
    case vekCreateNew: mode |= O_CREAT | O_EXCL; break;
    case vekCreateAlways: case vekOpenAlways: mode |= O_CREAT; break;
    case vekOpenExisting: case vekTruncateExisting: break;
    default:
      vekSetLastError(EINVAL);
      return VEK_INVALID_HANDLE;
  }
  int fd = ::open(path, mode, 0666);
  if (fd < 0) {
    vekKeepSystemError();
    return VEK_INVALID_HANDLE;
  }
  struct stat info;
  if (::fstat(fd, &info) != 0) return FailClosing(fd);
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    return FailClosing(fd);
  }
  int const status = ::fcntl(fd, F_GETFL);
  if (status < 0 || ::fcntl(fd, F_SETFL, status & ~O_NONBLOCK) != 0) return FailClosing(fd);
  // The share mode: an exclusive flock for "share nothing", a shared one for
  // any sharing. flock belongs to the open file description, so two opens in
  // one process exclude each other as two processes do.
  int lock = (share & (vekFileShareRead | vekFileShareWrite)) == 0 ? LOCK_EX : LOCK_SH;
  int locked;
  while ((locked = ::flock(fd, lock | LOCK_NB)) != 0 && errno == EINTR) {
  }
  if (locked != 0) {
    int code = errno == EWOULDBLOCK ? int(vekErrSharingViolation) : errno;
    ::close(fd);
    vekSetLastError(code);
    return VEK_INVALID_HANDLE;
  }
  if ((disposition == vekCreateAlways || disposition == vekTruncateExisting) && info.st_size != 0 &&
      ::ftruncate(fd, 0) != 0)
    return FailClosing(fd);
  if ((flags & vekFileFlagSequentialScan) != 0) ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
  return vekHandleOf(fd);
}

bool vekReadFile(void* handle, void* buffer, std::uint32_t size, std::uint32_t* got) {
  ssize_t n = ReadSome(vekDescriptorOf(handle), buffer, size);
  *got = n < 0 ? 0 : static_cast<std::uint32_t>(n);
  if (n < 0) vekKeepSystemError();
  return n >= 0;
}

bool vekWriteFile(void* handle, void const* data, std::uint32_t size, std::uint32_t* written) {
  std::size_t done = WriteAll(vekDescriptorOf(handle), static_cast<char const*>(data), size);
  *written = static_cast<std::uint32_t>(done);
  if (done == size) return true;
  vekKeepSystemError();
  return false;
}

bool vekCopyFileData(void* source, void* target) {
  if (CopyDescriptors(vekDescriptorOf(source), vekDescriptorOf(target))) return true;
  vekKeepSystemError();
  return false;
}

bool vekIsRegularFile(void* handle) {
  struct stat info;
  if (::fstat(vekDescriptorOf(handle), &info) != 0) {
    vekKeepSystemError();
    return false;
  }
  if (S_ISREG(info.st_mode)) return true;
  vekSetLastError(S_ISDIR(info.st_mode) ? EISDIR : EINVAL);
  return false;
}

bool vekCopyFilePermissions(void* source, void* target) {
  struct stat info;
  if (::fstat(vekDescriptorOf(source), &info) == 0 && ::fchmod(vekDescriptorOf(target), info.st_mode & 0777) == 0)
    return true;
  vekKeepSystemError();
  return false;
}

std::uint32_t vekGetFileSize(void* handle, std::uint32_t* high) {
  struct stat info;
  if (::fstat(vekDescriptorOf(handle), &info) != 0) {
    vekKeepSystemError();
    return VEK_INVALID_FILE_SIZE;
  }
  auto size = static_cast<std::uint64_t>(info.st_size);
  if (high != nullptr) *high = static_cast<std::uint32_t>(size >> 32);
  return static_cast<std::uint32_t>(size);
}

namespace {

bool SetRegionLock(void* handle, short type, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                   std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  std::uint64_t length = (std::uint64_t(lengthHigh) << 32) | lengthLow;
  if (length == 0) return true;  // for fcntl a length of 0 would mean "to the end, and beyond"
  struct flock region {};
  region.l_type = type;
  region.l_whence = SEEK_SET;
  region.l_start = static_cast<off_t>((std::uint64_t(offsetHigh) << 32) | offsetLow);
  region.l_len = static_cast<off_t>(length);
#if defined(F_OFD_SETLK)
  int const command = F_OFD_SETLK;  // held by the handle, as on Windows
#else
  int const command = F_SETLK;
#endif
  if (::fcntl(vekDescriptorOf(handle), command, &region) == 0) return true;
  vekKeepSystemError();
  return false;
}

}  // namespace

bool vekLockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                 std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  return SetRegionLock(handle, F_WRLCK, offsetLow, offsetHigh, lengthLow, lengthHigh);
}

bool vekUnlockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                   std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  return SetRegionLock(handle, F_UNLCK, offsetLow, offsetHigh, lengthLow, lengthHigh);
}

void vekSleep(std::uint32_t milliseconds) {
  timespec rest{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (::nanosleep(&rest, &rest) != 0 && errno == EINTR) {
  }
}

int uCreateDirectory(char const* path, void*) { return ::mkdir(path, 0777) == 0 ? 1 : Fail(); }

int uRemoveDirectory(char const* path) { return ::rmdir(path) == 0 ? 1 : Fail(); }

int uDeleteFile(char const* path) { return ::unlink(path) == 0 ? 1 : Fail(); }

int uMoveFileEx(char const* from, char const* to, std::uint32_t flags) {
  bool replace = (flags & vekMoveReplaceExisting) != 0;
  struct stat info;
  if (!replace && ::lstat(to, &info) == 0) {
    vekSetLastError(EEXIST);
    return 0;
  }
  if (::rename(from, to) == 0) return 1;
  if (errno == EXDEV && (flags & vekMoveCopyAllowed) != 0) return MoveByCopy(from, to);
  return Fail();
}

namespace {

// The error of a call on one entry of a tree, 0 for none. An entry already
// gone counts as removed: another process may be removing the same tree.
int EntryFailure(int result) { return result == 0 || errno == ENOENT ? 0 : errno; }

// Removes everything inside the directory open as fd, depth first, and
// closes fd. Every entry is reached through the directory that holds it and
// by the name the listing gives, never by a path, so no name can lead out of
// the tree; links are removed, never followed. length is that of the
// directory's path; an entry whose path would pass longest bytes ends the
// walk with ENAMETOOLONG. 0, or the error that ended the walk.
int EmptyDirectory(int fd, std::size_t length, std::size_t longest) {
  DIR* listing = ::fdopendir(fd);
  if (listing == nullptr) {
    int code = errno;
    ::close(fd);
    return code;
  }
  int const at = ::dirfd(listing);
  int failure = 0;
  while (failure == 0) {
    errno = 0;
    dirent const* entry = ::readdir(listing);
    if (entry == nullptr) {
      failure = errno;
      break;
    }
    char const* name = entry->d_name;
    if (name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0))) continue;
    std::size_t const childLength = length + 1 + std::strlen(name);
    if (childLength > longest) {
      failure = ENAMETOOLONG;
      break;
    }
    bool directory = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {  // a file system that does not say: ask
      struct stat info;
      int const asked = ::fstatat(at, name, &info, AT_SYMLINK_NOFOLLOW);
      if (asked != 0) {
        failure = EntryFailure(asked);
        continue;
      }
      directory = S_ISDIR(info.st_mode);
    }
    if (!directory) {
      failure = EntryFailure(::unlinkat(at, name, 0));
      continue;
    }
    int const child = ::openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    failure = child < 0 ? EntryFailure(child) : EmptyDirectory(child, childLength, longest);
    if (child >= 0 && failure == 0) failure = EntryFailure(::unlinkat(at, name, AT_REMOVEDIR));
  }
  ::closedir(listing);
  return failure;
}

bool SameFile(struct stat const& one, struct stat const& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

}  // namespace

int vekRemoveTree(char const* path, std::size_t longest) {
  // A last name of "." or ".." names no directory of its own, which rmdir
  // would refuse after the walk emptied it.
  if (vekEndsInDots(path, "/")) {
    vekSetLastError(EINVAL);
    return 0;
  }
  struct stat info;
  if (::lstat(path, &info) != 0) return Fail();
  if (S_ISLNK(info.st_mode)) return ::unlink(path) == 0 ? 1 : Fail();
  if (!S_ISDIR(info.st_mode)) {
    vekSetLastError(ENOTDIR);
    return 0;
  }
  int const fd = ::open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return Fail();
  // The root judged by what was opened, whatever the spelling of path.
  struct stat opened, root;
  if (::fstat(fd, &opened) != 0 || ::stat("/", &root) != 0) {
    FailClosing(fd);
    return 0;
  }
  if (SameFile(opened, root)) {
    ::close(fd);
    vekSetLastError(EINVAL);
    return 0;
  }
  int const failure = EmptyDirectory(fd, std::strlen(path), longest);
  if (failure != 0) {
    vekSetLastError(failure);
    return 0;
  }
  return ::rmdir(path) == 0 ? 1 : Fail();
}

bool FileInfo_Read(vekFileInfo& info, char const* path, bool follow) {
  struct stat status;
  if ((follow ? ::stat(path, &status) : ::lstat(path, &status)) != 0) {
    vekKeepSystemError();
    return false;
  }
  info.type = S_ISREG(status.st_mode)   ? vekFileType::regular
              : S_ISDIR(status.st_mode) ? vekFileType::directory
              : S_ISLNK(status.st_mode) ? vekFileType::link
                                        : vekFileType::other;
  info.size = static_cast<long long>(status.st_size);
  info.modificationTime = static_cast<long long>(status.st_mtime);
  return true;
}

int uReadLink(char const* path, char* buffer, unsigned size) {
  ssize_t length = ::readlink(path, buffer, size);
  if (length < 0) {
    vekKeepSystemError();
    return -1;
  }
  if (static_cast<std::size_t>(length) >= size) {
    vekSetLastError(ENAMETOOLONG);
    return -1;
  }
  buffer[length] = '\0';
  return static_cast<int>(length);
}

void* uFindFirstFile(char const* pattern, vekFindData* data) {
  char const* cut = std::strrchr(pattern, '/');
  std::string directory = cut == nullptr ? "." : cut == pattern ? "/" : std::string(pattern, cut);
  DIR* stream = ::opendir(directory.c_str());
  if (stream == nullptr) {
    vekKeepSystemError();
    return VEK_INVALID_HANDLE;
  }
  auto* record = new vekFindRecord{stream, Strnew__(cut == nullptr ? pattern : cut + 1)};
  Found first = NextMatch(record, data);
  if (first == Found::entry) return record;
  if (first == Found::end) vekSetLastError(ENOENT);  // nothing matches
  int code = vekGetLastError();
  win32FindClose(record);
  vekSetLastError(code);
  return VEK_INVALID_HANDLE;
}

int uFindNextFile(void* handle, vekFindData* data) {
  if (handle == nullptr || handle == VEK_INVALID_HANDLE) {
    vekSetLastError(EBADF);
    return 0;
  }
  return NextMatch(static_cast<vekFindRecord*>(handle), data) == Found::entry ? 1 : 0;
}

int uGetDiskFreeSpace(char const* root, std::uint32_t* sectorsPerCluster,
                      std::uint32_t* bytesPerSector, std::uint32_t* freeClusters,
                      std::uint32_t* totalClusters) {
  struct statvfs info;
  if (::statvfs(root, &info) != 0) return Fail();
  vekSpaceInClusters(info.f_frsize, info.f_bavail, info.f_blocks, sectorsPerCluster, bytesPerSector,
                     freeClusters, totalClusters);
  return 1;
}

bool vekFreeSpaceRoot(char const* path, char* root, unsigned size) {
  return vekCopyFitting(path, std::strlen(path), root, size);
}

unsigned uGetLogicalDriveStrings(unsigned size, char* buffer) {
  if (size > 0) buffer[0] = '\0';
  return 0;
}

int vek_chdrive(int drive) {
  if (drive >= 1 && drive <= 26) return 0;
  vekSetLastError(EINVAL);
  return -1;
}

int uGetComputerName(char* buffer, std::uint32_t* size) {
  char name[256];
  if (::gethostname(name, sizeof name) != 0) return Fail();
  name[sizeof name - 1] = '\0';
  return vekNameInto(name, buffer, size, false);
}

int uGetUserName(char* buffer, std::uint32_t* size) {
  passwd entry;
  passwd* found = nullptr;
  char records[4096];
  int code = ::getpwuid_r(::geteuid(), &entry, records, sizeof records, &found);
  if (found == nullptr) {
    vekSetLastError(code != 0 ? code : ENOENT);
    return 0;
  }
  return vekNameInto(found->pw_name, buffer, size, true);
}
