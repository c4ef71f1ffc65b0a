// tarnlet, inside: how a wait is prepared on Windows, where the objects behind
// events are of three kinds: waitable HANDLEs (thread end, semaphore, process
// end, a pipe's readiness event), sockets, which stay blocking and are watched
// with select, and nothing at all. Windows code only.
#ifndef TARNLET_WAITSET_H
#define TARNLET_WAITSET_H

#include <winsock2.h>
#include <windows.h>

#include <vector>

#include "vekevent.h"

// What each event of one wait blocks on, in the events' order.
class vekWaitSet {
 public:
  struct Entry {
    enum Kind { kNothing, kHandle, kSocket } kind = kNothing;
    HANDLE handle = nullptr;
    SOCKET socket = INVALID_SOCKET;
    bool forWrite = false;
  };

  explicit vekWaitSet(int count) : entries(static_cast<std::size_t>(count)) {}

  // The object of event `index` adds itself through WatchHandle or WatchSocket.
  void Prepare(int index, vekBaseEvent const& object) {
    current = static_cast<std::size_t>(index);
    object.PrepareWait(*this);
  }

  // The event being prepared is signalled when handle is signalled.
  void WatchHandle(HANDLE handle) {
    Entry& entry = entries[current];
    entry.kind = Entry::kHandle;
    entry.handle = handle;
  }

  // The event being prepared is signalled when socket is readable (or ended),
  // or writable when forWrite.
  void WatchSocket(SOCKET socket, bool forWrite) {
    Entry& entry = entries[current];
    entry.kind = Entry::kSocket;
    entry.socket = socket;
    entry.forWrite = forWrite;
  }

  std::vector<Entry> const& Entries() const { return entries; }

 private:
  std::vector<Entry> entries;
  std::size_t current = 0;
};

#endif
