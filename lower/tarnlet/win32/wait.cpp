// Waiting on events: WaitForMultipleObjects over the events' HANDLEs, select
// over their sockets, taking turns when a wait holds both. Windows code only.
#include "vekevent.h"  // first: the library's size of an fd_set

#include <algorithm>
#include <chrono>
#include <vector>

#include "ombmem.h"
#include "prepareevents.h"
#include "waitset.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long one kind waits before the other gets its turn, in a wait that
// holds both HANDLEs and sockets.
constexpr DWORD kSlice = 10;

// The time a wait has, from a deadline fixed at its start.
class TimeLimit {
 public:
  explicit TimeLimit(int msec)
      : unlimited(msec < 0), deadline(Clock::now() + std::chrono::milliseconds(unlimited ? 0 : msec)) {}

  // INFINITE without a limit.
  DWORD Left() const {
    if (unlimited) return INFINITE;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<DWORD>(left) : 0;
  }

 private:
  bool unlimited;
  Clock::time_point deadline;
};

// The events of one wait, split by the means that watches them; each keeps
// its index among the events.
class SplitWait {
 public:
  // False, with the error kept, when the wait cannot be made.
  bool Split(std::vector<vekWaitSet::Entry> const& entries) {
    for (std::size_t i = 0; i < entries.size(); ++i) {
      vekWaitSet::Entry const& entry = entries[i];
      if (entry.kind == vekWaitSet::Entry::kHandle) {
        // WaitForMultipleObjects refuses a HANDLE twice; the first event wins.
        if (std::find(handles.begin(), handles.end(), entry.handle) != handles.end()) continue;
        handles.push_back(entry.handle);
        handleIndex.push_back(static_cast<int>(i));
      } else if (entry.kind == vekWaitSet::Entry::kSocket) {
        sockets.push_back(entry);
        socketIndex.push_back(static_cast<int>(i));
      }
    }
    if (handles.size() > MAXIMUM_WAIT_OBJECTS || sockets.size() > FD_SETSIZE) {
      vekSetLastError(ERROR_INVALID_PARAMETER);
      return false;
    }
    return true;
  }

  bool HasHandles() const { return !handles.empty(); }
  bool HasSockets() const { return !sockets.empty(); }

  // The index of the first ready socket, waiting at most msec; -1 when none
  // is ready, -2 when select failed (error kept).
  int FirstReadySocket(DWORD msec) {
    fd_set readable;
    fd_set writable;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    for (auto const& entry : sockets) FD_SET(entry.socket, entry.forWrite ? &writable : &readable);
    timeval limit{static_cast<long>(msec / 1000), static_cast<long>(msec % 1000) * 1000};
    int ready = ::select(0, &readable, &writable, nullptr, msec == INFINITE ? nullptr : &limit);
    if (ready == SOCKET_ERROR) {
      vekSetLastError(WSAGetLastError());
      return -2;
    }
    if (ready == 0) return -1;
    for (std::size_t i = 0; i < sockets.size(); ++i) {
      if (FD_ISSET(sockets[i].socket, sockets[i].forWrite ? &writable : &readable)) return socketIndex[i];
    }
    return -1;
  }

  // The index of the first signalled HANDLE among the events before `before`
  // (all with -1), waiting at most msec; -1 when none is, -2 when the wait
  // failed (error kept). A HANDLE found signalled is acquired, as
  // WaitForMultipleObjects acquires one: a semaphore's unit is taken.
  int FirstSignalledHandle(DWORD msec, int before) {
    DWORD count = 0;
    while (count < handles.size() && (before < 0 || handleIndex[count] < before)) ++count;
    if (count == 0) return -1;
    DWORD outcome = ::WaitForMultipleObjects(count, handles.data(), FALSE, msec);
    if (outcome < WAIT_OBJECT_0 + count) return handleIndex[outcome - WAIT_OBJECT_0];
    // An abandoned mutex is acquired as well; its event counts as signalled.
    if (outcome >= WAIT_ABANDONED_0 && outcome < WAIT_ABANDONED_0 + count) {
      return handleIndex[outcome - WAIT_ABANDONED_0];
    }
    if (outcome == WAIT_TIMEOUT) return -1;
    vekKeepSystemError();
    return -2;
  }

 private:
  std::vector<HANDLE> handles;
  std::vector<int> handleIndex;
  std::vector<vekWaitSet::Entry> sockets;
  std::vector<int> socketIndex;
};

// The index of a signalled event, -1 when the time passed, -2 on failure.
int WaitOnSplit(SplitWait& split, TimeLimit const& limit) {
  bool const mixed = split.HasHandles() && split.HasSockets();
  for (;;) {
    DWORD turn = mixed ? std::min(kSlice, limit.Left()) : limit.Left();
    int socket = split.HasSockets() ? split.FirstReadySocket(turn) : -1;
    if (socket == -2) return -2;
    // A ready socket ends the wait unless an event before it is signalled
    // too: that one only gets a look.
    int handle = split.FirstSignalledHandle(socket >= 0 ? 0 : turn, socket);
    if (handle != -1) return handle;
    if (socket >= 0) return socket;
    if (limit.Left() == 0) return -1;
  }
}

}  // namespace

int vekWaitForAny(vekEvent** events, int count, int msec) {
  if (events == nullptr || count <= 0) return -1;
  vekWaitSet wait(count);
  vekPrepareEvents(wait, events, count);
  SplitWait split;
  if (!split.Split(wait.Entries())) return -1;
  TimeLimit const limit(msec);
  if (!split.HasHandles() && !split.HasSockets()) {
    // Nothing can be signalled: the wait only lets the time pass.
    ::Sleep(limit.Left());
    return -1;
  }
  int signalled = WaitOnSplit(split, limit);
  if (signalled < 0) return -1;
  events[signalled]->GetBaseEvent()->OnWaitSatisfied();
  return signalled;
}
