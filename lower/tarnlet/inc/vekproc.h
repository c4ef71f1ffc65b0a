/// \file
/// tarnlet: child processes.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - A process handle is a pointer to a record of the library's own (on POSIX:
///   the pid, a pidfd, the exit code once reaped; on Windows: the process
///   HANDLE and its id); all ones (VEK_INVALID_HANDLE) stands for no process,
///   and an operation given it or null fails with errSysBadHandle. Every operation below takes a handle that Process_Launch gave and
///   that was not released yet.
/// - Process_Launch(&process, &processId, command, second, in, out, err, mode):
///   splits command into arguments by the Windows rules for command lines (see
///   vekSplitCommandLine), finds the program (the first argument) on PATH unless
///   it names a directory, and starts it. in, out and err are native handles
///   (fds on POSIX, HANDLEs on Windows) that become the child's standard
///   input, output and error; all ones
///   leaves the parent's own stream to the child. Nothing else is inherited:
///   every handle the libraries make is closed on exec. mode 1 starts an
///   ordinary child, mode 2 a detached one (a session of its own, so it gets no
///   signal meant for the parent's terminal; on Windows a new process group
///   without a console). second must be null. True with both outputs set when
///   the program runs; false with the outputs untouched when the command is
///   empty, second is not null or mode is neither 1 nor 2
///   (errSysInvalidArgument), the program cannot be found (errSysNotFound) or
///   cannot be run (errSysAccessDenied, or the system's error). No child is
///   left behind by a failed launch.
/// - Process_Wait(process, &code, wait, release): true when the process has
///   ended, with its exit code in code; with wait it blocks until then, without
///   it only looks. A child ended by a signal has the code 128 + the signal's
///   number (137 after Process_Kill, 130 after Process_Interrupt). On Windows
///   a killed child has 137 as well, an interrupted one the code the system
///   gives it (STATUS_CONTROL_C_EXIT). With release, a true result also releases the handle. The child is
///   reaped once; later calls on a handle not released give the same code.
/// - Process_GetStatus(process): asAlive while it runs, asNotAlive once it has
///   ended, asUnknown when the system cannot tell. Never reaps.
/// - Process_GetExitCode(process, &code): true with the exit code when the
///   process has ended, false while it runs; never reaps.
/// - Process_Kill(process) ends the process (SIGKILL; TerminateProcess on
///   Windows); Process_Interrupt(pid) interrupts the process with that id
///   (SIGINT; a console's Ctrl-C or Ctrl-Break on Windows). True on success;
///   false with the system error kept, and with errSysNotFound for a process
///   already reaped or an id that names no single process (0, or one that
///   would reach a process group).
/// - Process_Free(process) releases the handle and leaves the process alone. A
///   child that has not ended yet is reaped when it ends all the same, so none
///   is left behind as a zombie.
/// - vekPROCESSEvent(process) is the object behind an event that is signalled
///   once the process has ended. It keeps a handle of its own on the process,
///   so it stays valid after the process handle is released.
/// - vekStreamFileHandle(buffer): the native handle of the file that a standard
///   file buffer has open, or all ones when it has none.
#ifndef VEKPROC_H
#define VEKPROC_H

#include "vekevent.h"
#include "vekplatform.h"
#include "vekstatus.h"

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

/// Starts command (split by vekSplitCommandLine, the program found on PATH)
/// with in, out and err as its standard streams (all ones: the parent's
/// own); mode 1 an ordinary child, 2 a detached one; second must be null.
/// \return true with *process (owned by the caller, released with
/// Process_Free or Process_Wait) and *processId set; false with them
/// untouched and errSysInvalidArgument, errSysNotFound, errSysAccessDenied or
/// the system's error, no child left behind.
TARNLET_API bool Process_Launch(void** process, std::uint32_t* processId, char const* command,
                                char const* second, void* in, void* out, void* err,
                                unsigned int mode);
/// True when the process has ended, with its exit code in *code (128 + the
/// signal for a child ended by one); with wait it blocks until then. With
/// release a true result also releases the handle. Reaps the child once.
TARNLET_API bool Process_Wait(void* process, std::int32_t* code, bool wait, bool release);
/// Interrupts the process with that id (SIGINT; Ctrl-C or Ctrl-Break on
/// Windows). \return false with the system error kept, errSysNotFound for an
/// id that names no single process.
TARNLET_API bool Process_Interrupt(std::uint32_t processId);
/// Ends the process (SIGKILL; TerminateProcess on Windows). \return false
/// with the system error kept, errSysNotFound for a process already reaped.
TARNLET_API bool Process_Kill(void* process);
/// asAlive while the process runs, asNotAlive once it has ended, asUnknown
/// when the system cannot tell. Never reaps.
TARNLET_API AliveStatus Process_GetStatus(void* process);
/// True with the exit code in *code when the process has ended; false while
/// it runs. Never reaps.
TARNLET_API bool Process_GetExitCode(void* process, std::int32_t* code);
/// Releases the handle and leaves the process alone; a child still running is
/// reaped when it ends all the same.
TARNLET_API void Process_Free(void* process);

/// The object behind an event signalled once a process has ended. It keeps a
/// handle of its own on the process. Waits may run on any thread.
class TARNLET_API vekPROCESSEvent : public vekBaseEvent {
 public:
  /// An object on process; valid after the process handle is released.
  explicit vekPROCESSEvent(void* process);
  ~vekPROCESSEvent() override;  ///< Releases its own handle on the process.
  /// Adds the process's end to wait; nothing when the object has no handle.
  void PrepareWait(vekWaitSet& wait) const override;

 private:
  // The platform's own handle on the process's end (POSIX: a pidfd of its
  // own; Windows: a duplicate of the process HANDLE), or VEK_INVALID_HANDLE.
  void* handle;
};

/// Splits a command line into its arguments by the Windows rules.
/// The Windows rules: blanks (space, tab) separate arguments; double quotes
/// group, and inside a quoted part two quotes in a row give one quote; 2n
/// backslashes before a quote give n backslashes and the quote groups, 2n + 1
/// give n backslashes and a literal quote; backslashes elsewhere are literal.
/// The first argument, the program, ends at the first blank outside quotes and
/// takes quotes only as grouping, backslashes always as they are.
TARNLET_API std::vector<std::string> vekSplitCommandLine(char const* command);

/// The inverse: one command line that vekSplitCommandLine splits into args
/// again (the program quoted whole; an argument quoted when it is empty or
/// holds a blank or a quote, its quotes and the backslashes before them
/// escaped). A program that holds a quote cannot be written: empty result.
TARNLET_API std::string vekJoinCommandLine(std::vector<std::string> const& args);

/// The native handle of the file that buffer has open, still owned by the
/// buffer; all ones (VEK_INVALID_HANDLE) when it has none.
TARNLET_API void* vekStreamFileHandle(std::basic_filebuf<char>* buffer);

#endif
