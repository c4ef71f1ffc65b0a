// A blocking server that gives each client a time limit for its request.
//
// A psockBlockingServer serves one connection at a time on its loop's
// thread, so a client that connects and then says nothing would hold the
// loop for as long as it likes. This handler first waits for the request
// with SelectWait and a limit of one second, and drops a client that sends
// nothing in that time. The program runs a silent client and a good one
// against the server on 127.0.0.1, then asks the server to quit, and ends by
// itself; it exits with 1 if anything went other than planned.
//
//   build/examples/timeout_server
#include <quillon.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <iostream>
#include <string>

namespace {

int const kRequestLimitMsec = 1000;  // what the server gives a client
int const kClientLimitMsec = 5000;   // what a client gives the server

// True once the stream has something to read (or its peer has gone);
// false when msec milliseconds passed first.
bool WaitReadable(psockStream& stream, int msec) {
  fd_set readable;
  timeval limit{msec / 1000, (msec % 1000) * 1000};
  return stream.SelectWait(&readable, nullptr, nullptr, &limit) == 1;
}

std::string Text(dsXArray<char> const& message) {
  return std::string(message.GetDataPtr(), message.GetSize());
}

class EchoServer : public psockBlockingServer {
 public:
  int answered = 0;
  int dropped = 0;

  // Echoes one framed request; "quit" ends the loop.
  bool Execute(psockStream* connection) override {
    bool quit = false;
    if (WaitReadable(*connection, kRequestLimitMsec)) {
      // Only the start of the request is bounded: a client that stops half
      // way through a message would still hold the loop here.
      dsXArray<char> request;
      if (Read(*connection, request) == errOK) {
        Write(*connection, request);
        quit = Text(request) == "quit";
        ++answered;
      }
    } else {
      ++dropped;  // nothing came in time
    }
    delete connection;  // closes it: the silent client sees its end
    return quit;
  }
};

// One framed request and its answer, each wait bounded; "" on any failure.
std::string Ask(int port, std::string const& text) {
  psockStream* stream = psockServer::Connect("127.0.0.1", port);
  if (stream == nullptr) return "";
  dsXArray<char> request, answer;
  request.Append(static_cast<unsigned>(text.size()), text.data());
  std::string reply;
  if (Write(*stream, request) == errOK && WaitReadable(*stream, kClientLimitMsec) &&
      Read(*stream, answer) == errOK) {
    reply = Text(answer);
  }
  delete stream;
  return reply;
}

}  // namespace

int main() {
  EchoServer server;
  if (!server.Initialize(SystemAssigned, "127.0.0.1")) return 1;  // loopback only
  int const port = server.GetPort();
  auto loop = std::async(std::launch::async, [&] { server.Run(); });
  std::cout << "server on 127.0.0.1:" << port << ", " << kRequestLimitMsec
            << " ms for a request\n";

  // The silent client connects first and sends nothing; the good client
  // queues behind it and is served once the silent one is dropped.
  auto start = std::chrono::steady_clock::now();
  psockStream* silent = psockServer::Connect("127.0.0.1", port);
  std::string const reply = Ask(port, "hello");
  auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  std::cout << "good client:   asked \"hello\", got \"" << reply << "\" after " << waited.count()
            << " ms\n";

  // The server has closed the silent connection: a receive now gives -1.
  char byte = 0;
  bool const closed = silent != nullptr && WaitReadable(*silent, kClientLimitMsec) &&
                      ReadFromSocket(*silent, &byte, 1) == -1;
  std::cout << "silent client: " << (closed ? "dropped by the server" : "still connected") << "\n";
  delete silent;

  std::string const bye = Ask(port, "quit");
  if (loop.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    std::cout << "the server's loop did not end\n";
    std::_Exit(1);  // the loop's thread cannot be joined
  }
  std::cout << "server:        answered " << server.answered << ", dropped " << server.dropped
            << ", loop ended\n";
  bool const ok = reply == "hello" && closed && bye == "quit" && server.answered == 2 &&
                  server.dropped == 1;
  return ok ? 0 : 1;
}
