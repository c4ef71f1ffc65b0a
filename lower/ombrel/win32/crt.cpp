// The environment, the directory and unlink calls, the runtime error as a
// system code and the system error text, on msvcrt and the W calls. Windows
// code only.
#include "ombcrt.h"

#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>

#include "ombmem.h"
#include "system.h"

namespace {

// The system keeps the environment in wide text; a caller of vek_getenv gets
// native text that stays in place, as the C library's own would. Each
// distinct text is kept once, for the life of the process.
char const* Kept(std::string const& text) {
  static std::mutex lock;
  static std::set<std::string> texts;
  std::lock_guard<std::mutex> guard(lock);
  return texts.insert(text).first->c_str();
}

int Result(BOOL done) {
  if (done) return 0;
  vekKeepSystemError();
  return -1;
}

// The system's code for a C runtime error that came without one.
int SystemCodeOf(int error) {
  switch (error) {
    case 0:
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case ENOENT: return ERROR_FILE_NOT_FOUND;
    case EACCES: return ERROR_ACCESS_DENIED;
    case EEXIST: return ERROR_FILE_EXISTS;
    case EMFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case ENOSPC: return ERROR_DISK_FULL;
    case EBADF: return ERROR_INVALID_HANDLE;
    default: return vekErrRuntimeOther;
  }
}

// The system's text for code in native text, without its line end; empty
// when the system has none.
std::string SystemText(int code) {
  wchar_t* text = nullptr;
  DWORD const length =
      FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                     nullptr, static_cast<DWORD>(code), 0, reinterpret_cast<wchar_t*>(&text), 0, nullptr);
  std::string native;
  if (length != 0) {
    std::wstring wide(text, length);
    while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r')) wide.pop_back();
    if (!vekFromWide(wide.c_str(), native)) native.clear();
  }
  LocalFree(text);
  return native;
}

}  // namespace

char const* vek_getenv(char const* name) {
  std::wstring wideName;
  if (name == nullptr || !vekToWide(name, wideName)) return nullptr;
  std::wstring value(64, L'\0');
  for (;;) {
    // An empty value gives 0 too, without an error of its own.
    SetLastError(ERROR_SUCCESS);
    DWORD const length = GetEnvironmentVariableW(wideName.c_str(), &value[0], static_cast<DWORD>(value.size()));
    if (length == 0 && GetLastError() == ERROR_ENVVAR_NOT_FOUND) return nullptr;
    if (length < value.size()) {  // it fits: the length without the terminator
      value.resize(length);
      break;
    }
    value.resize(length);  // the size needed, with the terminator
  }
  std::string native;
  return vekFromWide(value.c_str(), native) ? Kept(native) : nullptr;
}

int vek_chdir(char const* path) {
  std::wstring wide;
  if (!vekToWide(path, wide)) return -1;
  // Windows holds a current directory of fewer than MAX_PATH characters
  // (with its final separator); a longer one is refused here, since not
  // every system refuses it before it is taken.
  if (wide.size() + 2 > MAX_PATH) {
    vekSetLastError(ERROR_FILENAME_EXCED_RANGE);
    return -1;
  }
  return Result(SetCurrentDirectoryW(wide.c_str()));
}

int vek_unlink(char const* path) {
  std::wstring wide;
  if (!vekToWide(path, wide)) return -1;
  return Result(DeleteFileW(wide.c_str()));
}

// msvcrt keeps the system's code of a failed call in _doserrno beside errno.
void vekResetRuntimeError() {
  errno = 0;
  _doserrno = 0;
}

void vekKeepRuntimeError() {
  if (_doserrno != 0) {
    vekSetLastError(static_cast<int>(_doserrno));
  } else {
    vekSetLastError(SystemCodeOf(errno));
  }
}

void vekPrintSystemError(char const* prefix, int code) {
  std::string text = SystemText(code);
  if (text.empty()) text = "Unknown error " + std::to_string(code);
  if (prefix != nullptr && *prefix != '\0') {
    std::fprintf(stderr, "%s: %s\n", prefix, text.c_str());
  } else {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
}
