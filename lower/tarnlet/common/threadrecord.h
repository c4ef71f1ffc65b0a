// tarnlet, inside: the records behind thread and semaphore handles, as every
// platform keeps them.
//
// A thread or semaphore handle points to a reference-counted record. The
// handle, the running thread and every vekMOEvent on it each hold one
// reference; whoever drops the last one deletes the record. Threads are
// detached at launch, so an ended thread leaves nothing but its record: the
// exit code and the flag that says it has ended. Each platform derives the
// records with what its system needs (the thread, the waitable object of its
// end, the semaphore's own object); the counting, the locking and the
// bookkeeping are here.
#ifndef TARNLET_THREADRECORD_H
#define TARNLET_THREADRECORD_H

#include <atomic>
#include <cstdint>

#include "ombhandle.h"
#include "vekthread.h"

#if defined(__SANITIZE_THREAD__)
#include <sanitizer/tsan_interface.h>
#endif

namespace tarnlet {

// A thread cancelled inside a blocking call unwinds with ThreadSanitizer's
// interceptors and atomics switched off (google/sanitizers#646): it would
// miss the orderings of the record's atomics on that path. They are told to
// ThreadSanitizer directly as well; in other builds these do nothing.
#if defined(__SANITIZE_THREAD__)
constexpr bool sanitizingThreads = true;
inline void SanitizerRelease(void* address) { __tsan_release(address); }
inline void SanitizerAcquire(void* address) { __tsan_acquire(address); }
#else
constexpr bool sanitizingThreads = false;
inline void SanitizerRelease(void*) {}
inline void SanitizerAcquire(void*) {}
#endif

// A lock of one word (unlocked, locked, locked with sleepers) for the short
// steps that order a thread's end against its termination and the waitable
// object of its end.
class WordLock {
 public:
  void Lock() {
    std::uint32_t expected = unlocked;
    if (!word.compare_exchange_strong(expected, locked, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
      while (word.exchange(contended, std::memory_order_acquire) != unlocked) {
        vekWaitOnAddress(&word, contended, vekInfinite);
      }
    }
    SanitizerAcquire(this);
  }

  void Unlock() {
    SanitizerRelease(this);
    if (word.exchange(unlocked, std::memory_order_release) == contended) {
      vekWakeByAddressSingle(&word);
    }
  }

 private:
  enum : std::uint32_t { unlocked, locked, contended };
  std::atomic<std::uint32_t> word{unlocked};
};

enum class RecordKind : std::uint8_t { thread, semaphore };

struct Record {
  Record(RecordKind kind, int references) : kind(kind), references(references) {}

  RecordKind const kind;
  std::atomic<int> references;
};

// What a thread record holds on every platform. Kept small: a strict or
// managed task keeps its handle, and so this record, until the process ends.
struct ThreadRecordBase : Record {
  // One reference for the handle, one for the running thread.
  ThreadRecordBase(unsigned int (*start)(void*), int (*func)(void*), void (*done)(void*, bool),
                   void* argument)
      : Record(RecordKind::thread, 2), start(start), func(func), done(done), argument(argument) {}

  std::uint32_t Call() {
    return start != nullptr ? start(argument) : static_cast<std::uint32_t>(func(argument));
  }

  unsigned int (*const start)(void*);  // one of start and func is set
  int (*const func)(void*);
  void (*const done)(void*, bool);
  void* const argument;
  std::atomic<std::uint32_t> exitCode{0};
  std::atomic<std::uint32_t> terminateCode{0};
  std::atomic<bool> ended{false};  // set once, under `guard`
  WordLock guard;
  int endUsers = 0;  // under `guard`: events and waits that wait on the end's object
  ThreadRecordBase* livePrevious = nullptr;  // in the list of live records
  ThreadRecordBase* liveNext = nullptr;
};

// Every thread record that is still alive. A task may keep its handle until
// the process ends; the list keeps such records held by the library, not
// lost (as a leak checker would otherwise report them).
class LiveThreadRecords {
 public:
  void Add(ThreadRecordBase* record) {
    guard.Lock();
    record->liveNext = first;
    if (first != nullptr) first->livePrevious = record;
    first = record;
    guard.Unlock();
  }

  void Remove(ThreadRecordBase* record) {
    guard.Lock();
    if (record->livePrevious != nullptr) {
      record->livePrevious->liveNext = record->liveNext;
    } else {
      first = record->liveNext;
    }
    if (record->liveNext != nullptr) record->liveNext->livePrevious = record->livePrevious;
    guard.Unlock();
  }

 private:
  WordLock guard;
  ThreadRecordBase* first = nullptr;
};

// True once the thread has ended; the caller then sees all the thread did.
inline bool ObserveEnd(ThreadRecordBase* thread) {
  bool ended = thread->ended.load(std::memory_order_acquire);
  if (ended) SanitizerAcquire(thread);
  return ended;
}

// The free units of a semaphore as the library counts them. The system's
// own count is never above it: a release raises this one first, a wait
// lowers it last, so the system's object never passes the maximum.
class SemaphoreUnits {
 public:
  SemaphoreUnits(std::int32_t initial, std::int32_t maximum) : count(initial), maximum(maximum) {}

  // The arguments that uCreateSemaphore accepts.
  static bool Valid(void* attributes, std::int32_t initial, std::int32_t maximum,
                    char const* name) {
    return attributes == nullptr && name == nullptr && maximum >= 1 && initial >= 0 &&
           initial <= maximum;
  }

  // Adds `units` (at least 1) unless that would pass the maximum; false then.
  bool Raise(std::int32_t units, std::int32_t* previous) {
    std::int32_t now = count.load(std::memory_order_relaxed);
    do {
      if (units > maximum - now) return false;
    } while (!count.compare_exchange_weak(now, now + units, std::memory_order_relaxed));
    if (previous != nullptr) *previous = now;
    return true;
  }

  // After a wait took one unit from the system's object.
  void Lower() { count.fetch_sub(1, std::memory_order_relaxed); }


 private:
  std::atomic<std::int32_t> count;
  std::int32_t const maximum;
};

struct SemaphoreRecordBase : Record {
  SemaphoreRecordBase(std::int32_t initial, std::int32_t maximum)
      : Record(RecordKind::semaphore, 1), units(initial, maximum) {}

  SemaphoreUnits units;
};

// Drops one reference; true for the last one, which then owns the record.
inline bool DropReference(Record* record) {
  SanitizerRelease(record);
  if (record->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  SanitizerAcquire(record);
  return true;
}

inline void* const currentThreadPseudoHandle = reinterpret_cast<void*>(~std::uintptr_t{0} - 1);

inline bool IsHandle(void* handle) {
  return handle != nullptr && handle != VEK_INVALID_HANDLE && handle != currentThreadPseudoHandle;
}

// Handles are Record pointers, converted to void* and back as such.
inline void* HandleOf(Record* record) { return record; }

inline Record* RecordOf(void* handle, RecordKind kind) {
  if (!IsHandle(handle)) return nullptr;
  auto* record = static_cast<Record*>(handle);
  return record->kind == kind ? record : nullptr;
}

inline ThreadRecordBase* ThreadOf(void* handle) {
  return static_cast<ThreadRecordBase*>(RecordOf(handle, RecordKind::thread));
}

inline SemaphoreRecordBase* SemaphoreOf(void* handle) {
  return static_cast<SemaphoreRecordBase*>(RecordOf(handle, RecordKind::semaphore));
}

// The failures the shared operations report, each as the platform's code.
enum class Failure { badHandle, invalidArgument, tooManyPosts };

// What each platform's thread.cpp gives the shared operations
// (threadhandles.cpp):
// Starts a detached thread that calls start or func (the other is null);
// its record, or null (error kept) when no thread could be made.
ThreadRecordBase* LaunchThread(unsigned int (*start)(void*), int (*func)(void*),
                               void (*done)(void*, bool), void* argument);
// Drops one reference; the last one deletes the record.
void Release(Record* record);
// Makes the waitable object of the thread's end, or shares the one there,
// for one more user; false (error kept) when the system had none to give.
bool AcquireEnd(ThreadRecordBase* thread);
// The last user closes the object.
void ReleaseEnd(ThreadRecordBase* thread);
// Records the platform's code for the failure.
void Fail(Failure failure);
// Waits until the thread has ended, msec milliseconds at most (-1: no
// limit): vekWaitObject0, vekWaitTimeout or vekWaitFailed (error kept).
std::uint32_t WaitForEnd(ThreadRecordBase* thread, int msec);
// A semaphore of the system that holds `initial` units of 0..maximum; its
// record, or null (error kept).
SemaphoreRecordBase* MakeSemaphore(std::int32_t initial, std::int32_t maximum);
// Gives the system's semaphore `count` more units, which units has already
// counted; false (error kept) when the system refused.
bool PostUnits(SemaphoreRecordBase* semaphore, std::int32_t count);
// Takes one unit within msec milliseconds and lowers units: the results of
// WaitForEnd.
std::uint32_t TakeUnit(SemaphoreRecordBase* semaphore, int msec);

}  // namespace tarnlet

#endif
