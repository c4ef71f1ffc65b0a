/// \file
/// tarnlet: files, directories and the process's place in the file system,
/// in native text.
///
/// Contract (BOOL-style results: non-zero is success; every failure keeps the
/// system error, or one of the library's own codes, for errMapError(). "Fails
/// with errSysX" names what errMapError() then gives, on every platform):
/// - uGetCurrentDirectory(size, buffer): writes the current directory with its
///   terminator into buffer, at most size bytes. Returns the length written
///   (without the terminator); 0 on failure, with buffer left alone and the
///   system error kept (a directory that does not fit fails with
///   errSysNameTooLong).
/// - uGetEnvironmentVariable(name, buffer, size): writes the value with its
///   terminator when it fits, and returns its length; returns 0 for a variable
///   that is not set (buffer untouched), and the size needed with the
///   terminator, which is at least size, when it does not fit (buffer
///   untouched).
/// - uCreateFile(path, access, share, security, disposition, flags, template):
///   opens a file (never a directory) and gives its handle, or
///   VEK_INVALID_HANDLE. access: vekGenericRead and/or vekGenericWrite.
///   disposition: vekOpenExisting (fails with errSysNotFound if missing),
///   vekOpenAlways (makes it if missing), vekCreateAlways (makes it, or
///   empties it), vekCreateNew (fails with errSysExists if present),
///   vekTruncateExisting; another value fails with errSysInvalidArgument.
///   A directory fails with errSysIsDirectory. share (vekFileShareRead,
///   vekFileShareWrite): the opens that others may make while this handle is
///   open. An open whose share mode conflicts with an open handle (in any
///   process, or in this one) fails with errSysSharingViolation: share 0 refuses
///   every other open, any read or write sharing admits the other sharing
///   opens. A file is emptied only once the share mode is granted. The open
///   itself never waits: a FIFO with no peer fails with errSysNotFound
///   (writing) or opens at once (reading). flags: vekFileFlagSequentialScan hints at reading from start
///   to end; other bits are ignored.
///   security and template are not used.
/// - vekIsRegularFile(handle): true when handle is open on a regular file;
///   false for anything else, with errSysIsDirectory for a directory and
///   errSysInvalidArgument for a FIFO, socket or device.
/// - vekCopyFilePermissions(source, target): gives target the permissions of
///   source: the read, write and execute bits of owner, group and others on
///   POSIX (set-id and sticky bits are not carried), the read-only attribute
///   on Windows. target stays writable through its handle.
/// - vekReadFile(handle, buffer, size, &got): reads up to size bytes; got 0 at
///   the end of the file. vekWriteFile(handle, data, size, &written): writes
///   all size bytes unless it fails; written says how many went, also on a
///   failure. Both return false on failure.
/// - vekCopyFileData(source, target): copies from the position of source to its
///   end into target at its position, by the fastest means the system has.
///   False on a failed read or write; what was written stays.
/// - vekGetFileSize(handle, high): the low 32 bits of the size, the high bits
///   into *high when high is not null; VEK_INVALID_FILE_SIZE on failure.
/// - vekLockFile / vekUnlockFile(handle, offsetLow, offsetHigh, lengthLow,
///   lengthHigh): takes or drops a write lock on a byte region, without
///   waiting, held by this handle. A region of length 0 locks nothing and
///   succeeds.
/// - vekSleep(milliseconds): suspends the calling thread.
/// - uCreateDirectory(path, security), uRemoveDirectory(path) (empty only),
///   uDeleteFile(path) (not a directory; a link itself, never its target).
/// - uMoveFileEx(from, to, flags): renames a file or directory. Without
///   vekMoveReplaceExisting an existing target fails with errSysExists. With
///   vekMoveCopyAllowed a regular file that cannot be renamed across file
///   systems is moved by a copy: the target then is the file as it was (bytes,
///   permissions, modification time; the owner where the system allows), and
///   a move that fails at any step leaves both names as they were (a target
///   that existed keeps its file, the original stays).
/// - vekRemoveTree(path, longest): removes the directory path with everything
///   in it, depth first. Each entry is reached through the directory that
///   holds it by the name the listing gives, never by a path built from
///   names, so no name (whatever characters it holds) leads outside the tree;
///   links (and junctions) inside are removed, never followed. A path that is
///   itself a link removes the link only. Fails, removing nothing, with
///   errSysInvalidArgument when path resolves to a root (POSIX: the process's
///   root directory, however spelled; Windows: a drive, volume or share root)
///   or when its last name is "." or ".." (the same on every host); with
///   errSysNotDirectory for a file that is neither a directory nor a link;
///   with the system's error when path cannot be read. An entry whose path
///   (path, then one separator and a name per level) would pass longest bytes
///   is not touched: the walk ends with errSysNameTooLong. An entry that
///   vanishes during the walk counts as removed; any other failure ends the
///   walk with its error, and what was removed stays removed.
/// - FileInfo_Read(info, path, follow): fills info with the type, size and
///   modification time of path; a link is reported as a link (type link)
///   unless follow is true (a Windows junction or symbolic link counts as a
///   link). A device, FIFO or socket is of type other. False on failure, with
///   info left alone.
/// - uReadLink(path, buffer, size): the target of a link with its terminator;
///   returns its length, -1 on failure (a target that does not fit fails with
///   errSysNameTooLong; a file that is no link with errSysInvalidArgument), -2
///   on a platform without links.
/// - uFindFirstFile(pattern, data): pattern is a directory, a separator and a
///   wildcard for the names (`*` any run, `?` one character). Fills data with
///   the first entry (`.` and `..` included) and gives a search handle, or
///   VEK_INVALID_HANDLE if the directory cannot be listed (the system's error)
///   or nothing matches (errSysNotFound). uFindNextFile(handle, data): the
///   next entry; 0 at the end (the last error is then left alone) or on
///   failure (errSysBadHandle for a null or invalid handle). win32FindClose
///   (ombhandle.h) ends it.
/// - uGetDiskFreeSpace(root, &sectorsPerCluster, &bytesPerSector,
///   &freeClusters, &totalClusters): the space of the file system that holds
///   root, for an unprivileged user; the product of the first three is the
///   free space, each factor within 32 bits.
/// - vekFreeSpaceRoot(path, root, size): the name that uGetDiskFreeSpace is
///   asked about for path. On POSIX the path itself; on Windows its drive root,
///   and false for a path without a drive.
/// - uGetLogicalDriveStrings(size, buffer): the drive roots, 4 bytes each
///   ("C:\" and a terminator), and a final terminator; returns the length
///   without the final terminator. POSIX has no drives and returns 0.
/// - vek_chdrive(drive): makes drive 1 (A) to 26 (Z) the current drive; 0 on
///   success, -1 with errSysInvalidArgument for another number. POSIX has one
///   root and nothing to switch: it succeeds.
/// - uGetComputerName(buffer, &size) and uGetUserName(buffer, &size): the
///   name of the host or of the user who runs the process, with its
///   terminator, into size bytes. On success size is the length without the
///   terminator (computer) or with it (user); when the buffer is too small they
///   fail with errSysNameTooLong and size is the size needed.
#ifndef VEKFILE_H
#define VEKFILE_H

#include "vekplatform.h"

#include <cstddef>
#include <cstdint>

#include "ombhandle.h"

/// The arguments of uCreateFile and uMoveFileEx, and the attributes of a
/// search result. They are the library's own names; the values are those
/// that Windows gives the constants of the same meaning, so a Windows
/// implementation hands them to the system as they are.
///@{
constexpr std::uint32_t vekGenericRead = 0x80000000u;   ///< access: reading
constexpr std::uint32_t vekGenericWrite = 0x40000000u;  ///< access: writing
constexpr std::uint32_t vekFileShareRead = 0x1u;        ///< share: others may read
constexpr std::uint32_t vekFileShareWrite = 0x2u;       ///< share: others may write
constexpr std::uint32_t vekCreateNew = 1u;              ///< disposition: makes it; fails if present
constexpr std::uint32_t vekCreateAlways = 2u;  ///< disposition: makes it, or empties it
constexpr std::uint32_t vekOpenExisting = 3u;  ///< disposition: fails if missing
constexpr std::uint32_t vekOpenAlways = 4u;    ///< disposition: makes it if missing
constexpr std::uint32_t vekTruncateExisting = 5u;  ///< disposition: empties it; fails if missing
constexpr std::uint32_t vekFileAttributeDirectory = 0x10u;  ///< a search result is a directory
constexpr std::uint32_t vekFileAttributeNormal = 0x80u;     ///< flags: none; a plain search result
constexpr std::uint32_t vekFileFlagSequentialScan = 0x08000000u;  ///< flags: read start to end
constexpr std::uint32_t vekMoveReplaceExisting = 0x1u;  ///< uMoveFileEx: may replace the target
constexpr std::uint32_t vekMoveCopyAllowed = 0x2u;  ///< uMoveFileEx: may copy across file systems
///@}

/// The size of vekFindData::name, terminator included.
/// One result of a directory search: the entry's attributes
/// (vekFileAttributeDirectory or vekFileAttributeNormal) and its name with its
/// terminator. A name that does not fit is never given.
constexpr std::size_t vekFindNameSize = 260;
/// One result of a directory search (uFindFirstFile, uFindNextFile).
struct vekFindData {
  std::uint32_t attributes;    ///< vekFileAttributeDirectory or vekFileAttributeNormal
  char name[vekFindNameSize];  ///< the entry's name with its terminator
};

/// The type of a file as FileInfo_Read reports it.
/// What FileInfo_Read tells of a file.
enum class vekFileType : std::uint8_t {
  regular,    ///< a regular file
  directory,  ///< a directory
  link,       ///< a symbolic link (or a Windows junction), when not followed
  other       ///< a device, FIFO or socket
};
/// What FileInfo_Read tells of a file.
struct vekFileInfo {
  vekFileType type;            ///< regular, directory, link or other
  long long size;              ///< bytes
  long long modificationTime;  ///< seconds since 1970 (UTC)
};

/// The result of vekGetFileSize on failure.
#define VEK_INVALID_FILE_SIZE 0xFFFFFFFFu

/// Writes the current directory with its terminator into buffer (at most
/// size bytes). \return its length without the terminator; 0 on failure,
/// buffer left alone (errSysNameTooLong when it does not fit).
TARNLET_API unsigned uGetCurrentDirectory(unsigned size, char* buffer);
/// Writes the value of the variable name with its terminator when it fits.
/// \return its length; 0 for a variable not set; the size needed, at least
/// size, when it does not fit (buffer then untouched).
TARNLET_API unsigned uGetEnvironmentVariable(char const* name, char* buffer, unsigned size);

/// Opens a file (never a directory) with the access, share mode and
/// disposition given. \return its handle, owned by the caller and closed
/// with win32CloseFileHandle; VEK_INVALID_HANDLE on failure, with
/// errSysNotFound, errSysExists, errSysIsDirectory, errSysSharingViolation,
/// errSysInvalidArgument or the system's error. security and templateFile
/// are not used.
TARNLET_API void* uCreateFile(char const* path, std::uint32_t access, std::uint32_t share,
                              void* security, std::uint32_t disposition, std::uint32_t flags,
                              void* templateFile);
/// Reads up to size bytes into buffer; *got 0 at the end of the file.
/// \return false on failure, with the system error kept.
TARNLET_API bool vekReadFile(void* handle, void* buffer, std::uint32_t size, std::uint32_t* got);
/// Writes all size bytes unless it fails; *written says how many went, also
/// on a failure. \return false on failure, with the system error kept.
TARNLET_API bool vekWriteFile(void* handle, void const* data, std::uint32_t size,
                              std::uint32_t* written);
/// Copies source from its position to its end into target at its position.
/// \return false on a failed read or write; what was written stays.
TARNLET_API bool vekCopyFileData(void* source, void* target);
/// True when handle is open on a regular file; false otherwise, with
/// errSysIsDirectory for a directory and errSysInvalidArgument for a FIFO,
/// socket or device.
TARNLET_API bool vekIsRegularFile(void* handle);
/// Gives target the permissions of source; target stays writable through its
/// handle. \return false with the system error kept.
TARNLET_API bool vekCopyFilePermissions(void* source, void* target);
/// The low 32 bits of the file's size, the high bits into *high when high is
/// not null; VEK_INVALID_FILE_SIZE on failure.
TARNLET_API std::uint32_t vekGetFileSize(void* handle, std::uint32_t* high);
///@{
/// Takes (drops) a write lock on a byte region without waiting, held by this
/// handle; a region of length 0 locks nothing and succeeds. \return false
/// with the system error kept.
TARNLET_API bool vekLockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                             std::uint32_t lengthLow, std::uint32_t lengthHigh);
TARNLET_API bool vekUnlockFile(void* handle, std::uint32_t offsetLow, std::uint32_t offsetHigh,
                               std::uint32_t lengthLow, std::uint32_t lengthHigh);
///@}
/// Suspends the calling thread for milliseconds.
TARNLET_API void vekSleep(std::uint32_t milliseconds);

/// Makes the directory path (security is not used). \return non-zero on
/// success; 0 with the system error kept (errSysExists when it is there).
TARNLET_API int uCreateDirectory(char const* path, void* security);
/// Removes the empty directory path. \return non-zero on success; 0 with
/// the system error kept (errSysNotEmpty when it holds entries).
TARNLET_API int uRemoveDirectory(char const* path);
/// Removes the file path, not a directory (a link itself, never its target).
/// \return non-zero on success; 0 with the system error kept.
TARNLET_API int uDeleteFile(char const* path);
/// Renames a file or directory, as vekMoveReplaceExisting and
/// vekMoveCopyAllowed in flags allow. \return non-zero on success; 0 with
/// the system error kept (errSysExists for a target there without
/// vekMoveReplaceExisting); a failed move leaves both names as they were.
TARNLET_API int uMoveFileEx(char const* from, char const* to, std::uint32_t flags);
/// Removes the directory path with everything in it, following no link.
/// \return non-zero on success; 0 with errSysInvalidArgument (a root, or a
/// last name "." or ".."), errSysNotDirectory, errSysNameTooLong or the
/// system's error. What was removed stays removed.
TARNLET_API int vekRemoveTree(char const* path, std::size_t longest);
/// Fills info with the type, size and modification time of path, following
/// a link only when follow is true. \return false on failure, info left
/// alone.
TARNLET_API bool FileInfo_Read(vekFileInfo& info, char const* path, bool follow);
/// Writes the target of the link path with its terminator into buffer.
/// \return its length; -1 on failure (errSysNameTooLong,
/// errSysInvalidArgument for no link); -2 on a platform without links.
TARNLET_API int uReadLink(char const* path, char* buffer, unsigned size);

/// Starts a search of a directory for the names that match a wildcard and
/// fills data with the first entry. \return the search handle, owned by the
/// caller and ended with win32FindClose; VEK_INVALID_HANDLE with the
/// system's error or errSysNotFound when nothing matches.
TARNLET_API void* uFindFirstFile(char const* pattern, vekFindData* data);
/// Fills data with the next entry of a search. \return non-zero; 0 at the
/// end (last error left alone) or on failure (errSysBadHandle for a null or
/// invalid handle).
TARNLET_API int uFindNextFile(void* handle, vekFindData* data);

/// The space of the file system that holds root, for an unprivileged user:
/// the product of the first three outputs is the free space. \return
/// non-zero on success; 0 with the system error kept.
TARNLET_API int uGetDiskFreeSpace(char const* root, std::uint32_t* sectorsPerCluster,
                                  std::uint32_t* bytesPerSector, std::uint32_t* freeClusters,
                                  std::uint32_t* totalClusters);
/// Writes into root the name that uGetDiskFreeSpace is asked about for path.
/// \return false when it does not fit in size bytes, or on Windows for a
/// path without a drive.
TARNLET_API bool vekFreeSpaceRoot(char const* path, char* root, unsigned size);
/// Writes the drive roots into buffer. \return their length without the
/// final terminator; 0 on POSIX, which has no drives.
TARNLET_API unsigned uGetLogicalDriveStrings(unsigned size, char* buffer);
/// Makes drive 1 (A) to 26 (Z) the current drive. \return 0; -1 with
/// errSysInvalidArgument for another number.
TARNLET_API int vek_chdrive(int drive);
///@{
/// The name of the host (of the user who runs the process) into *size
/// bytes. \return non-zero with *size the length; 0 with errSysNameTooLong
/// and *size the size needed when it does not fit, or with the system error.
TARNLET_API int uGetComputerName(char* buffer, std::uint32_t* size);
TARNLET_API int uGetUserName(char* buffer, std::uint32_t* size);
///@}

#endif
