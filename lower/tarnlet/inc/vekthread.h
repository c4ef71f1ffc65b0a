/// \file
/// tarnlet: parking on a word, thread identity, counting semaphores, threads
/// with a waitable handle, and the event that waits on such a handle.
///
/// Contract ("fails with errSysX": errMapError() then gives that status):
/// - vekWaitOnAddress(word, expected, msec) parks the calling thread while
///   *word holds `expected`. It returns true at once when the word holds
///   another value, and otherwise when a wake reaches it or spuriously; false
///   once msec milliseconds have passed (-1: no limit). Callers re-check their
///   condition after every return. vekWakeByAddressSingle(word) wakes at most
///   one thread parked on the word; a wake reaches only threads parked at
///   that moment, so a waker changes the word before it wakes. Words are
///   matched by address within one process. The wait is not a cancellation
///   point. Both have C linkage (the Windows calls WaitOnAddress and
///   WakeByAddressSingle keep the same contract).
/// - vekSingleThreaded points to a byte that is not zero while the process
///   has had one thread only. It turns zero for good before a second thread
///   starts, so that one thread may read it without ordering: while it reads
///   non-zero, no other thread can reach shared data, and plain loads and
///   stores may stand in for atomic read-modify-write steps. It is always
///   zero where the system does not keep such a flag.
/// - vekGetCurrentThread() is a pseudo-handle that stands for the calling
///   thread: the same constant in every thread, meaningful only to its caller.
///   vekGetCurrentThreadId() is the calling thread's id as the system knows it
///   (the kernel thread id on Linux); no two live threads share one.
/// - uCreateSemaphore(attributes, initial, maximum, name) makes a counting
///   semaphore that holds 0..maximum units and starts with `initial`.
///   Attributes and name must be null. It fails (null) with
///   errSysInvalidArgument when they are not or when maximum < 1, initial < 0
///   or initial > maximum.
///   vekReleaseSemaphore gives back `count` units and fails, changing nothing,
///   when that would pass the maximum (errSysOther: the system's "too many
///   posts"), for a count below 1 (errSysInvalidArgument) or a handle that is
///   no semaphore (errSysBadHandle). vekWaitForSingleObject(handle, msec)
///   takes one unit of a semaphore, or waits until a thread handle is
///   signalled (that takes nothing: an ended thread stays signalled); it
///   gives vekWaitObject0, vekWaitTimeout once msec passed, or vekWaitFailed
///   (errSysBadHandle for a handle of neither kind, the pseudo-handle
///   included).
/// - vek_beginthreadex(start, argument) runs start(argument) on a new thread
///   at once, with the default stack, and returns the thread's handle, or null
///   (last error recorded) when no thread could be made. The handle becomes
///   signalled when start returns; start's result is the thread's exit code.
///   The system's resources of a thread go when it ends, whether its handle
///   is open or not: an open handle of an ended thread is a small record that
///   holds the exit code, nothing more.
/// - vekTerminateThread(handle, code) asks the thread to end at its next
///   cancellation point (a wait, a sleep, a blocking read or write): the
///   thread does not stop at once, and nothing it is doing is cleaned up
///   beyond the destructors run by the unwinding (so a cancellation point
///   reached inside a noexcept function ends the process). Its exit code is
///   then `code`. It fails with errSysBadHandle on a handle that is not a
///   thread handle, and succeeds, changing nothing, on a thread that has
///   already ended. (Windows has no cancellation points: there it is the
///   system's TerminateThread, which runs no destructor.)
/// - vekCloseHandle releases a thread or semaphore handle (false with
///   errSysBadHandle for anything else). The thread itself goes on; its
///   resources go once it has ended and nothing refers to it.
/// - StrictThread_Launch(func, argument, done) is vek_beginthreadex for an int
///   function, returning all ones (VEK_INVALID_HANDLE) on failure. When done is not null it is
///   called on the new thread once func has ended, before the handle becomes
///   signalled, with the argument and true (false when the thread was ended by
///   vekTerminateThread). StrictThread_GetExitCode gives func's result once
///   the thread has ended and otherwise returns false, leaving *code alone.
///   StrictThread_Free releases the handle, like vekCloseHandle.
/// - vekMOEvent(handle, type) waits on a thread handle (moThread) or a
///   semaphore handle (moSemaphore); it holds its own reference, so the handle
///   may be released before the event. A wait that sees the thread ended also
///   sees everything the thread did before it ended. Waiting on a semaphore
///   takes no unit. A handle of another type gives an event that never fires,
///   and so does a thread event for which the system had no waitable object
///   left (no descriptor free); a thread event holds that object while it
///   lives, and a wait on the handle itself only while it waits.
#ifndef VEKTHREAD_H
#define VEKTHREAD_H

#include "vekplatform.h"
#include "vekevent.h"

#include <atomic>
#include <cstdint>

extern "C" {
/// Parks the calling thread while *word holds expected. \return true at
/// once when it holds another value, else when woken (or spuriously); false
/// once msec milliseconds have passed (-1: no limit). Callers re-check.
TARNLET_API bool vekWaitOnAddress(std::atomic<std::uint32_t>* word, std::uint32_t expected,
                                  int msec);
/// Wakes at most one thread parked on word at this moment.
TARNLET_API void vekWakeByAddressSingle(std::atomic<std::uint32_t>* word);
}

/// A byte that is not zero while the process has had one thread only; it
/// turns zero for good before a second thread starts.
extern TARNLET_API char const* const vekSingleThreaded;

/// A pseudo-handle for the calling thread: the same constant in every
/// thread, not to be released.
TARNLET_API void* vekGetCurrentThread();
/// The calling thread's id as the system knows it; no two live threads share
/// one.
TARNLET_API std::uint32_t vekGetCurrentThreadId();

/// Results of vekWaitForSingleObject, with the values they have on Windows.
enum : std::uint32_t {
  vekWaitObject0 = 0,          ///< the object was signalled (a unit taken)
  vekWaitTimeout = 258,        ///< the time passed
  vekWaitFailed = 0xFFFFFFFFu  ///< the wait failed, the system error kept
};
/// A wait without a time limit.
constexpr int vekInfinite = -1;

/// Makes a counting semaphore of 0..maximumCount units that starts with
/// initialCount; attributes and name must be null. \return its handle,
/// owned by the caller and released with vekCloseHandle; null with
/// errSysInvalidArgument for arguments out of bounds.
TARNLET_API void* uCreateSemaphore(void* attributes, std::int32_t initialCount,
                                   std::int32_t maximumCount, char const* name);
/// Gives back count units. \return false, changing nothing, past the
/// maximum (errSysOther), for a count below 1 (errSysInvalidArgument) or for
/// no semaphore (errSysBadHandle).
TARNLET_API bool vekReleaseSemaphore(void* semaphore, std::int32_t count,
                                     std::int32_t* previousCount);
/// Takes one unit of a semaphore, or waits for a thread handle to be
/// signalled. \return vekWaitObject0, vekWaitTimeout once msec passed, or
/// vekWaitFailed (errSysBadHandle for a handle of neither kind).
TARNLET_API std::uint32_t vekWaitForSingleObject(void* handle, int msec);

/// Runs start(argument) on a new thread. \return the thread's handle, owned
/// by the caller and released with vekCloseHandle; null, the last error
/// recorded, when no thread could be made.
TARNLET_API void* vek_beginthreadex(unsigned int (*start)(void*), void* argument);
/// Asks the thread to end at its next cancellation point with exitCode.
/// \return false with errSysBadHandle for no thread handle; true, changing
/// nothing, for a thread already ended.
TARNLET_API bool vekTerminateThread(void* thread, std::uint32_t exitCode);
/// Releases a thread or semaphore handle; a thread goes on. \return false
/// with errSysBadHandle for anything else.
TARNLET_API bool vekCloseHandle(void* handle);

/// vek_beginthreadex for an int function; done, when not null, runs on the
/// new thread once func has ended. \return the handle, released with
/// StrictThread_Free; VEK_INVALID_HANDLE on failure.
TARNLET_API void* StrictThread_Launch(int (*func)(void*), void* argument,
                                      void (*done)(void*, bool));
/// True with func's result in *code once the thread has ended; false
/// otherwise, *code left alone.
TARNLET_API bool StrictThread_GetExitCode(void* thread, int* code);
/// Releases the handle, like vekCloseHandle.
TARNLET_API void StrictThread_Free(void* thread);

/// The object behind an event that waits on a thread or semaphore handle.
/// It holds its own reference, so the handle may be released before it.
/// Waits may run on any thread.
class TARNLET_API vekMOEvent : public vekBaseEvent {
 public:
  /// The kind of handle waited on.
  enum Type : int {
    moSemaphore = 1,  ///< a semaphore: signalled while it has a unit (none taken)
    moThread = 2      ///< a thread: signalled once it has ended
  };

  /// An object on handle; one that never fires for a handle of another type.
  vekMOEvent(void* handle, Type type);
  ~vekMOEvent() override;  ///< Drops its reference on the handle's record.
  /// Adds the handle's waitable object to wait; nothing when it has none.
  void PrepareWait(vekWaitSet& wait) const override;
  /// Makes what the ended thread did visible to the waiter.
  void OnWaitSatisfied() const override;

 private:
  void* record;  // a reference of our own on the handle's record, or null
};

#endif
