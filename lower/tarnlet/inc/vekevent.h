/// \file
/// tarnlet: the event base.
///
/// Contract:
/// - An event is a vekEvent that owns one vekBaseEvent, the object behind it,
///   made with new by the subclass and released by ~vekEvent. The objects are
///   the library's own (vekMOEvent, vekPROCESSEvent, vekSelectEvent, the
///   object of vekPipeEvent); an event class of quillon or of a program makes
///   one of them.
/// - AllocEventKind() gives a kind number not given before in this process
///   (never 0, which GetKind() of the base itself returns). Each event class
///   takes one at load and answers it from GetKind; cast() compares kinds in
///   place of run-time type information.
/// - Wait(msec) blocks until the object is signalled or msec milliseconds
///   pass (-1: no limit, 0: a look); true when signalled. vekWaitForAny waits
///   on several and gives the index of one that is signalled (the first in
///   the array when several are), or -1 when the time passed, the arguments
///   are void (no events, a count below 1) or the wait itself failed (the
///   system error kept). An object with nothing to wait on (an event made for
///   a handle of the wrong kind, say) is never signalled. A wait that returns
///   an event as signalled has called OnWaitSatisfied on its object first. A
///   signal that arrives during a wait does not end it early.
/// - How a wait is prepared is private to each platform: PrepareWait adds what
///   a wait on the object blocks on to the platform's wait set (vekWaitSet,
///   which only the platform's code defines), and the platform folder defines
///   PrepareWait for each object class. No descriptor or HANDLE appears here.
/// - POSIX: every object is a descriptor, polled together in one poll():
///   thread end and semaphore units (eventfds), process end (pidfd), pipe
///   readable or ended, socket readable or writable. No limit but the
///   process's descriptors.
/// - Windows: a wait combines three means. Objects with a waitable HANDLE
///   (thread end, semaphore, process end, a pipe's readiness event) go to
///   WaitForMultipleObjects, which takes at most 64 (MAXIMUM_WAIT_OBJECTS): a
///   wait on more such events fails as errSysInvalidArgument. Sockets are
///   watched with select (or WSAPoll) and stay blocking: the wait never
///   switches a socket to non-blocking mode (as WSAEventSelect would), since
///   the library's reads and writes on it block. A wait that holds both
///   sockets and HANDLEs takes turns between the two in slices of at most
///   10 ms, so it sees either kind within a slice. An anonymous pipe cannot be
///   waited on: the library's pipes give their read end a readiness signal of
///   their own (an overlapped named pipe whose pending read sets an event).
#ifndef VEKEVENT_H
#define VEKEVENT_H

#include "vekplatform.h"

/// The wait being prepared: what each platform's wait gathers from the
/// objects (private to the platform folder).
class vekWaitSet;

/// The object behind an event: what a wait on it blocks on. Not copyable.
/// Several threads may wait on one object at once; it lives as long as the
/// vekEvent that owns it.
class TARNLET_API vekBaseEvent {
 public:
  vekBaseEvent() = default;  ///< An object with nothing of its own.
  ///@{
  /// Not copyable.
  vekBaseEvent(vekBaseEvent const&) = delete;
  vekBaseEvent& operator=(vekBaseEvent const&) = delete;
  ///@}
  virtual ~vekBaseEvent();  ///< Releases what the subclass holds.
  /// Adds what a wait on this object blocks on to wait; adds nothing when
  /// there is nothing to wait on. Defined by the platform's code.
  virtual void PrepareWait(vekWaitSet& wait) const = 0;
  /// Called by a wait that found the object signalled, on the waiting thread,
  /// so that the waiter sees what the signalling side did before it signalled.
  virtual void OnWaitSatisfied() const;
};

/// An event: a waitable object (a vekBaseEvent that it owns) with a kind
/// number in place of run-time type information. Not copyable. Wait may run
/// on several threads at once; making and deleting it belong to one.
class TARNLET_API vekEvent {
 protected:
  /// A subclass's hook for its event found signalled; the base returns true.
  /// No wait of the library calls it.
  virtual bool OnEventSignaled();
  /// A subclass's hook for its event reset; the base does nothing. No wait of
  /// the library calls it.
  virtual void OnReset();

 public:
  /// Takes baseEvent, made with new, and releases it in the destructor.
  explicit vekEvent(vekBaseEvent* baseEvent);
  ///@{
  /// Not copyable.
  vekEvent(vekEvent const&) = delete;
  vekEvent& operator=(vekEvent const&) = delete;
  ///@}
  virtual ~vekEvent();  ///< Deletes the object behind the event.
  /// The kind of the event's class, from AllocEventKind; 0 for the base.
  virtual int GetKind();
  /// What the event's class tells of it, or null (the base: null). Owned by
  /// the event.
  virtual void* GetInfo();

  /// Blocks until the object is signalled or msec milliseconds pass (-1: no
  /// limit, 0: a look). \return true when signalled.
  bool Wait(int msec);
  /// The object behind the event, owned by the event.
  vekBaseEvent* GetBaseEvent() const { return baseEvent; }

 protected:
  /// A kind number not given before in this process, never 0.
  static int AllocEventKind();

  vekBaseEvent* baseEvent;  ///< The object behind the event, owned.
};

/// Waits until one of count events is signalled or msec milliseconds pass
/// (-1: no limit). \return the index of a signalled event (the first when
/// several are); -1 when the time passed, the arguments are void or the wait
/// failed (the system error kept; errSysInvalidArgument on Windows beyond 64
/// waitable HANDLEs).
TARNLET_API int vekWaitForAny(vekEvent** events, int count, int msec);

#endif
