/// \file
/// quillon sockets: connected stream sockets with exact and length-framed
/// transfers, listening servers with their dispatch loop, and standard stream
/// buffers over a socket.
///
/// A framed message is a 4-byte big-endian signed count followed by that many
/// payload bytes, nothing else; messages follow each other directly. Sockets
/// stay blocking; time limits exist only through Select and SelectWait. No
/// send raises SIGPIPE, and no socket is inherited by a child process.
///
/// A socket stream keeps the first failure of a receive or send in its state
/// (getErr), and the transfers below stop at it. Every object here (stream,
/// event, server, buffer) is for one thread at a time; a server's loop and
/// its handler run on the thread that called Run.
#ifndef PSOCK_H
#define PSOCK_H

#include <istream>

#include "dsdatcol.h"
#include "ombsock.h"
#include "quillonbase.h"
#include "veksbuf.h"
#include "vekservice.h"
#include "veksock.h"

/// A connected stream socket. One thread at a time.
class QUILLON_API psockStream {
 public:
  psockStream() = default;
  ///@{
  /// Not copyable: the stream stands for one connection.
  psockStream(psockStream const&) = delete;
  psockStream& operator=(psockStream const&) = delete;
  ///@}

  /// One receive of up to n bytes into p; oob asks for out-of-band data.
  /// \return the count received, 1 or more; -1 when the receive failed or
  ///         the peer has closed (getErr then says which: errSysPeerClosed
  ///         for a closed peer), never 0.
  virtual int Read(void* p, int n, bool oob) = 0;
  /// One send of up to n bytes from p; oob sends out-of-band data.
  /// \return the count sent, or -1 when the send failed (kept in getErr).
  virtual int Write(void const* p, int n, bool oob) = 0;
  /// True if the socket has an exceptional condition now (or the poll failed).
  virtual bool Exception() = 0;
  /// SelectWait after replacing *tv with 10 microseconds; tv must not be null.
  virtual int Select(fd_set* read, fd_set* write, fd_set* except, timeval* tv) = 0;
  /// Waits on this socket alone in each set that is not null; a null tv waits
  /// without limit. The sets are cleared and hold only this socket.
  /// \return 1 or more when the socket is ready in a set (and stays in it),
  ///         0 when the time passed, -1 when the wait failed.
  virtual int SelectWait(fd_set* read, fd_set* write, fd_set* except, timeval* tv) = 0;
  /// The stream's state: errOK until a receive or send fails, then the
  /// mapped status of that failure, for good.
  virtual errstatus getErr() = 0;
  /// The socket handle; the stream keeps it.
  virtual unsigned long long getSock() = 0;
  /// Closes the handle once; later calls do nothing.
  virtual void CloseSocket() = 0;
  virtual ~psockStream();

  ///@{
  /// Nothing to set up or tear down on any platform; kept for callers.
  static void Initialize();
  static void Shutdown();
  ///@}

  /// True when both ends of the connection have the same node name; false
  /// also when a name cannot be had.
  bool IsOnTheSameMachine();
};

/// The stream over one socket handle, which it owns. One thread at a time.
class QUILLON_API psockStreamImpl : public psockStream {
 public:
  /// Takes sock over; the stream's state is errOK.
  explicit psockStreamImpl(unsigned long long sock);
  ~psockStreamImpl() override;  ///< Closes the handle unless CloseSocket did.

  int Read(void* p, int n, bool oob) override;
  int Write(void const* p, int n, bool oob) override;
  /// Beyond the interface: one send of head followed by body, as if they
  /// were one buffer (gathered, so they need not be copied together), with
  /// the result and the failure handling of Write. The framed write sends a
  /// message's count and payload through it.
  int WriteGathered(void const* head, int headLength, void const* body, int bodyLength);
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

/// \name Exact and framed transfers
/// Each stops at the stream's first failure, which it returns (the mapped
/// status that getErr keeps: errSysPeerClosed, errSysConnReset, ...); a
/// stream that has failed before is not touched. errOK otherwise.
///@{

/// Sends exactly n bytes, no frame.
QUILLON_API errstatus Write(psockStream& s, char const* p, int n);
/// Receives exactly n bytes, no frame; on return n holds the count received.
QUILLON_API errstatus Read(psockStream& s, char* p, int& n);
/// One framed message: the count, then the array's bytes.
QUILLON_API errstatus Write(psockStream& s, dsXArray<char>& a);
/// One framed message, its payload appended to a. A receive that fails or
/// meets the peer's close inside the message gives errFramedReceive, with the
/// chunks that came kept in a. A negative count reads as an empty payload.
/// The array grows with what arrives, never ahead of it by the count alone.
QUILLON_API errstatus Read(psockStream& s, dsXArray<char>& a);
///@}
/// One receive; -1 for a closed peer as for a failure, never 0.
QUILLON_API int ReadFromSocket(psockStream& s, void* p, int n);
/// One send: the count sent, or -1.
QUILLON_API int WriteToSocket(psockStream& s, void const* p, int n);

/// An event that fires when the stream's socket is readable or writable.
/// One thread at a time.
class QUILLON_API vekSocketEvent : public vekEvent {
 public:
  using Type = vekSelectEvent::Type;  ///< Readable or writable.

  /// An event on s's socket for t; s is not owned and must outlive the
  /// event.
  vekSocketEvent(psockStream* s, Type t);

  psockStream* GetSockStream() { return stream; }  ///< The stream, still the caller's.
  /// e as a vekSocketEvent, or null if it is of another class.
  static vekSocketEvent* cast(vekEvent* e);

 private:
  int GetKind() override;
  void* GetInfo() override;

  static int kind;  // taken at load, srcquillon/foundation/frame.cpp
  psockStream* stream;
  Type type;
};

/// A listening socket with a wait-and-dispatch loop on the caller's thread.
class QUILLON_API psockServer {
 public:
  /// What a wait saw.
  enum SockWaitRC {
    SockWaitFailed = 0,      ///< The wait failed.
    SockWaitConnection = 1,  ///< A connection is waiting.
    SockWaitTimeout = 2      ///< The time passed.
  };

  psockServer();  ///< No socket yet.
  ///@{
  /// Not copyable: the server owns its listening socket.
  psockServer(psockServer const&) = delete;
  psockServer& operator=(psockServer const&) = delete;
  ///@}
  virtual ~psockServer();  ///< Closes the listening socket.

  /// The server's loop, as each subclass has it.
  virtual void Run() = 0;
  /// The handler: owns connection (deletes it when done); true ends the loop.
  virtual bool Execute(psockStream* connection) = 0;
  /// Called when a wait timed out; true ends the loop. Here: false.
  virtual bool DoIdle();

  /// Listens on port (SystemAssigned: a port the system picks) on every
  /// address of the host. The listen backlog is 128, or VRN_FSERV_BACKLOG
  /// (at least 5; a line "RTF: Backlog set to N" goes to standard output
  /// then). A server initialised again gives up the socket it listened on.
  /// \return true when listening; false after one "ERROR: " line on standard
  ///         error that says which step failed.
  bool Initialize(int port);
  /// The same on one address only: "127.0.0.1", "::1", or a host name, of
  /// which the first address found is taken; clients that come by any other
  /// address of the host are refused. A name that cannot be resolved fails as
  /// a socket that cannot be made ("ERROR: OS could not create socket.").
  /// Null is every address, as above.
  bool Initialize(int port, char const* address);
  /// The port listened on, or -1 before a successful Initialize.
  int GetPort();
  /// Accepts one connection (retrying until one comes, with a line on
  /// standard output for each failed try) and hands it to Execute as a new
  /// psockStreamImpl. \return what Execute returns.
  bool AcceptAndExecute();
  /// The dispatch loop, waiting msec milliseconds each turn (-1: no limit):
  /// a connection goes to AcceptAndExecute, a wait that timed out to DoIdle;
  /// it returns when either says true, or when a wait fails.
  void WaitAndProcess(int msec);

  /// A connection to host:port, the first address of host: a heap object
  /// the caller deletes; null when it fails (errMapError() says why:
  /// errSysConnRefused, errSysNameNotResolved, ...).
  static psockStream* Connect(char const* host, int port);

 protected:
  /// Waits up to msec milliseconds (-1: no limit) for a connection. A failed
  /// wait writes a few lines of diagnostics to standard output and standard
  /// error.
  SockWaitRC Wait(int msec);

  unsigned long long sock;  ///< The listening socket; vekInvalidSocket while there is none.
};

/// Waits without limit: every turn serves a connection. One thread at a time.
class QUILLON_API psockBlockingServer : public psockServer {
 public:
  /// WaitAndProcess(-1): until Execute says true or a wait fails.
  void Run() override;
};

/// Serves the connections that are waiting, then returns. One thread at a time.
class QUILLON_API psockNonBlockingServer : public psockServer {
 public:
  /// WaitAndProcess(0): until nothing is waiting.
  void Run() override;
  /// True: a turn without a connection ends the loop.
  bool DoIdle() override;
  /// Whether a connection is waiting now, without waiting for one.
  bool IsConnectionReceived();
};

/// Serves until its service is stopped; pauses and the stop are looked at
/// after each wait of msec milliseconds that saw no connection.
/// One thread at a time; the service itself may be stopped from any thread.
class QUILLON_API psockService : public psockServer {
 public:
  /// A server run by service, which is not owned and must outlive it.
  psockService(vekService& service, int msec);
  /// WaitAndProcess(msec).
  void Run() override;
  /// Waits out a pause of the service. \return true once it is stopped.
  bool DoIdle() override;

 private:
  vekService* service;
  int waitMsec;
};

/// A standard stream buffer reading a connected stream, 4096 bytes. It
/// neither closes nor deletes the stream, which must outlive it; input
/// received and not taken goes with the buffer. One thread at a time.
class QUILLON_API ISockSBuf : public vekIStreamBuf {
 public:
  explicit ISockSBuf(psockStream& s);  ///< A buffer on s; nothing is received yet.
  ~ISockSBuf() override;

 private:
  int Read(void* p, int n) override;
  psockStream& stream;
};

/// A standard stream buffer writing a connected stream, 4096 bytes. It
/// neither closes nor deletes the stream, which must outlive it.
/// One thread at a time.
class QUILLON_API OSockSBuf : public vekOStreamBuf {
 public:
  explicit OSockSBuf(psockStream& s);  ///< A buffer on s.
  ~OSockSBuf() override;               ///< Sends what is pending.

 private:
  int Write(void const* p, int n) override;
  psockStream& stream;
};

/// A standard stream buffer in both directions on a connected stream, 4096
/// bytes; what is pending goes out before it reads. It neither closes nor
/// deletes the stream, which must outlive it. One thread at a time.
class QUILLON_API IOSockSBuf : public vekIOStreamBuf {
 public:
  explicit IOSockSBuf(psockStream& s);  ///< A buffer on s.
  ~IOSockSBuf() override;               ///< Sends what is pending.

 private:
  int Read(void* p, int n) override;
  int Write(void const* p, int n) override;
  psockStream& stream;
};

/// A std::iostream on a stream, with a buffer of its own that it deletes
/// (sending what is pending); the stream stays open. One thread at a time.
class QUILLON_API ioSockStream : public std::basic_iostream<char> {
 public:
  explicit ioSockStream(psockStream& s);  ///< Makes an IOSockSBuf on s.
  ~ioSockStream() override;               ///< Deletes the buffer, which sends what is pending.
};

#endif
