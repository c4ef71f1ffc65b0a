// quillon sockets: connected stream sockets with exact and length-framed
// transfers, listening servers with their dispatch loop, and standard stream
// buffers over a socket.
//
// A framed message is a 4-byte big-endian signed count followed by that many
// payload bytes, nothing else; messages follow each other directly. Sockets
// stay blocking; time limits exist only through Select and SelectWait.
#ifndef PSOCK_H
#define PSOCK_H

#include <istream>

#include "dsdatcol.h"
#include "ombsock.h"
#include "quillonbase.h"
#include "veksbuf.h"
#include "vekservice.h"
#include "veksock.h"

// A connected stream socket.
class QUILLON_API psockStream {
 public:
  psockStream() = default;
  psockStream(psockStream const&) = delete;
  psockStream& operator=(psockStream const&) = delete;

  // One receive or send; oob asks for out-of-band data.
  virtual int Read(void* p, int n, bool oob) = 0;
  virtual int Write(void const* p, int n, bool oob) = 0;
  // True if the socket has an exceptional condition now (or the poll failed).
  virtual bool Exception() = 0;
  // SelectWait after replacing *tv with 10 microseconds; tv must not be null.
  virtual int Select(fd_set* read, fd_set* write, fd_set* except, timeval* tv) = 0;
  // Waits on this socket alone in each set that is not null; a null tv waits
  // without limit.
  virtual int SelectWait(fd_set* read, fd_set* write, fd_set* except, timeval* tv) = 0;
  virtual errstatus getErr() = 0;
  virtual unsigned long long getSock() = 0;
  // Closes the handle once; later calls do nothing.
  virtual void CloseSocket() = 0;
  virtual ~psockStream();

  // Nothing to set up or tear down on any platform; kept for callers.
  static void Initialize();
  static void Shutdown();

  // True when both ends of the connection have the same node name.
  bool IsOnTheSameMachine();
};

// The stream over one socket handle, which it owns.
class QUILLON_API psockStreamImpl : public psockStream {
 public:
  explicit psockStreamImpl(unsigned long long sock);
  ~psockStreamImpl() override;

  int Read(void* p, int n, bool oob) override;
  int Write(void const* p, int n, bool oob) override;
  bool Exception() override;
  int Select(fd_set* read, fd_set* write, fd_set* except, timeval* tv) override;
  int SelectWait(fd_set* read, fd_set* write, fd_set* except, timeval* tv) override;
  errstatus getErr() override;
  unsigned long long getSock() override;
  void CloseSocket() override;

 private:
  unsigned long long sock;  // vekInvalidSocket once closed
  errstatus err;            // 1 until a receive or send fails; never set back
};

// Exactly n bytes, no frame. Both stop at the stream's first failure, which
// they return; a stream that has failed before is not touched.
QUILLON_API errstatus Write(psockStream& s, char const* p, int n);
// On return n holds the count received.
QUILLON_API errstatus Read(psockStream& s, char* p, int& n);
// One framed message: the count, then the array's bytes.
QUILLON_API errstatus Write(psockStream& s, dsXArray<char>& a);
// One framed message, its payload appended to a. A receive that fails or
// meets the peer's close inside the message gives errFramedReceive, with the
// chunks that came kept in a.
QUILLON_API errstatus Read(psockStream& s, dsXArray<char>& a);
// One receive; -1 for a closed peer as for a failure, never 0.
QUILLON_API int ReadFromSocket(psockStream& s, void* p, int n);
QUILLON_API int WriteToSocket(psockStream& s, void const* p, int n);

// An event that fires when the stream's socket is readable or writable.
class QUILLON_API vekSocketEvent : public vekEvent {
 public:
  using Type = vekSelectEvent::Type;

  vekSocketEvent(psockStream* s, Type t);

  psockStream* GetSockStream() { return stream; }
  static vekSocketEvent* cast(vekEvent* e);

 private:
  int GetKind() override;
  void* GetInfo() override;

  static int kind;  // taken at load, srcquillon/foundation/frame.cpp
  psockStream* stream;
  Type type;
};

// A listening socket with a wait-and-dispatch loop on the caller's thread.
class QUILLON_API psockServer {
 public:
  enum SockWaitRC { SockWaitFailed = 0, SockWaitConnection = 1, SockWaitTimeout = 2 };

  psockServer();
  psockServer(psockServer const&) = delete;
  psockServer& operator=(psockServer const&) = delete;
  virtual ~psockServer();

  virtual void Run() = 0;
  // The handler: owns connection; true ends the loop.
  virtual bool Execute(psockStream* connection) = 0;
  // Called when a wait timed out; true ends the loop.
  virtual bool DoIdle();

  // Listens on port (SystemAssigned: a port the system picks) on every
  // address of the host. The listen backlog is 128, or VRN_FSERV_BACKLOG
  // (at least 5). A failure writes one "ERROR: " line to standard error.
  bool Initialize(int port);
  // The same on one address only: "127.0.0.1", "::1", or a host name, of
  // which the first address found is taken; clients that come by any other
  // address of the host are refused. A name that cannot be resolved fails as
  // a socket that cannot be made ("ERROR: OS could not create socket.").
  // Null is every address, as above.
  bool Initialize(int port, char const* address);
  // The port listened on, or -1 before a successful Initialize.
  int GetPort();
  // Accepts one connection (retrying until one comes) and hands it to Execute.
  bool AcceptAndExecute();
  // The dispatch loop, waiting msec milliseconds each turn (-1: no limit).
  void WaitAndProcess(int msec);

  // A connection to host:port, owned by the caller; null when it fails.
  static psockStream* Connect(char const* host, int port);

 protected:
  SockWaitRC Wait(int msec);

  unsigned long long sock;
};

// Waits without limit: every turn serves a connection.
class QUILLON_API psockBlockingServer : public psockServer {
 public:
  void Run() override;
};

// Serves the connections that are waiting, then returns.
class QUILLON_API psockNonBlockingServer : public psockServer {
 public:
  void Run() override;
  bool DoIdle() override;
  bool IsConnectionReceived();
};

// Serves until its service is stopped; pauses and the stop are looked at
// after each wait of msec milliseconds that saw no connection.
class QUILLON_API psockService : public psockServer {
 public:
  psockService(vekService& service, int msec);
  void Run() override;
  bool DoIdle() override;

 private:
  vekService* service;
  int waitMsec;
};

// Standard stream buffers over a connected stream, 4096 bytes each. They
// neither close nor delete the stream, which must outlive them; the writing
// ones send what is pending when they are destroyed.
class QUILLON_API ISockSBuf : public vekIStreamBuf {
 public:
  explicit ISockSBuf(psockStream& s);
  ~ISockSBuf() override;

 private:
  int Read(void* p, int n) override;
  psockStream& stream;
};

class QUILLON_API OSockSBuf : public vekOStreamBuf {
 public:
  explicit OSockSBuf(psockStream& s);
  ~OSockSBuf() override;

 private:
  int Write(void const* p, int n) override;
  psockStream& stream;
};

class QUILLON_API IOSockSBuf : public vekIOStreamBuf {
 public:
  explicit IOSockSBuf(psockStream& s);
  ~IOSockSBuf() override;

 private:
  int Read(void* p, int n) override;
  int Write(void const* p, int n) override;
  psockStream& stream;
};

// A std::iostream on a stream, with a buffer of its own that it deletes
// (sending what is pending); the stream stays open.
class QUILLON_API ioSockStream : public std::basic_iostream<char> {
 public:
  explicit ioSockStream(psockStream& s);
  ~ioSockStream() override;
};

#endif
