// Files, directories, searches, share modes, the tree removal that never
// follows a link and the host's names, on Win32 calls. Windows code only.
#include "vekfile.h"

#include <direct.h>
#include <windows.h>
#include <winioctl.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "filenames.h"
#include "ombmem.h"
#include "system.h"
#include "textcase.h"

namespace {

int Fail() {
  vekKeepSystemError();
  return 0;
}

int Result(BOOL done) { return done ? 1 : Fail(); }

bool IsSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// The full, normalised path of wide. False with the system's error when it
// has none.
bool FullPath(std::wstring& wide) {
  DWORD const need = GetFullPathNameW(wide.c_str(), 0, nullptr, nullptr);
  if (need == 0) return Fail();
  std::wstring full(need, L'\0');
  DWORD const got = GetFullPathNameW(wide.c_str(), need, &full[0], nullptr);
  if (got == 0 || got >= need) return Fail();
  full.resize(got);
  wide.swap(full);
  return true;
}

// A full path in the form that passes the system's classic limit of
// MAX_PATH characters and takes every name as it is (no trimming of dots or
// blanks): "\\?\" before it, "\\?\UNC\" for a share.
std::wstring LongFormOf(std::wstring const& full) {
  if (full.compare(0, 4, L"\\\\?\\") == 0 || full.compare(0, 4, L"\\\\.\\") == 0) return full;
  if (full.size() > 2 && IsSeparator(full[0]) && IsSeparator(full[1])) return L"\\\\?\\UNC\\" + full.substr(2);
  return L"\\\\?\\" + full;
}

bool LongForm(std::wstring& wide) {
  if (!FullPath(wide)) return false;
  wide = LongFormOf(wide);
  return true;
}

// Native path to the path of the W calls. One that the classic limit would
// refuse goes in its long form, so every path that a path object holds
// reaches the system. (A directory's limit is 12 characters below MAX_PATH,
// room for a file name of 8.3.)
bool WidePath(char const* native, std::wstring& wide) {
  if (!vekToWide(native, wide)) return false;
  return wide.size() < MAX_PATH - 12 || LongForm(wide);
}

DWORD AttributesOf(std::wstring const& wide) { return GetFileAttributesW(wide.c_str()); }

bool IsDirectoryAttribute(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// The reparse points that are links: symbolic links and junctions. Others
// (a cloud file's placeholder, deduplicated data) are the file they hold.
bool IsLinkTag(DWORD tag) { return tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT; }

// Whether the file at wide, which has the reparse point attribute, is a link.
bool IsLink(std::wstring const& wide) {
  WIN32_FIND_DATAW found;
  HANDLE search = FindFirstFileW(wide.c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  FindClose(search);
  return (found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsLinkTag(found.dwReserved0);
}

long long SecondsSince1970(FILETIME const& time) {
  long long const ticks = static_cast<long long>((std::uint64_t(time.dwHighDateTime) << 32) | time.dwLowDateTime);
  long long const since1970 = ticks - 116444736000000000LL;  // 100 ns ticks from 1601 to 1970
  long long seconds = since1970 / 10000000;
  if (since1970 % 10000000 < 0) --seconds;  // whole seconds down, before 1970 too
  return seconds;
}

}  // namespace

unsigned uGetCurrentDirectory(unsigned size, char* buffer) {
  DWORD const need = GetCurrentDirectoryW(0, nullptr);
  if (need == 0) return Fail();
  std::wstring wide(need, L'\0');
  DWORD const got = GetCurrentDirectoryW(need, &wide[0]);
  if (got == 0 || got >= need) return Fail();
  wide.resize(got);
  std::string native;
  if (!vekFromWide(wide.c_str(), native)) return 0;
  return vekCopyFitting(native.c_str(), native.size(), buffer, size) ? static_cast<unsigned>(native.size()) : 0;
}

void* uCreateFile(char const* path, std::uint32_t access, std::uint32_t share, void*,
                  std::uint32_t disposition, std::uint32_t flags, void*) {
  if (disposition < vekCreateNew || disposition > vekTruncateExisting) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return VEK_INVALID_HANDLE;
  }
  std::wstring wide;
  if (!WidePath(path, wide)) return VEK_INVALID_HANDLE;
  access &= vekGenericRead | vekGenericWrite;
  if (access == 0) access = vekGenericRead;  // an open with no access at all reads, as on POSIX
  // The system's own share modes; the handle is not inherited (no security
  // attributes), as every handle of the library. The system empties a file
  // only once the share mode is granted.
  HANDLE file = CreateFileW(wide.c_str(), access, share & (vekFileShareRead | vekFileShareWrite), nullptr,
                            disposition, FILE_ATTRIBUTE_NORMAL | (flags & vekFileFlagSequentialScan), nullptr);
  if (file != INVALID_HANDLE_VALUE) return file;
  DWORD code = GetLastError();
  // The library's own code for a conflict of share modes, on every host:
  // callers that wait for the other holder look for it.
  if (code == ERROR_SHARING_VIOLATION) code = vekErrSharingViolation;
  // A directory is refused as access denied; say what it is.
  if (code == ERROR_ACCESS_DENIED && IsDirectoryAttribute(AttributesOf(wide))) code = vekErrorDirectoryNotSupported;
  vekSetLastError(static_cast<int>(code));
  return VEK_INVALID_HANDLE;
}

bool vekReadFile(void* handle, void* buffer, std::uint32_t size, std::uint32_t* got) {
  DWORD read = 0;
  BOOL const done = ReadFile(handle, buffer, size, &read, nullptr);
  *got = read;
  if (done) return true;
  // A pipe whose writer has gone is at its end.
  if (GetLastError() == ERROR_BROKEN_PIPE) return true;
  vekKeepSystemError();
  return false;
}

bool vekWriteFile(void* handle, void const* data, std::uint32_t size, std::uint32_t* written) {
  auto const* bytes = static_cast<char const*>(data);
  std::uint32_t done = 0;
  while (done < size) {
    DWORD wrote = 0;
    if (!WriteFile(handle, bytes + done, size - done, &wrote, nullptr)) {
      *written = done;
      vekKeepSystemError();
      return false;
    }
    done += wrote;
  }
  *written = done;
  return true;
}

bool vekCopyFileData(void* source, void* target) {
  std::uint32_t const size = std::uint32_t(1) << 20;
  std::unique_ptr<char[]> buffer(new char[size]);
  for (;;) {
    std::uint32_t got = 0, written = 0;
    if (!vekReadFile(source, buffer.get(), size, &got)) return false;
    if (got == 0) return true;
    if (!vekWriteFile(target, buffer.get(), got, &written)) return false;
  }
}

bool vekIsRegularFile(void* handle) {
  SetLastError(NO_ERROR);
  DWORD const type = GetFileType(handle);
  if (type == FILE_TYPE_UNKNOWN && GetLastError() != NO_ERROR) return Fail();
  BY_HANDLE_FILE_INFORMATION info;
  if (type != FILE_TYPE_DISK) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  if (!GetFileInformationByHandle(handle, &info)) return Fail();
  if ((info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) return true;
  vekSetLastError(vekErrorDirectoryNotSupported);
  return false;
}

bool vekCopyFilePermissions(void* source, void* target) {
  // Windows keeps one permission of the file itself: the read-only
  // attribute. A handle open for writing stays so when it is set.
  BY_HANDLE_FILE_INFORMATION from;
  FILE_BASIC_INFO to;
  if (!GetFileInformationByHandle(source, &from) ||
      !GetFileInformationByHandleEx(target, FileBasicInfo, &to, sizeof to))
    return Fail();
  DWORD const attributes =
      (to.FileAttributes & ~DWORD(FILE_ATTRIBUTE_READONLY)) | (from.dwFileAttributes & FILE_ATTRIBUTE_READONLY);
  if (attributes == to.FileAttributes) return true;
  FILE_BASIC_INFO change{};  // times of 0 are left as they are
  change.FileAttributes = attributes == 0 ? FILE_ATTRIBUTE_NORMAL : attributes;
  return Result(SetFileInformationByHandle(target, FileBasicInfo, &change, sizeof change));
}

std::uint32_t vekGetFileSize(void* handle, std::uint32_t* high) {
  LARGE_INTEGER size;
  if (!GetFileSizeEx(handle, &size)) {
    vekKeepSystemError();
    return VEK_INVALID_FILE_SIZE;
  }
  auto const bytes = static_cast<std::uint64_t>(size.QuadPart);
  if (high != nullptr) *high = static_cast<std::uint32_t>(bytes >> 32);
  return static_cast<std::uint32_t>(bytes);
}

namespace {

bool SetRegionLock(void* handle, bool take, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                   std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  if (lengthLow == 0 && lengthHigh == 0) return true;
  OVERLAPPED region{};
  region.Offset = offsetLow;
  region.OffsetHigh = offsetHigh;
  BOOL const done = take ? LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0,
                                      lengthLow, lengthHigh, &region)
                         : UnlockFileEx(handle, 0, lengthLow, lengthHigh, &region);
  return Result(done) != 0;
}

}  // namespace

bool vekLockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                 std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  return SetRegionLock(handle, true, offsetLow, offsetHigh, lengthLow, lengthHigh);
}

bool vekUnlockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                   std::uint32_t lengthLow, std::uint32_t lengthHigh) {
  return SetRegionLock(handle, false, offsetLow, offsetHigh, lengthLow, lengthHigh);
}

void vekSleep(std::uint32_t milliseconds) { Sleep(milliseconds); }

int uCreateDirectory(char const* path, void*) {
  std::wstring wide;
  return WidePath(path, wide) ? Result(CreateDirectoryW(wide.c_str(), nullptr)) : 0;
}

int uRemoveDirectory(char const* path) {
  std::wstring wide;
  return WidePath(path, wide) ? Result(RemoveDirectoryW(wide.c_str())) : 0;
}

int uDeleteFile(char const* path) {
  std::wstring wide;
  if (!WidePath(path, wide)) return 0;
  if (DeleteFileW(wide.c_str())) return 1;
  DWORD code = GetLastError();
  DWORD const attributes = AttributesOf(wide);
  if (code == ERROR_ACCESS_DENIED && IsDirectoryAttribute(attributes)) {
    // A link to a directory is removed as a directory: the link itself.
    if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsLink(wide))
      return Result(RemoveDirectoryW(wide.c_str()));
    code = vekErrorDirectoryNotSupported;
  }
  vekSetLastError(static_cast<int>(code));
  return 0;
}

int uMoveFileEx(char const* from, char const* to, std::uint32_t flags) {
  std::wstring source, target;
  if (!WidePath(from, source) || !WidePath(to, target)) return 0;
  // The system's copy for a move across volumes copies, then removes the
  // original; a failed copy leaves both names as they were.
  DWORD const how = ((flags & vekMoveReplaceExisting) != 0 ? MOVEFILE_REPLACE_EXISTING : 0) |
                    ((flags & vekMoveCopyAllowed) != 0 ? MOVEFILE_COPY_ALLOWED : 0);
  return Result(MoveFileExW(source.c_str(), target.c_str(), how));
}

namespace {

// An entry already gone counts as removed: another process may be removing
// the same tree.
bool Vanished(DWORD code) { return code == ERROR_FILE_NOT_FOUND || code == ERROR_PATH_NOT_FOUND; }

// Removes one entry with remove (DeleteFileW or RemoveDirectoryW); a
// read-only entry loses that attribute first, as the tree goes whole. 0, or
// the error.
DWORD RemoveEntry(std::wstring const& path, DWORD attributes, BOOL(WINAPI* remove)(LPCWSTR)) {
  if (remove(path.c_str())) return 0;
  DWORD code = GetLastError();
  if (code == ERROR_ACCESS_DENIED && (attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
      SetFileAttributesW(path.c_str(), (attributes & ~DWORD(FILE_ATTRIBUTE_READONLY)) | FILE_ATTRIBUTE_NORMAL)) {
    if (remove(path.c_str())) return 0;
    code = GetLastError();
  }
  return Vanished(code) ? 0 : code;
}

DWORD EmptyDirectory(std::wstring const& path, std::size_t length, std::size_t longest);

// Empties the directory at path (long form) and removes it. The directory
// is held open while the walk lists it: the handle, without FILE_SHARE_DELETE,
// keeps anyone from renaming or replacing it, so its path leads to it and to
// nothing else; and it is opened as itself, never through a link.
DWORD RemoveDirectoryTree(std::wstring const& path, DWORD attributes, std::size_t length,
                          std::size_t longest) {
  HANDLE held = CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (held == INVALID_HANDLE_VALUE) {
    DWORD const code = GetLastError();
    return Vanished(code) ? 0 : code;
  }
  BY_HANDLE_FILE_INFORMATION info;
  DWORD failure = 0;
  if (!GetFileInformationByHandle(held, &info)) {
    failure = GetLastError();
  } else if ((info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    failure = EmptyDirectory(path, length, longest);
  }
  // A link that took the directory's place since the listing is removed
  // below as the link it is, never entered.
  CloseHandle(held);
  return failure != 0 ? failure : RemoveEntry(path, attributes, RemoveDirectoryW);
}

// Removes everything inside the directory at path (long form), depth first.
// Names on Windows hold no separator, and the long form takes each name as
// it is (no trimming of dots or blanks), so path, a separator and the name
// the listing gives lead to that entry. Links are removed, never followed.
// length is that of the directory's path as the caller spelled it; an entry
// whose path would pass longest bytes ends the walk. 0, or the error.
DWORD EmptyDirectory(std::wstring const& path, std::size_t length, std::size_t longest) {
  WIN32_FIND_DATAW entry;
  HANDLE search = FindFirstFileW((path + L"\\*").c_str(), &entry);
  if (search == INVALID_HANDLE_VALUE) {
    DWORD const code = GetLastError();
    return Vanished(code) ? 0 : code;
  }
  DWORD failure = 0;
  do {
    wchar_t const* name = entry.cFileName;
    if (name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0))) continue;
    std::string native;
    if (!vekFromWide(name, native)) {
      failure = static_cast<DWORD>(vekGetLastError());
      break;
    }
    std::size_t const childLength = length + 1 + native.size();
    if (childLength > longest) {
      failure = ERROR_FILENAME_EXCED_RANGE;
      break;
    }
    std::wstring const child = path + L'\\' + name;
    DWORD const attributes = entry.dwFileAttributes;
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      failure = RemoveEntry(child, attributes, DeleteFileW);
    else if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
      failure = RemoveEntry(child, attributes, RemoveDirectoryW);  // a link: itself only
    else
      failure = RemoveDirectoryTree(child, attributes, childLength, longest);
  } while (failure == 0 && FindNextFileW(search, &entry));
  if (failure == 0 && GetLastError() != ERROR_NO_MORE_FILES) failure = GetLastError();
  FindClose(search);
  return failure;
}

// Whether the full path is the root of a drive, a share or a mounted volume.
bool IsRoot(std::wstring path) {
  while (!path.empty() && IsSeparator(path.back())) path.pop_back();
  std::wstring volume(path.size() + 2, L'\0');
  if (GetVolumePathNameW((path + L'\\').c_str(), &volume[0], static_cast<DWORD>(volume.size()))) {
    volume.resize(std::wcslen(volume.c_str()));
    while (!volume.empty() && IsSeparator(volume.back())) volume.pop_back();
    return CompareStringOrdinal(path.c_str(), -1, volume.c_str(), -1, TRUE) == CSTR_EQUAL;
  }
  // Without the system's answer, the roots by their spelling: "C:" and
  // "\\server\share".
  if (path.size() == 2 && path[1] == L':') return true;
  if (path.size() < 3 || !IsSeparator(path[0]) || !IsSeparator(path[1])) return false;
  std::size_t const share = path.find_first_of(L"\\/", 2);
  return share != std::wstring::npos && path.find_first_of(L"\\/", share + 1) == std::wstring::npos;
}

}  // namespace

int vekRemoveTree(char const* path, std::size_t longest) {
  if (vekEndsInDots(path, "/\\")) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  std::wstring wide;
  if (!vekToWide(path, wide) || !FullPath(wide)) return 0;
  std::wstring const full = LongFormOf(wide);
  DWORD const attributes = AttributesOf(full);
  if (attributes == INVALID_FILE_ATTRIBUTES) return Fail();
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsLink(full)) {
    DWORD const failure = RemoveEntry(full, attributes, IsDirectoryAttribute(attributes) ? RemoveDirectoryW : DeleteFileW);
    if (failure == 0) return 1;
    vekSetLastError(static_cast<int>(failure));
    return 0;
  }
  if (!IsDirectoryAttribute(attributes)) {
    vekSetLastError(ERROR_DIRECTORY);
    return 0;
  }
  if (IsRoot(wide)) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return 0;
  }
  DWORD const failure = RemoveDirectoryTree(full, attributes, std::strlen(path), longest);
  if (failure == 0) return 1;
  vekSetLastError(static_cast<int>(failure));
  return 0;
}

bool FileInfo_Read(vekFileInfo& info, char const* path, bool follow) {
  std::wstring wide;
  if (!WidePath(path, wide)) return false;
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(wide.c_str(), GetFileExInfoStandard, &data)) return Fail();
  DWORD attributes = data.dwFileAttributes;
  std::uint64_t size = (std::uint64_t(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
  FILETIME modified = data.ftLastWriteTime;
  bool link = (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 && IsLink(wide);
  if (link && follow) {
    // What the link leads to: opening it follows it.
    HANDLE target = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (target == INVALID_HANDLE_VALUE) return Fail();
    BY_HANDLE_FILE_INFORMATION led;
    BOOL const known = GetFileInformationByHandle(target, &led);
    if (!known) vekKeepSystemError();
    CloseHandle(target);
    if (!known) return false;
    attributes = led.dwFileAttributes;
    size = (std::uint64_t(led.nFileSizeHigh) << 32) | led.nFileSizeLow;
    modified = led.ftLastWriteTime;
    link = false;
  }
  info.type = link                                           ? vekFileType::link
              : (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? vekFileType::directory
              : (attributes & FILE_ATTRIBUTE_DEVICE) != 0    ? vekFileType::other
                                                             : vekFileType::regular;
  info.size = info.type == vekFileType::directory ? 0 : static_cast<long long>(size);
  info.modificationTime = SecondsSince1970(modified);
  return true;
}

namespace {

// The target that a symbolic link or junction holds, from its reparse data:
// the name meant for people when there is one, else the system's name
// without its "\??\" prefix. False with ERROR_NOT_A_REPARSE_POINT for other
// reparse data.
bool LinkTarget(unsigned char const* data, DWORD size, std::wstring& target) {
  // The layout: the tag (4 bytes), the data's length and a reserved field
  // (2 each), then offsets and lengths in bytes of the substitute and the
  // print name (2 each); links carry 4 bytes of flags before the names.
  auto word = [data](std::size_t at) {
    std::uint16_t value;
    std::memcpy(&value, data + at, sizeof value);
    return value;
  };
  std::uint32_t tag;
  std::memcpy(&tag, data, sizeof tag);
  if (size < 16 || !IsLinkTag(tag)) {
    SetLastError(ERROR_NOT_A_REPARSE_POINT);
    return false;
  }
  std::size_t const names = tag == IO_REPARSE_TAG_SYMLINK ? 20 : 16;
  auto name = [&](std::size_t offsetAt, std::size_t lengthAt) {
    std::size_t const begin = names + word(offsetAt), length = word(lengthAt);
    std::wstring text;
    if (begin + length <= size) {
      text.resize(length / sizeof(wchar_t));
      std::memcpy(&text[0], data + begin, text.size() * sizeof(wchar_t));
    }
    return text;
  };
  target = name(12, 14);
  if (target.empty()) {
    target = name(8, 10);
    if (target.compare(0, 4, L"\\??\\") == 0) target.erase(0, 4);
  }
  return true;
}

}  // namespace

int uReadLink(char const* path, char* buffer, unsigned size) {
  std::wstring wide;
  if (!WidePath(path, wide)) return -1;
  HANDLE link = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                            FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (link == INVALID_HANDLE_VALUE) {
    vekKeepSystemError();
    return -1;
  }
  std::unique_ptr<unsigned char[]> data(new unsigned char[MAXIMUM_REPARSE_DATA_BUFFER_SIZE]);
  DWORD got = 0;
  std::wstring target;
  bool const read = DeviceIoControl(link, FSCTL_GET_REPARSE_POINT, nullptr, 0, data.get(),
                                    MAXIMUM_REPARSE_DATA_BUFFER_SIZE, &got, nullptr) &&
                    LinkTarget(data.get(), got, target);
  if (!read) vekKeepSystemError();
  CloseHandle(link);
  std::string native;
  if (!read || !vekFromWide(target.c_str(), native)) return -1;
  return vekCopyFitting(native.c_str(), native.size(), buffer, size) ? static_cast<int>(native.size()) : -1;
}

namespace {

enum class Found { entry, end, failure };

// The next entry of the search that matches its wildcard. The end leaves the
// last error alone; a failure keeps its error.
Found NextMatch(vekFindRecord* record, vekFindData* data) {
  for (;;) {
    if (record->entryTaken && !FindNextFileW(record->search, &record->entry)) {
      if (GetLastError() == ERROR_NO_MORE_FILES) return Found::end;
      vekKeepSystemError();
      return Found::failure;
    }
    record->entryTaken = true;
    WIN32_FIND_DATAW const& entry = record->entry;
    if (!vekWildcardMatch<wchar_t>(entry.cFileName, record->pattern)) continue;
    int const kept = vekGetLastError();
    std::string name;
    if (!vekFromWide(entry.cFileName, name) || name.size() >= sizeof data->name) {
      vekSetLastError(kept);  // a name that cannot be given is passed over
      continue;
    }
    // A link to a directory is not a directory to enter, as on POSIX.
    bool const directory = (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
                           !((entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
                             IsLinkTag(entry.dwReserved0));
    data->attributes = directory ? vekFileAttributeDirectory : vekFileAttributeNormal;
    std::memcpy(data->name, name.c_str(), name.size() + 1);
    return Found::entry;
  }
}

}  // namespace

void* uFindFirstFile(char const* pattern, vekFindData* data) {
  // The directory with its separator (or drive), then the wildcard. The
  // system lists every entry; the names are matched here, so that `*` and
  // `?` mean what they mean on every host (no short names, no "*.*" rule).
  std::size_t cut = std::strlen(pattern);
  while (cut > 0 && pattern[cut - 1] != '\\' && pattern[cut - 1] != '/' && !(cut == 2 && pattern[1] == ':')) --cut;
  std::string const directory(pattern, cut);
  std::wstring search, wildcard;
  if (!vekToWide(pattern + cut, wildcard) || !WidePath((directory + "*").c_str(), search))
    return VEK_INVALID_HANDLE;
  auto* record = new vekFindRecord{};
  record->search = FindFirstFileW(search.c_str(), &record->entry);
  if (record->search == INVALID_HANDLE_VALUE) {
    vekKeepSystemError();
    delete record;
    return VEK_INVALID_HANDLE;
  }
  record->pattern = new wchar_t[wildcard.size() + 1];
  std::memcpy(record->pattern, wildcard.c_str(), (wildcard.size() + 1) * sizeof(wchar_t));
  Found const first = NextMatch(record, data);
  if (first == Found::entry) return record;
  if (first == Found::end) vekSetLastError(ERROR_FILE_NOT_FOUND);  // nothing matches
  int const code = vekGetLastError();
  win32FindClose(record);
  vekSetLastError(code);
  return VEK_INVALID_HANDLE;
}

int uFindNextFile(void* handle, vekFindData* data) {
  if (handle == nullptr || handle == VEK_INVALID_HANDLE) {
    vekSetLastError(ERROR_INVALID_HANDLE);
    return 0;
  }
  return NextMatch(static_cast<vekFindRecord*>(handle), data) == Found::entry ? 1 : 0;
}

int uGetDiskFreeSpace(char const* root, std::uint32_t* sectorsPerCluster,
                      std::uint32_t* bytesPerSector, std::uint32_t* freeClusters,
                      std::uint32_t* totalClusters) {
  std::wstring wide;
  if (!WidePath(root, wide)) return 0;
  ULARGE_INTEGER available, total;
  if (!GetDiskFreeSpaceExW(wide.c_str(), &available, &total, nullptr)) return Fail();
  // The bytes for this user, in sectors of 512 bytes.
  std::uint64_t const sector = 512;
  vekSpaceInClusters(sector, available.QuadPart / sector, total.QuadPart / sector, sectorsPerCluster,
                     bytesPerSector, freeClusters, totalClusters);
  return 1;
}

bool vekFreeSpaceRoot(char const* path, char* root, unsigned size) {
  auto separator = [](char c) { return c == '\\' || c == '/'; };
  char const letter = path[0];
  if (((letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z')) && path[1] == ':') {
    char const drive[] = {letter, ':', '\\', '\0'};
    return vekCopyFitting(drive, 3, root, size);
  }
  // A share's root, \\server\share\, stands for a drive of the network.
  if (separator(path[0]) && separator(path[1])) {
    std::size_t end = 2;
    for (int names = 0; names < 2; ++names) {
      std::size_t const begin = end;
      while (path[end] != '\0' && !separator(path[end])) ++end;
      if (end == begin) break;
      if (names == 1) {
        std::string share(path, end);
        share += '\\';
        share[0] = share[1] = '\\';
        share[share.find_first_of("/\\", 2)] = '\\';
        return vekCopyFitting(share.c_str(), share.size(), root, size);
      }
      if (path[end] != '\0') ++end;
    }
  }
  vekSetLastError(ERROR_INVALID_DRIVE);
  return false;
}

unsigned uGetLogicalDriveStrings(unsigned size, char* buffer) {
  wchar_t drives[26 * 4 + 1];
  DWORD const length = GetLogicalDriveStringsW(sizeof drives / sizeof drives[0], drives);
  if (length == 0 || length >= sizeof drives / sizeof drives[0]) {
    vekKeepSystemError();
    if (size > 0) buffer[0] = '\0';
    return 0;
  }
  if (length + 1 > size) return length + 1;  // the size needed; nothing written
  // Drive roots are letters, a colon and a separator: plain ASCII.
  for (DWORD at = 0; at <= length; ++at) buffer[at] = static_cast<char>(drives[at]);
  return length;
}

int vek_chdrive(int drive) {
  if (drive < 1 || drive > 26) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return -1;
  }
  SetLastError(NO_ERROR);
  if (_chdrive(drive) == 0) return 0;
  int const code = static_cast<int>(GetLastError());
  vekSetLastError(code != 0 ? code : ERROR_INVALID_DRIVE);
  return -1;
}

int uGetComputerName(char* buffer, std::uint32_t* size) {
  wchar_t name[MAX_COMPUTERNAME_LENGTH + 1];
  DWORD length = sizeof name / sizeof name[0];
  if (!GetComputerNameW(name, &length)) return Fail();
  std::string native;
  return vekFromWide(name, native) ? vekNameInto(native.c_str(), buffer, size, false) : 0;
}

int uGetUserName(char* buffer, std::uint32_t* size) {
  wchar_t name[257];  // the longest user name and its terminator
  DWORD length = sizeof name / sizeof name[0];
  if (!GetUserNameW(name, &length)) return Fail();
  std::string native;
  return vekFromWide(name, native) ? vekNameInto(native.c_str(), buffer, size, true) : 0;
}
