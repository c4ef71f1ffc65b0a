// The test support's host operations on Windows (mingw-w64, msvcrt).
#include "platform.h"

#include <winsock2.h>
#include <windows.h>
#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace qtest::host {

namespace {

// Native text is UTF-8 (platform.h); the system's W calls take UTF-16.
std::wstring Wide(std::string const& text) {
  int const length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &wide[0], length);
  return wide;
}

std::string Utf8(std::wstring const& wide) {
  int const length =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &text[0], length, nullptr, nullptr);
  return text;
}

}  // namespace

bool const kIsPosix = false;
char const kSeparator = '\\';
int const kErrorNotFound = ERROR_FILE_NOT_FOUND;
int const kErrorAccessDenied = ERROR_ACCESS_DENIED;
int const kErrorInvalidArgument = WSAEINVAL;
int const kErrorUnmapped = ERROR_PRINTQ_FULL;
// Process_Kill ends a child with TerminateProcess and the code a POSIX shell
// shows for SIGKILL, so that a killed child reads the same on every host; an
// interrupted console child ends with the system's own code for Ctrl+C.
int const kExitAfterKill = 128 + 9;
int const kExitAfterInterrupt = static_cast<int>(STATUS_CONTROL_C_EXIT);
int const kSocketLevel = SOL_SOCKET;
int const kReuseAddressOption = SO_REUSEADDR;
// msvcrt has no UTF-8 locale, and its C locale takes bytes as Latin-1; the
// library takes the C locale as UTF-8 instead (lower/ombrel/win32/text.cpp),
// so that is the UTF-8 locale here.
char const* const kUtf8Locale = "C";

std::string ExecutablePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    DWORD const length = GetModuleFileNameW(nullptr, &path[0], static_cast<DWORD>(path.size()));
    if (length == 0) return std::string();
    if (length < path.size()) return Utf8(path.substr(0, length));
    path.resize(path.size() * 2);
  }
}

std::vector<std::string> ProgramArguments(int, char**) {
  std::vector<std::string> args;
  int count = 0;
  wchar_t** wide = CommandLineToArgvW(GetCommandLineW(), &count);
  if (wide == nullptr) return args;
  for (int i = 0; i < count; ++i) args.push_back(Utf8(wide[i]));
  LocalFree(wide);
  return args;
}

void SetEnv(char const* name, char const* value) {
  // The C library keeps a copy of its own; children get the system's.
  std::wstring const wideName = Wide(name);
  _wputenv((wideName + L"=" + (value != nullptr ? Wide(value) : std::wstring())).c_str());
  SetEnvironmentVariableW(wideName.c_str(), value != nullptr ? Wide(value).c_str() : nullptr);
}

std::uint32_t ProcessId() { return GetCurrentProcessId(); }

std::uint32_t ThreadId() { return GetCurrentThreadId(); }

void FailWithBadHandle() { CloseHandle(nullptr); }

void UseBinaryStandardStreams() {
  for (FILE* stream : {stdin, stdout, stderr}) _setmode(_fileno(stream), _O_BINARY);
}

bool SendAll(std::uint64_t socket, void const* data, std::size_t size) {
  auto const* bytes = static_cast<char const*>(data);
  while (size > 0) {
    int const sent = send(static_cast<SOCKET>(socket), bytes, static_cast<int>(std::min<std::size_t>(size, 1 << 20)), 0);
    if (sent <= 0) return false;
    bytes += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool ResetOnClose(std::uint64_t socket) {
  linger const abortive{1, 0};
  return setsockopt(static_cast<SOCKET>(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<char const*>(&abortive),
                    sizeof abortive) == 0;
}

bool IsInheritable(std::uintptr_t handle) {
  DWORD flags = 0;
  return GetHandleInformation(reinterpret_cast<HANDLE>(handle), &flags) && (flags & HANDLE_FLAG_INHERIT) != 0;
}

// POSIX by nature: nothing of the kind here.

int OpenDescriptorCount() { return -1; }
long ResidentBytes() { return -1; }
bool UnderWine() {
  HMODULE const ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool ProcessIsGone(std::uint32_t) { return false; }
bool AnyChildLeft() { return false; }
int OpenInheritableDescriptor(std::string const&) { return -1; }
bool CloseDescriptor(int) { return false; }
bool DescriptorIsOnFile(int, std::string const&) { return false; }
long SessionOf(std::uint32_t) { return -1; }
unsigned SetFileCreationMask(unsigned) { return 0; }
bool MakeFifo(std::string const&) { return false; }

bool MakeSymbolicLink(std::string const& target, std::string const& link) {
  // Some systems answer success and make nothing: the link must be there.
  std::wstring const wideLink = Wide(link);
  if (!CreateSymbolicLinkW(wideLink.c_str(), Wide(target).c_str(), SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE))
    return false;
  DWORD const attributes = GetFileAttributesW(wideLink.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}
bool IsPrivileged() { return false; }
bool OnOtherFileSystems(std::string const&, std::string const&) { return false; }

// No SIGPIPE here: a write without a reader simply fails.
DefaultBrokenPipeSignal::DefaultBrokenPipeSignal() : active(true) {}
DefaultBrokenPipeSignal::~DefaultBrokenPipeSignal() {}
bool BrokenPipeSignalPending() { return false; }

// Windows has no signal that ends a waiting call.
bool InterruptThread(std::thread&) { return false; }

// A DLL's functions cannot be replaced by the program's own definitions.
bool WatchAddressWaits(AddressWaitHooks const*) { return false; }

NoMoreDescriptors::NoMoreDescriptors() : active(false) {}
NoMoreDescriptors::~NoMoreDescriptors() {}

bool LeaveNoRoomForAThread() { return false; }

}  // namespace qtest::host
