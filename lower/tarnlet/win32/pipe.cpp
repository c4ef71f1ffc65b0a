// Pipes on Windows: each pipe is a named pipe of a name of its own, so that
// its read end can be overlapped and a wait can learn when it turns readable;
// peeking, reading, writing, closing, and the read event. Windows code only.
#include "vekpipe.h"  // first: the library's size of an fd_set

#include <atomic>
#include <cwchar>
#include <mutex>

#include "ombmem.h"
#include "waitset.h"

namespace {

// What a pipe holds before a writer blocks, as on Linux.
constexpr DWORD kPipeBuffer = 1u << 16;

HANDLE Native(void* handle) { return static_cast<HANDLE>(handle); }

// A name no other pipe of any process has: the process id, a count, and the
// moment, since a process id is reused once its process has ended.
void UniquePipeName(wchar_t (&name)[96]) {
  static std::atomic<unsigned long> count{0};
  LARGE_INTEGER now{};
  ::QueryPerformanceCounter(&now);
  std::swprintf(name, 96, L"\\\\.\\pipe\\quillon-%lu-%lu-%llx", ::GetCurrentProcessId(),
                count.fetch_add(1, std::memory_order_relaxed) + 1,
                static_cast<unsigned long long>(now.QuadPart));
}

// A manual-reset event for one overlapped operation, closed with the object.
class OverlappedCall {
 public:
  OverlappedCall() { call.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }
  ~OverlappedCall() {
    if (call.hEvent != nullptr) ::CloseHandle(call.hEvent);
  }
  OverlappedCall(OverlappedCall const&) = delete;
  OverlappedCall& operator=(OverlappedCall const&) = delete;

  // Reads on handle, whether it was opened overlapped or not, and waits for
  // the outcome. False with the error kept.
  bool Read(HANDLE handle, void* buffer, DWORD size, DWORD* got) {
    if (call.hEvent == nullptr) {
      vekKeepSystemError();
      return false;
    }
    if (!::ReadFile(handle, buffer, size, nullptr, &call) && ::GetLastError() != ERROR_IO_PENDING) {
      vekKeepSystemError();
      return false;
    }
    if (!::GetOverlappedResult(handle, &call, got, TRUE)) {
      vekKeepSystemError();
      return false;
    }
    return true;
  }

 private:
  OVERLAPPED call{};
};

}  // namespace

// The read end is the pipe's server end, overlapped; the write end a plain
// client end, as a child's standard output needs it. A child that gets the
// read end reads it with plain reads, which the system completes on an
// overlapped handle as long as the child alone reads it.
bool vekAnonymousPipe::Create(vekOutputPipe& out, vekInputPipe& in) {
  wchar_t name[96];
  UniquePipeName(name);
  HANDLE reader = ::CreateNamedPipeW(
      name, PIPE_ACCESS_INBOUND | FILE_FLAG_OVERLAPPED | FILE_FLAG_FIRST_PIPE_INSTANCE,
      PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS, 1, kPipeBuffer,
      kPipeBuffer, 0, nullptr);
  if (reader == INVALID_HANDLE_VALUE) {
    vekKeepSystemError();
    return false;
  }
  // FILE_READ_ATTRIBUTES lets PeekNamedPipe and the pipe's state be read from
  // the write end as well.
  HANDLE writer = ::CreateFileW(name, GENERIC_WRITE | FILE_READ_ATTRIBUTES, 0, nullptr, OPEN_EXISTING,
                                0, nullptr);
  if (writer == INVALID_HANDLE_VALUE) {
    vekKeepSystemError();
    ::CloseHandle(reader);
    return false;
  }
  static_cast<vekAnonymousPipe&>(in).handle = reader;
  static_cast<vekAnonymousPipe&>(out).handle = writer;
  return true;
}

bool vekPipePeek(void* handle, int* available) {
  DWORD count = 0;
  // Fails with ERROR_BROKEN_PIPE once the writer has gone and nothing is left.
  if (!::PeekNamedPipe(Native(handle), nullptr, 0, nullptr, &count, nullptr)) {
    vekKeepSystemError();
    return false;
  }
  *available = count > 0x7fffffffu ? 0x7fffffff : static_cast<int>(count);
  return true;
}

bool vekPipeRead(void* handle, void* buffer, unsigned size, unsigned* got) {
  DWORD done = 0;
  // A read of no bytes would wait for data on a pipe; it has nothing to wait for.
  if (size == 0) {
    *got = 0;
    return true;
  }
  OverlappedCall call;
  if (!call.Read(Native(handle), buffer, size, &done)) {
    // The writer has gone: the end of the pipe, not a failure.
    if (vekGetLastError() != ERROR_BROKEN_PIPE) return false;
    done = 0;
  }
  *got = done;
  return true;
}

bool vekPipeWrite(void* handle, void const* data, unsigned size, unsigned* written) {
  *written = 0;
  auto const* bytes = static_cast<char const*>(data);
  while (*written < size) {
    DWORD went = 0;
    if (!::WriteFile(Native(handle), bytes + *written, size - *written, &went, nullptr)) {
      // A pipe whose reader has gone answers "being closed"; to the caller
      // that is a broken pipe, as on every host.
      int const error = static_cast<int>(::GetLastError());
      vekSetLastError(error == ERROR_NO_DATA ? ERROR_BROKEN_PIPE : error);
      return false;
    }
    *written += went;
  }
  return true;
}

bool vekPipeClose(void* handle) {
  if (handle == VEK_INVALID_HANDLE || !::CloseHandle(Native(handle))) {
    vekSetLastError(handle == VEK_INVALID_HANDLE ? ERROR_INVALID_HANDLE : static_cast<int>(::GetLastError()));
    return false;
  }
  return true;
}

namespace {

// Readable while data waits, and once the writer has gone. A wait watches an
// event that a pending read of no bytes sets: such a read completes when the
// first byte arrives, or the writer goes, and takes nothing from the pipe.
// The reads run on a duplicate of the end of the object's own, so they can
// be cancelled whatever happens to the caller's handle. The end must be a
// read end of vekAnonymousPipe::Create (overlapped); on any other handle the
// object is never signalled.
class PipeReadable : public vekBaseEvent {
 public:
  explicit PipeReadable(void* handle) {
    HANDLE const self = ::GetCurrentProcess();
    if (handle == VEK_INVALID_HANDLE ||
        !::DuplicateHandle(self, Native(handle), self, &end, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
      end = nullptr;
      return;
    }
    probe.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  }

  ~PipeReadable() override {
    if (pending) {
      // The probe's OVERLAPPED must outlive the read that uses it.
      ::CancelIoEx(end, &probe);
      DWORD none = 0;
      ::GetOverlappedResult(end, &probe, &none, TRUE);
    }
    if (probe.hEvent != nullptr) ::CloseHandle(probe.hEvent);
    if (end != nullptr) ::CloseHandle(end);
  }

  void PrepareWait(vekWaitSet& wait) const override {
    if (end == nullptr || probe.hEvent == nullptr) return;
    std::lock_guard<std::mutex> hold(lock);
    // A probe that has completed said what was so then; a new one asks again.
    if (!pending || HasOverlappedIoCompleted(&probe)) Probe();
    wait.WatchHandle(probe.hEvent);
  }

 private:
  void Probe() const {
    ::ResetEvent(probe.hEvent);
    HANDLE const signal = probe.hEvent;
    probe = OVERLAPPED{};
    probe.hEvent = signal;
    static char none;
    pending = false;
    if (::ReadFile(end, &none, 0, nullptr, &probe)) return;  // data waits: the event is set
    if (::GetLastError() == ERROR_IO_PENDING) {
      pending = true;
    } else {
      // The writer has gone (or the end fails): a read answers at once.
      ::SetEvent(signal);
    }
  }

  HANDLE end = nullptr;
  mutable std::mutex lock;
  mutable OVERLAPPED probe{};
  mutable bool pending = false;
};

}  // namespace

vekPipeEvent::vekPipeEvent(void* handle) : vekEvent(new PipeReadable(handle)) {}
