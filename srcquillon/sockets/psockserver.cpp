// Listening servers, their dispatch loop, and the client's Connect.
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "ombcrt.h"
#include "psock.h"
#include "psockshared.h"

namespace {

int const kDefaultBacklog = 128;
int const kLeastBacklog = 5;

// Releases the look-up's result on every way out of Initialize and Connect.
class AddressList {
 public:
  AddressList(char const* host, int port, int flags) {
    addrinfo hints{};
    hints.ai_flags = flags;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    std::string service = std::to_string(port);
    if (vek_get_nodeaddrinfo(host, service.c_str(), &hints, &list) != 0) list = nullptr;
  }
  ~AddressList() { vek_free_nodeaddrinfo(list); }
  AddressList(AddressList const&) = delete;
  AddressList& operator=(AddressList const&) = delete;

  addrinfo const* First() const { return list; }

 private:
  addrinfo* list = nullptr;
};

int ChooseBacklog() {
  char const* text = vek_getenv("VRN_FSERV_BACKLOG");
  if (text == nullptr) return kDefaultBacklog;
  int backlog = std::atoi(text);
  if (backlog < kLeastBacklog) backlog = kLeastBacklog;
  vek_printf("RTF: Backlog set to %d\n", backlog);
  return backlog;
}

bool Fail(char const* message) {
  std::cerr << message << std::endl;
  return false;
}

}  // namespace

psockServer::psockServer() : sock(vekInvalidSocket) {}

psockServer::~psockServer() {
  if (sock != vekInvalidSocket) vek_closesocket(sock);
}

bool psockServer::DoIdle() { return false; }

bool psockServer::Initialize(int port) { return Initialize(port, nullptr); }

bool psockServer::Initialize(int port, char const* address) {
  AddressList addresses(address, port, AI_PASSIVE);
  addrinfo const* first = addresses.First();
  // A server initialised again gives up the socket it listened on.
  if (sock != vekInvalidSocket) vek_closesocket(sock);
  sock = first != nullptr ? vek_socket(first->ai_family, first->ai_socktype, first->ai_protocol)
                          : vekInvalidSocket;
  int backlog = ChooseBacklog();
  if (sock == vekInvalidSocket) return Fail("ERROR: OS could not create socket.");
  int on = 1;
  if (vek_setsockopt(sock, vekSolSocket, vekSoReuseAddr, &on, sizeof on) != 0) {
    return Fail("ERROR: could not set socket options.");
  }
  if (vek_bind(sock, first->ai_addr, static_cast<int>(first->ai_addrlen)) != 0) {
    return Fail("ERROR: port is busy.");
  }
  alignas(8) unsigned char bound[28];
  int length = sizeof bound;
  if (vek_getsockname(sock, reinterpret_cast<sockaddr*>(bound), &length) != 0) {
    return Fail("ERROR: OS failed to obtain socket parameters.");
  }
  if (vek_listen(sock, backlog) != 0) return Fail("ERROR: OS failed to listen on socket.");
  return true;
}

int psockServer::GetPort() {
  if (sock == vekInvalidSocket) return -1;
  alignas(8) unsigned char address[28];
  int length = sizeof address;
  char service[32];
  if (vek_getsockname(sock, reinterpret_cast<sockaddr*>(address), &length) != 0 ||
      vek_get_nodenameinfo(reinterpret_cast<sockaddr*>(address), length, nullptr, 0, service,
                           sizeof service, NI_NUMERICSERV) != 0) {
    return -1;
  }
  return std::atoi(service);
}

psockServer::SockWaitRC psockServer::Wait(int msec) {
  fd_set read;
  timeval time{-1, -1};  // what the diagnostics show for a wait without limit
  if (msec != -1) {
    time.tv_sec = msec / 1000;
    time.tv_usec = (msec % 1000) * 1000;
  }
  int result = SelectOn(sock, &read, nullptr, nullptr, msec == -1 ? nullptr : &time);
  if (result == 1) return SockWaitConnection;
  if (result != -1) return SockWaitTimeout;

  int lastError = vekGetLastError();
  errstatus status = errMapError();
  std::cout << "Failure on connection's socket: " << static_cast<std::uint32_t>(status)
            << std::endl;
  vekPrintSystemError("Socket failed: ", lastError);
  std::cout << "waittime = (" << time.tv_sec << "," << time.tv_usec << ")" << std::endl;
  std::cout << "msec = " << msec << std::endl;
  std::cout << "LastError = " << static_cast<std::uint32_t>(lastError) << std::endl;
  return SockWaitFailed;
}

bool psockServer::AcceptAndExecute() {
  unsigned long long connection = vek_accept(sock, nullptr, nullptr);
  while (connection == vekInvalidSocket) {
    vek_printf("Can't make connection in psockServer...trying again. \n");
    connection = vek_accept(sock, nullptr, nullptr);
  }
  return Execute(new psockStreamImpl(connection));
}

void psockServer::WaitAndProcess(int msec) {
  for (;;) {
    bool stop = false;
    switch (Wait(msec)) {
      case SockWaitConnection:
        stop = AcceptAndExecute();
        break;
      case SockWaitTimeout:
        stop = DoIdle();
        break;
      case SockWaitFailed:
        return;
    }
    if (stop) return;
  }
}

psockStream* psockServer::Connect(char const* host, int port) {
  AddressList addresses(host, port, 0);
  addrinfo const* first = addresses.First();
  if (first == nullptr) return nullptr;
  unsigned long long client = vek_socket(first->ai_family, first->ai_socktype, first->ai_protocol);
  if (client == vekInvalidSocket) return nullptr;
  if (vek_connect(client, first->ai_addr, static_cast<int>(first->ai_addrlen)) != 0) {
    vek_closesocket(client);
    return nullptr;
  }
  return new psockStreamImpl(client);
}

void psockBlockingServer::Run() { WaitAndProcess(-1); }

void psockNonBlockingServer::Run() { WaitAndProcess(0); }

bool psockNonBlockingServer::DoIdle() { return true; }

bool psockNonBlockingServer::IsConnectionReceived() { return Wait(0) == SockWaitConnection; }

psockService::psockService(vekService& service, int msec) : service(&service), waitMsec(msec) {}

void psockService::Run() { WaitAndProcess(waitMsec); }

bool psockService::DoIdle() {
  service->DoPause();
  return service->IsStopSignaled();
}
