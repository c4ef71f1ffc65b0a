/// \file
/// quillon: child processes. ExecProcess runs a command line as a child whose
/// standard streams may be wired to streams of the caller; the pipe helpers
/// wire all three to fresh pipes.
///
/// The command line is split into arguments by the Windows rules (blanks
/// separate, double quotes group, backslashes escape only before a quote), and
/// the program is looked up on PATH; no shell runs unless the command names
/// one. A program that cannot be found or run makes Start return false, and no
/// child is left behind.
///
/// An ExecProcess, an assignable stream and an exit event are each for one
/// thread at a time.
#ifndef PMPROCESS_H
#define PMPROCESS_H

#include <cstdint>
#include <fstream>
#include <istream>
#include <ostream>

#include "pipestream.h"
#include "pmtask.h"
#include "quillonbase.h"

/// A stream offered to a child as its standard input: the stream and the native
/// handle behind it (all ones when it has none, e.g. a file stream that isn't
/// open; the child then keeps the parent's own). Short-lived: build one, pass
/// it to AssignCin, drop it. It owns neither the stream nor the handle.
/// One thread at a time.
class QUILLON_API iAssignableStream {
 public:
  ///@{
  /// Takes the handle of the stream's file or pipe end as it is now.
  explicit iAssignableStream(std::basic_fstream<char>& file);
  explicit iAssignableStream(std::basic_ifstream<char>& file);
  explicit iAssignableStream(iPipeStream& pipe);
  ///@}
  virtual ~iAssignableStream();  ///< Leaves the stream and its handle alone.

  /// The native handle, still the stream's; all ones when it has none.
  void* GetCtrlHandle() const { return ctrlHandle; }

 private:
  std::basic_istream<char>* stream;
  void* ctrlHandle;
};

/// The same for the child's standard output or standard error.
/// One thread at a time.
class QUILLON_API oAssignableStream {
 public:
  ///@{
  /// Takes the handle of the stream's file or pipe end as it is now.
  explicit oAssignableStream(std::basic_fstream<char>& file);
  explicit oAssignableStream(std::basic_ofstream<char>& file);
  explicit oAssignableStream(oPipeStream& pipe);
  ///@}
  virtual ~oAssignableStream();  ///< Leaves the stream and its handle alone.

  /// The native handle, still the stream's; all ones when it has none.
  void* GetCtrlHandle() const { return ctrlHandle; }

 private:
  std::basic_ostream<char>* stream;
  void* ctrlHandle;
};

/// Signalled once the child has ended. It keeps its own hold on the process, so
/// it may outlive the ExecProcess; the caller deletes it. One thread at a time.
class QUILLON_API ptkExecProcessEvent : public vekEvent {
 public:
  /// An event on the lower library's process handle process, which stays
  /// its owner's.
  explicit ptkExecProcessEvent(void* process);
  /// event as a ptkExecProcessEvent, or null if it is of another class.
  static ptkExecProcessEvent* cast(vekEvent* event);

 private:
  int GetKind() override;
  void* GetInfo() override;

  static int kind;  // taken at load
};

/// A child process as a task.
///
/// flags: 1 lets the child's standard input be assigned, 2 its standard
/// output, 4 its standard error; a stream not assigned is the parent's own.
///
/// The exit status: constructed, alive is true and status errNothingYet
/// ("nothing launched yet"); after a successful Start, alive is false and
/// status errOK while the child runs; Kill and Interrupt put their outcome in
/// status (errOK, or the mapped error). The numeric exit code
/// comes from WaitForProcess (a child ended by a signal has 128 + its number).
///
/// Kill, Interrupt, IsAppAlive, WaitForProcess and GetExitEvent need the
/// process handle: before a successful Start, or once a wait has delivered the
/// exit code (which releases the handle), they make no system call, change
/// nothing and give false, 0 or null. The destructor neither kills nor waits:
/// a running child runs on, and is reaped when it ends. So does the child of a
/// first Start when a second Start launches another one. One thread at a time.
class QUILLON_API ExecProcess : public pmTask {
 public:
  /// A child to run command (copied); nothing is launched yet.
  ExecProcess(char const* command, unsigned int flags);
  /// Lets go of the process handle; the child runs on and is reaped when it
  /// ends.
  ~ExecProcess() override;
  ///@{
  /// Not copyable: the object holds the process handle.
  ExecProcess(ExecProcess const&) = delete;
  ExecProcess& operator=(ExecProcess const&) = delete;
  ///@}

  /// Starts an ordinary child. \return false, with the status unchanged,
  /// when the program cannot be found or run.
  bool Start() override;
  /// An ordinary child when true, a detached one (a session of its own) when false.
  bool Start(bool ordinary);
  /// Ends the child (SIGKILL). \return whether the signal went out.
  bool Kill() override;
  /// Interrupts the child (SIGINT). \return whether the signal went out.
  bool Interrupt();
  /// Blocks until the child ends. \return its exit code, or 0 when the wait
  /// failed or there is no child to wait for.
  std::int32_t WaitForProcess();
  /// Fetches the exit code if the child has ended by now, without blocking.
  /// \return the status record, owned by the object.
  pmExitStatus& GetExitCode();
  pmExitStatus& GetExitStatus() override;
  /// Asks the system. False once the child has ended, with status errOK.
  bool IsAppAlive();
  /// A new ptkExecProcessEvent on the child: a heap object the caller
  /// deletes; null without a process handle or without memory.
  vekEvent* GetExitEvent();

  ///@{
  /// Makes the stream's handle the child's standard input (output, error)
  /// for the next Start, if the flags allow; otherwise nothing. The stream
  /// must stay open until Start has run.
  void AssignCin(iAssignableStream const& stream);
  void AssignCout(oAssignableStream const& stream);
  void AssignCerr(oAssignableStream const& stream);
  ///@}
  ///@{
  /// Whether the flags let that stream be assigned.
  bool IsCinToAssign() const { return assignCin; }
  bool IsCoutToAssign() const { return assignCout; }
  bool IsCerrToAssign() const { return assignCerr; }
  ///@}

 private:
  bool Launch(unsigned int mode);
  void Delivered(std::int32_t code);

  void* handle;
  std::uint32_t processId;
  bool finished;
  pmExitStatus exitStatus;
  bool assignCout;
  bool assignCin;
  bool assignCerr;
  void* coutHandle;
  void* cinHandle;
  void* cerrHandle;
  char* command;
};

/// Process_GetStatus of the lower library, for a process handle of its own:
/// asAlive, asNotAlive once it has ended, asUnknown when the system cannot
/// tell.
QUILLON_API AliveStatus IsAlive(void* process);
/// Process_GetExitCode of the lower library, for a process handle of its
/// own. \return true, with code filled, once the process has ended.
QUILLON_API bool GetProcExitCode(void* process, std::int32_t* code);

/// Assigns the three streams (as far as the flags of process allow) and starts
/// the child. None of the arguments may be null; the streams stay the
/// caller's. \return the process's status after the attempt: errOK when it
/// started; after a failed launch the status it had, errNothingYet (0) for a
/// process never started.
QUILLON_API errstatus CreateChildProcessWithPipes(iPipeStream* in, oPipeStream* out, oPipeStream* err,
                                                  ExecProcess* process);
/// Makes three pipes, starts the child on them and hands back the parent's
/// ends, which the caller releases with DeletePipe. A null out-parameter leaves
/// that end open and unreleased. On failure every end made is released, the
/// out-parameters aren't written, and the result is errPipeCreate (no pipe)
/// or the status of the failed launch (see CreateChildProcessWithPipes).
QUILLON_API errstatus OpenPipeWithChildProc(oPipeStream** toChild, iPipeStream** fromChild,
                                            iPipeStream** errFromChild, ExecProcess* process);

#endif
