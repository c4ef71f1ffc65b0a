// What the test support needs from the host, implemented once per platform in
// tests/support/<platform>/platform.cpp (posix, win32), the only files that
// include OS headers. The facts are written out independently of the library
// (a test must not take its expectation from the code under test).
// Operations report failure by their result and never throw. Text is native
// text, UTF-8 on every host. The operations under "POSIX by nature" fail
// (false, -1) elsewhere; the tests that use them skip first (QTEST_POSIX_ONLY).
#ifndef QUILLON_TEST_PLATFORM_H
#define QUILLON_TEST_PLATFORM_H

#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// Whether a test program's own operator new[] and delete[] replace those that
// the library calls: on ELF one definition serves the process; a Windows DLL
// keeps its own runtime's, so a program there defines none. QTEST_REPLACES
// makes a replacement visible to the library.
#if defined(_WIN32)
#  define QTEST_ALLOCATOR_REPLACEABLE 0
#else
#  define QTEST_ALLOCATOR_REPLACEABLE 1
#  define QTEST_REPLACES __attribute__((visibility("default")))
#endif

namespace qtest::host {

// --- Facts -----------------------------------------------------------------

extern bool const kIsPosix;
// The native path separator: '/' on POSIX, '\' on Windows.
extern char const kSeparator;
// System error codes, as the thread's last error holds them (errno on POSIX,
// GetLastError or WSAGetLastError on Windows).
extern int const kErrorNotFound;         // no such file
extern int const kErrorAccessDenied;     // permission refused
extern int const kErrorInvalidArgument;  // as a socket wait reports it
extern int const kErrorUnmapped;         // a real error that has no named status
// The exit code of a child ended by Process_Kill, and by Process_Interrupt.
extern int const kExitAfterKill;
extern int const kExitAfterInterrupt;
// SOL_SOCKET and SO_REUSEADDR in the host's own numbers.
extern int const kSocketLevel;
extern int const kReuseAddressOption;
// A locale whose native text the library takes as UTF-8: the C library's
// UTF-8 locale, or the C locale where the C library has none (msvcrt).
extern char const* const kUtf8Locale;

// --- The test program and its environment ----------------------------------

// The running program's own file.
std::string ExecutablePath();
// The program's arguments as native text (msvcrt gives main its arguments in
// the ANSI code page; Windows reads them from the command line itself).
std::vector<std::string> ProgramArguments(int argc, char** argv);
// Sets an environment variable, or removes it when value is null.
void SetEnv(char const* name, char const* value);
std::uint32_t ProcessId();
// The system's id of the calling thread (the kernel thread id on Linux).
std::uint32_t ThreadId();
// Makes a real system call fail on a handle that is no handle, so that the
// thread's last error is the host's "bad handle".
void FailWithBadHandle();
// Standard input and output carry bytes as they are (no line-end rewriting).
void UseBinaryStandardStreams();

// Makes a symbolic link at link that holds target (a file's name; Windows
// makes it without privilege where the system allows).
bool MakeSymbolicLink(std::string const& target, std::string const& link);

// Sends all size bytes on a connected socket of the library, never raising
// SIGPIPE.
bool SendAll(std::uint64_t socket, void const* data, std::size_t size);
// Makes the close of a connected socket abortive: the peer gets a reset
// instead of the end of the stream.
bool ResetOnClose(std::uint64_t socket);
// True when a child would inherit the handle (a file, pipe or socket handle
// of the library, as its own integer).
bool IsInheritable(std::uintptr_t handle);

// Gives SIGPIPE its default action (which ends the process) while it lives;
// one at a time. Active on a host without SIGPIPE too: nothing to change.
class DefaultBrokenPipeSignal {
 public:
  DefaultBrokenPipeSignal();
  ~DefaultBrokenPipeSignal();
  DefaultBrokenPipeSignal(DefaultBrokenPipeSignal const&) = delete;
  DefaultBrokenPipeSignal& operator=(DefaultBrokenPipeSignal const&) = delete;
  bool Active() const { return active; }

 private:
  bool active;
};
// True while a SIGPIPE waits to be delivered to the calling thread or process
// (never, where there is no SIGPIPE).
bool BrokenPipeSignalPending();
// Interrupts the system call that thread waits in, with a signal whose
// handler does nothing, so that the call returns early (a send that has sent
// part of its bytes returns their count). False where that cannot be done.
bool InterruptThread(std::thread& thread);

// True when the program runs under Wine (ntdll has wine_get_version), whose
// known gaps a test may skip at run time (QTEST_WINE_GAP).
bool UnderWine();

// --- POSIX by nature ---------------------------------------------------------

// The number of open descriptors of this process (/proc/self/fd).
int OpenDescriptorCount();
// The resident memory of this process in bytes (/proc/self/statm); -1 when
// it cannot be read.
long ResidentBytes();
// True once the process has left the process table (reaped, not a zombie).
bool ProcessIsGone(std::uint32_t pid);
// True while this process has a child, running or not reaped yet.
bool AnyChildLeft();
// Opens (and makes) the file without close-on-exec: a descriptor that a
// child would inherit unless the launch closes it. -1 on failure.
int OpenInheritableDescriptor(std::string const& path);
bool CloseDescriptor(int descriptor);
// True when the descriptor is open on the file at path.
bool DescriptorIsOnFile(int descriptor, std::string const& path);
// The session id of a process; -1 on failure.
long SessionOf(std::uint32_t pid);
// Sets the file-creation mask (umask) and gives the one it replaces.
unsigned SetFileCreationMask(unsigned mask);
// Makes a FIFO at path.
bool MakeFifo(std::string const& path);
// True when the process runs as the superuser.
bool IsPrivileged();
// True when both paths exist and lie on different file systems.
bool OnOtherFileSystems(std::string const& first, std::string const& second);

// Watches the library's address waits (vekWaitOnAddress and
// vekWakeByAddressSingle): the program's own definitions of the two
// (posix/addresswaits.cpp) come before tarnlet's, call the hooks and go on to
// the library. Null stops watching. False where a program cannot put its own
// definition in front of a shared library's.
struct AddressWaitHooks {
  void (*beforeWait)(void const* word);
  // Must call next, the library's wake, once.
  void (*wake)(void const* word, std::function<void()> const& next);
};
bool WatchAddressWaits(AddressWaitHooks const* hooks);

// Lowers the limit of open descriptors so that the next one cannot be opened,
// while it lives; one at a time.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors();
  ~NoMoreDescriptors();
  NoMoreDescriptors(NoMoreDescriptors const&) = delete;
  NoMoreDescriptors& operator=(NoMoreDescriptors const&) = delete;
  bool Active() const { return active; }

 private:
  bool active;
};

// Limits this process's address space to what it maps now plus half a
// default thread stack: room for small allocations, not for a new thread. For
// a child in a helper mode: the limit stays.
bool LeaveNoRoomForAThread();

}  // namespace qtest::host

#endif
