// A service's pause, continue and stop, over the stop event of the platform.
#include "vekservice.h"

vekService::vekService() : stopEvent(MakeStopEvent()) {}

vekService::~vekService() { FreeStopEvent(stopEvent); }

void vekService::Stop() {
  SignalStopEvent(stopEvent);
  std::lock_guard<std::mutex> guard(lock);
  stopped = true;
  resumed.notify_all();
}

void vekService::Pause() {
  std::lock_guard<std::mutex> guard(lock);
  paused = true;
}

void vekService::Continue() {
  std::lock_guard<std::mutex> guard(lock);
  paused = false;
  resumed.notify_all();
}

bool vekService::IsPaused() {
  std::lock_guard<std::mutex> guard(lock);
  return paused;
}

void vekService::DoPause() {
  std::unique_lock<std::mutex> guard(lock);
  resumed.wait(guard, [this] { return !paused || stopped; });
}
