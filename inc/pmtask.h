/// \file
/// quillon: tasks. A task can be started, killed and asked how it stands.
///
/// pmThread runs its ThreadBody on a thread of its own. The library writes the
/// exit status only at Start and Kill: a body that wants its end recorded calls
/// setStatus or setExitCode on GetExitStatus() before it returns, and whoever
/// reads the status while the body runs arranges the order. No destructor
/// waits for a thread or kills it, so the owner keeps a task object until its
/// body has returned.
///
/// A task object has no lock: Start, Kill and the status are for one thread
/// at a time (the body on its own thread included, as said above). The task
/// registry of pmManageTask is process-wide and unguarded.
#ifndef PMTASK_H
#define PMTASK_H

#include "quillonbase.h"
#include "prosync.h"
#include "dsortmap.h"

#include <cstdint>

/// How a task stands: a plain value. GetExitCode gives the status field
/// (errNothingYet: nothing recorded yet, errOK: success), not the numeric
/// exit code.
/// A plain value; one thread at a time, or the order the owner arranges.
class QUILLON_API pmExitStatus {
 public:
  /// Not alive, not killed, errNothingYet, exit code -1.
  pmExitStatus() : alive(false), killed(false), status(errNothingYet), exitCode(-1) {}

  /// Alive: not killed, errNothingYet, exit code -1.
  void setAlive() {
    alive = true;
    killed = false;
    status = errNothingYet;
    exitCode = -1;
  }
  /// Killed: not alive, errNothingYet, exit code 0.
  void setKilled() {
    alive = false;
    killed = true;
    status = errNothingYet;
    exitCode = 0;
  }
  /// Ended with the status value: not alive, not killed.
  void setStatus(errstatus value) {
    alive = false;
    killed = false;
    status = value;
  }
  /// Ended with the exit code value: not alive, not killed; the status
  /// stays.
  void setExitCode(std::int32_t value) {
    alive = false;
    killed = false;
    exitCode = value;
  }

  bool IsAlive() const { return alive; }           ///< Whether the task counts as running.
  errstatus GetExitCode() const { return status; }  ///< The status field.

 private:
  bool alive;
  bool killed;
  errstatus status;
  std::int32_t exitCode;
};

/// The status of a pmThread, with the thread handle it was made with.
class QUILLON_API pmThreadExitStatus : public pmExitStatus {
 public:
  pmThreadExitStatus() : threadHandle(badThreadHandle) {}  ///< No thread.
  /// Notes a handle; nothing reads it.
  void SetThreadHandle(void* handle) { threadHandle = handle; }

 private:
  void* threadHandle;
};

/// The face of a task. One thread at a time.
class QUILLON_API pmTask {
 public:
  virtual ~pmTask();
  /// Starts the task. \return true when it started.
  virtual bool Start() = 0;
  /// Ends the task. \return true when there was one to end.
  virtual bool Kill() = 0;
  /// The task's status record, owned by the task.
  virtual pmExitStatus& GetExitStatus() = 0;
  ///@{
  /// Hooks for subclasses; the library calls none of them. Here they do
  /// nothing (Unlocked returns true).
  virtual void OnSuccessfullStart();
  virtual void OnFailedStart();
  virtual bool Unlocked(bool);
  ///@}
};

/// A task whose ThreadBody runs on a new thread. Constructed it counts as
/// alive, though no thread runs before Start.
class QUILLON_API pmThread : public pmTask {
 public:
  pmThread();  ///< No thread; the status says alive.
  ///@{
  /// Not copyable: the object is the running body's own.
  pmThread(pmThread const&) = delete;
  pmThread& operator=(pmThread const&) = delete;
  ///@}
  /// Closes the handle only when the status no longer says alive. Neither
  /// waits for the thread nor kills it.
  ~pmThread() override;

  /// Starts a new thread on ThreadBody. False, with status errThreadCreate,
  /// when no thread could be made. A second Start makes a second thread. The
  /// new thread may run before Start has stored the handle.
  bool Start() override;
  /// Ends the thread at its next cancellation point (a wait, a sleep, a
  /// blocking read or write), not at once; the unwinding runs the destructors
  /// on its way, nothing else is cleaned up. A body must not reach such a
  /// point inside a noexcept function, nor catch (...) without rethrowing.
  /// The thread's exit code is 2. The handle is closed and the status says
  /// killed, also when there was no thread to end; the result says whether
  /// there was one.
  bool Kill() override;
  pmExitStatus& GetExitStatus() override;

 protected:
  /// The thread handle, owned by the task; badThreadHandle before Start.
  void* GetHandle() const { return handle; }
  /// Makes the thread and stores its handle; on failure records
  /// errThreadCreate through GetExitStatus() and returns false.
  bool LaunchThread();
  /// The work of the task, on its own thread; the result is the thread's exit code.
  virtual unsigned int ThreadBody() = 0;

  void* handle;  ///< The thread handle; badThreadHandle while there is none.

 private:
  static unsigned int ThreadStarter(void* task);

  pmThreadExitStatus threadStatus;
};

/// The calling thread's pseudo-handle: the same value in every thread, and
/// nothing to close.
QUILLON_API void* GetTaskSelfHandle();

/// An information channel between a managed task and its creator. On this
/// platform it carries nothing: Send sends nothing and Receive fills nothing.
/// Every operation returns true. One thread at a time.
class QUILLON_API pmInfoBridge {
 public:
  pmInfoBridge(bool firstFlag, bool secondFlag);  ///< Notes the creating thread and the flags.
  bool Initialize(void* const& partner);           ///< Notes the partner thread.
  bool TurnOn();                                   ///< Does nothing.
  bool Send(char* data, int size);                 ///< Sends nothing.
  bool Receive(char* data, int size);              ///< Leaves data alone.

 private:
  void* creatorThread;
  void* partner;
  bool firstFlag;
  bool secondFlag;
  proMutex mutex;
};

/// A thread task with a record of its own (GetExitStatus), not alive until
/// Start. It cannot be killed: Kill only marks the record. Its end can be
/// waited on through a ptkStrictTaskEvent built after Start.
class QUILLON_API pmStrictTask : public pmThread {
 public:
  pmStrictTask();  ///< No thread; the record says not alive, errNothingYet.

  /// Marks the record alive, then starts the thread as pmThread::Start does.
  bool Start() override;
  /// Marks the record killed and returns false; the thread runs on.
  bool Kill() override;
  pmExitStatus& GetExitStatus() override;

  ///@{
  /// A process-wide note for whoever asks IsNoForkSet; nothing clears it, and
  /// no operation of the library reads it. Unguarded: set it before threads
  /// that ask it start.
  static void SetNoFork();
  static bool IsNoForkSet();
  ///@}

 private:
  friend class ptkStrictTaskEvent;

  pmExitStatus ownStatus;
  static bool noFork;
};

/// A thread task that stands in a process-wide registry under its thread
/// handle from a successful Start until Kill or its destruction, so that Fetch
/// finds it. The registry has no lock: callers that start, kill, fetch or
/// destroy managed tasks on several threads serialise those calls. Every
/// managed task must be gone before the library is unloaded.
class QUILLON_API pmManageTask : public pmThread {
 public:
  /// Not registered, no thread; the flags go to its information channel.
  pmManageTask(bool firstFlag, bool secondFlag);
  ///@{
  /// Not copyable: the registry holds the object's address.
  pmManageTask(pmManageTask const&) = delete;
  pmManageTask& operator=(pmManageTask const&) = delete;
  ///@}
  /// Takes the task out of the registry. It neither waits for the thread nor
  /// kills it, and leaves the handle open unless Kill closed it.
  ~pmManageTask() override;

  /// Marks the record alive and starts the thread as pmThread::Start does;
  /// enters the task in the registry when the thread is made. A second Start
  /// first takes out the entry of the first.
  bool Start() override;
  /// As pmThread::Kill, at the next cancellation point. When there was a
  /// thread to end, the task also leaves the registry.
  bool Kill() override;
  pmExitStatus& GetExitStatus() override;
  bool IsAlive();  ///< GetExitStatus().IsAlive().

  /// The task registered under key (a thread handle), or null. The task
  /// stays its owner's.
  static pmManageTask* Fetch(void* const& key);

 protected:
  /// Has no effect in the library: destruction never kills the thread.
  virtual bool MustKillOnDestroy() const;

 private:
  void LeaveRegistry();

  pmExitStatus ownStatus;
  void* registryKey;
  pmInfoBridge bridge;

  static void* const firstRegistryKey;
  static dsScalarMap<pmManageTask*, void*> registry;
};

/// Signalled when the thread of a pmStrictTask ends. It takes the task's
/// handle once, when it is built: build it after Start. Wait on it through
/// vekEvent::Wait or vekWaitForAny; one thread at a time.
class QUILLON_API ptkStrictTaskEvent : public vekEvent {
 public:
  /// An event on task's thread as it is now. The event keeps a reference of
  /// its own, so it stays valid when the task closes its handle.
  explicit ptkStrictTaskEvent(pmStrictTask* task);
  /// The task's current handle; the task must outlive the event for this.
  void* GetProcess();
  /// event as a ptkStrictTaskEvent, or null if it is of another class.
  static ptkStrictTaskEvent* cast(vekEvent* event);

 private:
  int GetKind() override;
  void* GetInfo() override;

  pmStrictTask* task;
  static int const kind;
};

/// Signalled when the function of call_async_func has returned; the caller
/// owns it and deletes it. One thread at a time.
class QUILLON_API ptkAsyncCallEvent : public vekEvent {
 public:
  /// Deleting the event before the function has ended leaves the thread
  /// running (its resources go when it ends); the argument must then live
  /// until the function returns.
  ~ptkAsyncCallEvent() override;

  /// -1 while the function runs, then its result, the same on every call.
  /// Never waits: a caller that wants to wait does so on the event.
  int GetReturnValue();
  /// event as a ptkAsyncCallEvent, or null if it is of another class.
  static ptkAsyncCallEvent* cast(vekEvent* event);

 private:
  friend QUILLON_API ptkAsyncCallEvent* call_async_func(int (*func)(void*), void* argument);

  ptkAsyncCallEvent(void* thread, void* argument);
  // Takes the result and releases the thread once it has ended.
  void Collect();
  int GetKind() override;
  void* GetInfo() override;

  int returnValue;
  void* asyncThread;  // all ones once released
  void* argument;     // not owned; nothing reads it
  static int const kind;
};

/// Runs func(argument) on a new thread. The argument is not owned and must
/// live until the function returns.
/// \return the event of the call, a heap object the caller deletes; null if
///         no thread could be made (or, with the thread running, no memory
///         was left for the event).
QUILLON_API ptkAsyncCallEvent* call_async_func(int (*func)(void*), void* argument);

#endif
