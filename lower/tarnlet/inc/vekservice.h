/// \file
/// tarnlet: a service that callers can pause, continue and stop.
///
/// Contract:
/// - vekServiceBase::IsEventSignaled(handle): true when the event behind
///   handle is signalled; it does not wait and does not reset the event.
/// - vekService owns a stop event, made by the default constructor and
///   released by the destructor. Once signalled it stays signalled.
///   Stop() signals it. GetStopEvent() gives its handle (an eventfd on POSIX,
///   a manual-reset event on Windows), for IsEventSignaled.
///   A system that cannot give one more event (no descriptor left) ends the
///   process in the constructor through vekAbort, as vekAlloc does when
///   memory runs out.
/// - Pause() and Continue() set and clear the paused state. DoPause() returns
///   at once unless the service is paused; while it is paused, DoPause blocks
///   until Continue() or Stop() is called. Stop() thus also ends a pause, so a
///   paused service can be stopped.
/// - Stop, Pause, Continue and the queries may be called from any thread,
///   while another thread runs the service and calls DoPause.
#ifndef VEKSERVICE_H
#define VEKSERVICE_H

#include <condition_variable>
#include <mutex>

#include "vekplatform.h"

/// The query that vekService's stop event answers. Any thread.
class TARNLET_API vekServiceBase {
 public:
  /// True when the event behind handle is signalled; does not wait and does
  /// not reset it.
  static bool IsEventSignaled(void* handle);
};

/// A service that callers can pause, continue and stop. Stop, Pause,
/// Continue and the queries may be called from any thread while another
/// thread runs the service and calls DoPause.
class TARNLET_API vekService : public vekServiceBase {
 public:
  /// Makes the stop event; ends the process through vekAbort when the system
  /// cannot give one.
  vekService();
  ~vekService();  ///< Releases the stop event.
  ///@{
  /// Not copyable.
  vekService(vekService const&) = delete;
  vekService& operator=(vekService const&) = delete;
  ///@}

  void Stop();  ///< Signals the stop event for good, and ends a pause.
  void Pause();  ///< Sets the paused state.
  void Continue();  ///< Clears the paused state, releasing DoPause.
  bool IsPaused();  ///< True while the service is paused.
  /// Blocks while the service is paused.
  void DoPause();

  /// The stop event's handle, owned by the service: an eventfd on POSIX, a
  /// manual-reset event on Windows.
  void* GetStopEvent() const { return stopEvent; }
  bool IsStopSignaled() { return IsEventSignaled(stopEvent); }  ///< True once Stop ran.

 private:
  // The stop event as the platform makes, signals and releases it.
  static void* MakeStopEvent();
  static void SignalStopEvent(void* event);
  static void FreeStopEvent(void* event);

  void* stopEvent;
  std::mutex lock;
  std::condition_variable resumed;
  bool paused = false;
  bool stopped = false;
};

#endif
