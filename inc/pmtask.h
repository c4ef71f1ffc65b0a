// quillon: tasks. A task can be started, killed and asked how it stands.
//
// pmThread runs its ThreadBody on a thread of its own. The library writes the
// exit status only at Start and Kill: a body that wants its end recorded calls
// setStatus or setExitCode on GetExitStatus() before it returns, and whoever
// reads the status while the body runs arranges the order. No destructor
// waits for a thread or kills it, so the owner keeps a task object until its
// body has returned.
#ifndef PMTASK_H
#define PMTASK_H

#include "quillonbase.h"
#include "prosync.h"

#include <cstdint>

// How a task stands. GetExitCode gives the status field (0: nothing recorded
// yet, 1: success), not the numeric exit code.
class QUILLON_API pmExitStatus {
 public:
  pmExitStatus() : alive(false), killed(false), status(errNothingYet), exitCode(-1) {}

  void setAlive() {
    alive = true;
    killed = false;
    status = errNothingYet;
    exitCode = -1;
  }
  void setKilled() {
    alive = false;
    killed = true;
    status = errNothingYet;
    exitCode = 0;
  }
  void setStatus(errstatus value) {
    alive = false;
    killed = false;
    status = value;
  }
  void setExitCode(std::int32_t value) {
    alive = false;
    killed = false;
    exitCode = value;
  }

  bool IsAlive() const { return alive; }
  errstatus GetExitCode() const { return status; }

 private:
  bool alive;
  bool killed;
  errstatus status;
  std::int32_t exitCode;
};

class QUILLON_API pmThreadExitStatus : public pmExitStatus {
 public:
  pmThreadExitStatus() : threadHandle(badThreadHandle) {}
  void SetThreadHandle(void* handle) { threadHandle = handle; }

 private:
  void* threadHandle;
};

class QUILLON_API pmTask {
 public:
  virtual ~pmTask();
  virtual bool Start() = 0;
  virtual bool Kill() = 0;
  virtual pmExitStatus& GetExitStatus() = 0;
  // Hooks for subclasses; the library calls none of them.
  virtual void OnSuccessfullStart();
  virtual void OnFailedStart();
  virtual bool Unlocked(bool);
};

// A task whose ThreadBody runs on a new thread. Constructed it counts as
// alive, though no thread runs before Start.
class QUILLON_API pmThread : public pmTask {
 public:
  pmThread();
  pmThread(pmThread const&) = delete;
  pmThread& operator=(pmThread const&) = delete;
  // Closes the handle only when the status no longer says alive.
  ~pmThread() override;

  // Starts a new thread on ThreadBody. False, with status 38 (errThreadCreate),
  // when no thread could be made. A second Start makes a second thread. The
  // new thread may run before Start has stored the handle.
  bool Start() override;
  // Ends the thread at its next cancellation point (a wait, a sleep, a
  // blocking read or write), not at once; the unwinding runs the destructors
  // on its way, nothing else is cleaned up. The thread's exit code is 2. The
  // handle is closed and the status says killed, also when there was no
  // thread to end; the result says whether there was one.
  bool Kill() override;
  pmExitStatus& GetExitStatus() override;

 protected:
  void* GetHandle() const { return handle; }
  // The work of the task, on its own thread; the result is the thread's exit code.
  virtual unsigned int ThreadBody() = 0;

  void* handle;

 private:
  static unsigned int ThreadStarter(void* task);

  pmThreadExitStatus threadStatus;
};

// The calling thread's pseudo-handle: the same value in every thread.
QUILLON_API void* GetTaskSelfHandle();

// An information channel between a managed task and its creator. On this
// platform it carries nothing: Send sends nothing and Receive fills nothing.
class QUILLON_API pmInfoBridge {
 public:
  pmInfoBridge(bool firstFlag, bool secondFlag);
  bool Initialize(void* const& partner);
  bool TurnOn();
  bool Send(char* data, int size);
  bool Receive(char* data, int size);

 private:
  void* creatorThread;
  void* partner;
  bool firstFlag;
  bool secondFlag;
  proMutex mutex;
};

#endif
