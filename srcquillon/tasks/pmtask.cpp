#include "pmtask.h"

pmTask::~pmTask() = default;

void pmTask::OnSuccessfullStart() {}

void pmTask::OnFailedStart() {}

bool pmTask::Unlocked(bool) { return true; }

pmThread::pmThread() : handle(badThreadHandle) {
  threadStatus.SetThreadHandle(handle);
  threadStatus.setAlive();
}

pmThread::~pmThread() {
  // Looks at its own record, not through GetExitStatus: a subclass is gone by now.
  if (!threadStatus.IsAlive() && handle != badThreadHandle) vekCloseHandle(handle);
}

unsigned int pmThread::ThreadStarter(void* task) {
  return static_cast<pmThread*>(task)->ThreadBody();
}

bool pmThread::LaunchThread() {
  handle = vek_beginthreadex(&pmThread::ThreadStarter, this);
  if (handle == badThreadHandle) {
    GetExitStatus().setStatus(errThreadCreate);
    return false;
  }
  return true;
}

bool pmThread::Start() { return LaunchThread(); }

bool pmThread::Kill() {
  bool ended = vekTerminateThread(handle, 2);
  vekCloseHandle(handle);
  handle = badThreadHandle;
  GetExitStatus().setKilled();
  return ended;
}

pmExitStatus& pmThread::GetExitStatus() { return threadStatus; }

void* GetTaskSelfHandle() { return vekGetCurrentThread(); }

pmInfoBridge::pmInfoBridge(bool firstFlag, bool secondFlag)
    : creatorThread(vekGetCurrentThread()),
      partner(badThreadHandle),
      firstFlag(firstFlag),
      secondFlag(secondFlag) {}

bool pmInfoBridge::Initialize(void* const& partnerThread) {
  partner = partnerThread;
  return mutex.Initialize();
}

bool pmInfoBridge::TurnOn() { return true; }

bool pmInfoBridge::Send(char*, int) { return true; }

bool pmInfoBridge::Receive(char*, int) { return true; }
