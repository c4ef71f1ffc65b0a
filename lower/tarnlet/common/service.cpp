#include "vekservice.h"

#include "stopevent.h"

vekService::vekService() : stopEvent(vekMakeStopEvent()) {}

vekService::~vekService() { vekFreeStopEvent(stopEvent); }

void vekService::Stop() {
  vekSignalStopEvent(stopEvent);
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
