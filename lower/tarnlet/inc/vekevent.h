// tarnlet: the event base.
//
// Contract:
// - An event is a vekEvent that owns one vekBaseEvent, the object behind it,
//   made with new by the subclass and released by ~vekEvent.
// - AllocEventKind() gives a kind number not given before in this process
//   (never 0, which GetKind() of the base itself returns). Each event class
//   takes one at load and answers it from GetKind; cast() compares kinds in
//   place of run-time type information.
// - The object behind an event names what a wait blocks on: a pollable fd on
//   POSIX, a waitable HANDLE on Windows, with the direction (readable, or
//   writable for a socket). Wait(msec) blocks until that object is signalled
//   or msec milliseconds pass (-1: no limit); true when signalled.
//   vekWaitForAny waits on several and gives the index of one that is
//   signalled, or -1 when the time passed or an event has nothing to wait on.
//   A wait that returns an event as signalled has called OnWaitSatisfied on
//   its object first.
#ifndef VEKEVENT_H
#define VEKEVENT_H

#include "vekplatform.h"

#include <cstdint>

// What a wait blocks on. `handle` is an fd on POSIX and a HANDLE on Windows;
// -1 stands for nothing to wait on (never signalled).
struct vekWaitObject {
  std::intptr_t handle;
  bool forWrite;
};

class TARNLET_API vekBaseEvent {
 public:
  vekBaseEvent() = default;
  vekBaseEvent(vekBaseEvent const&) = delete;
  vekBaseEvent& operator=(vekBaseEvent const&) = delete;
  virtual ~vekBaseEvent();
  virtual vekWaitObject GetWaitObject() const = 0;
  // Called by a wait that found the object signalled, on the waiting thread,
  // so that the waiter sees what the signalling side did before it signalled.
  virtual void OnWaitSatisfied() const;
};

class TARNLET_API vekEvent {
 protected:
  virtual bool OnEventSignaled();
  virtual void OnReset();

 public:
  explicit vekEvent(vekBaseEvent* baseEvent);
  vekEvent(vekEvent const&) = delete;
  vekEvent& operator=(vekEvent const&) = delete;
  virtual ~vekEvent();
  virtual int GetKind();
  virtual void* GetInfo();

  bool Wait(int msec);
  vekBaseEvent* GetBaseEvent() const { return baseEvent; }

 protected:
  static int AllocEventKind();

  vekBaseEvent* baseEvent;
};

TARNLET_API int vekWaitForAny(vekEvent** events, int count, int msec);

#endif
