// The demo: a small file service on 127.0.0.1 and a client that uses it.
//
// The service listens on the loopback address only: a file service should
// not be reachable from the network unless it is asked to be.
// The server is a psockBlockingServer. A request is one framed message: a
// token list (dsMkToken, separator ',') of an operation and neutral paths
// below the server's root. The handler joins each path under the root with
// pfuDirPath::operator+=, does the work with pfuFS, and answers with one
// framed token list: the status number, then its text or the result. It
// deletes the stream and returns false, and the loop goes back to waiting; a
// "quit" request makes it return true, which ends the loop.
#include <quillon.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <future>
#include <iostream>
#include <string>
#include <vector>

#include "scratch_dir.h"

namespace {

using Fields = std::vector<std::string>;

void Put(dsXArray<char>& message, Fields const& fields) {
  dsString token;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (i > 0) message += ',';
    dsMkToken(fields[i].c_str(), token, ',');
    message.Append(token.GetLength(), token);
  }
}

Fields Take(dsXArray<char>& message) {
  message += '\0';
  Fields fields;
  dsString token;
  for (char const* rest = message.GetDataPtr(); rest != nullptr;) {
    rest = dsGetNextToken(rest, token, ',');
    fields.emplace_back(static_cast<char const*>(token));
  }
  return fields;
}

// A path of the request stays below the root: no absolute path, no "..".
bool Below(std::string const& path) {
  if (pfuIsStringPathAbsolute(path.c_str())) return false;
  std::string name;
  for (char c : path + "|") {
    if (c == '|' || c == '/' || c == '\\') {
      if (name == "..") return false;
      name.clear();
    } else {
      name += c;
    }
  }
  return true;
}

Fields Status(errstatus status, std::string const& detail = "") {
  return {std::to_string(status), detail.empty() ? errText(status) : detail};
}

class FileService : public psockBlockingServer {
 public:
  explicit FileService(char const* root) : root(root) {}

  int served = 0;
  int broken = 0;
  errstatus lastFailure = errOK;

  // Runs on the loop's thread, one connection at a time.
  bool Execute(psockStream* connection) override {
    bool quit = false;
    dsXArray<char> request;
    errstatus status = Read(*connection, request);
    if (status == errOK) {
      Fields fields = Take(request);
      quit = fields[0] == "quit";
      dsXArray<char> reply;
      Put(reply, quit ? Status(errOK, "bye") : Handle(fields));
      Write(*connection, reply);
      ++served;
    } else {
      ++broken;
      lastFailure = status;
    }
    delete connection;  // the handler owns its stream
    return quit;
  }

 private:
  pfuDirPath Under(std::string const& relative) const {
    pfuDirPath path(root);
    path += pfuDirPath(relative.c_str());
    return path;
  }

  Fields Handle(Fields const& request) {
    std::string const& op = request[0];
    for (std::size_t i = 1; i < request.size(); ++i) {
      if (!Below(request[i])) return Status(errSysAccessDenied);
    }
    if (op == "copy" && request.size() == 3) {
      return Status(pfuFS::pfuCopyFile(Under(request[1]), Under(request[2])));
    }
    if (op == "sum" && request.size() == 2) {
      unsigned int sum = 0;
      errstatus status = pfuFS::pfuCalcCheckSumByPath(Under(request[1]), sum);
      return status == errOK ? Status(status, std::to_string(sum)) : Status(status);
    }
    if (op == "list" && request.size() <= 2) {
      pfuDir* dir = pfuDir::OpenDir(Under(request.size() == 2 ? request[1] : ""));
      if (dir == nullptr) return Status(errMapError());
      Fields reply = Status(errOK);
      pfuDirEntry entry;
      while (dir->Read(entry)) reply.emplace_back(static_cast<char const*>(entry));
      delete dir;
      return reply;
    }
    return Status(errSysInvalidArgument);
  }

  pfuDirPath root;
};

Fields Ask(int port, Fields const& request) {
  psockStream* stream = psockServer::Connect("127.0.0.1", port);
  if (stream == nullptr) return {"0", "no connection"};
  dsXArray<char> message;
  Put(message, request);
  Fields reply{"0", "no answer"};
  dsXArray<char> answer;
  fd_set readable;
  timeval limit{5, 0};  // the client waits 5 seconds at most for the answer to begin
  if (Write(*stream, message) == errOK &&
      stream->SelectWait(&readable, nullptr, nullptr, &limit) == 1 &&
      Read(*stream, answer) == errOK) {
    reply = Take(answer);
  }
  delete stream;
  return reply;
}

std::string Show(Fields const& fields, std::size_t from = 0) {
  std::string text;
  for (std::size_t i = from; i < fields.size(); ++i) text += (i > from ? ", " : "") + fields[i];
  return text;
}

}  // namespace

int main() {
  ScratchDir scratch("quillon-demo-");
  if (!scratch.Made()) {
    std::cout << "could not make a temporary directory\n";
    return 1;
  }
  std::string const& native = scratch.Native();
  pfuDirPath root = scratch.Path();
  std::ofstream(native + "/notes.txt") << "quillon moves files over sockets.\n";
  pfuFS::pfuMakeDir(pfuDirPath(root, pfuDirPath("archive")));

  std::cout << "quillon demo: a file service on 127.0.0.1\n\n";
  FileService server(root);
  if (!server.Initialize(SystemAssigned, "127.0.0.1")) return 1;
  int port = server.GetPort();
  auto loop = std::async(std::launch::async, [&] { server.Run(); });
  std::cout << "1. The server listens on port " << port << " (chosen by the system), serving "
            << native << "\n";

  // A client that announces 100 bytes, sends 5 and goes away.
  psockStream* broken = psockServer::Connect("127.0.0.1", port);
  if (broken != nullptr) {
    Write(*broken, "\0\0\0\x64" "hello", 9);
    delete broken;
  }
  std::cout << "2. A client announces a 100-byte request, sends 5 bytes and goes away.\n";

  Fields listing = Ask(port, {"list"});
  std::cout << "3. list        -> " << Show(listing, 2) << "\n";
  Fields copy = Ask(port, {"copy", "notes.txt", "archive|notes-copy.txt"});
  std::cout << "4. copy notes.txt to archive|notes-copy.txt -> status " << copy[0] << " ("
            << copy[1] << ")\n";
  Fields original = Ask(port, {"sum", "notes.txt"});
  Fields copied = Ask(port, {"sum", "archive|notes-copy.txt"});
  std::cout << "5. checksums   -> " << original[1] << " and " << copied[1]
            << (original[1] == copied[1] ? ": the copy is the same\n" : ": they differ\n");
  Fields missing = Ask(port, {"copy", "missing.txt", "archive|missing.txt"});
  std::cout << "6. copy missing.txt fails -> status " << missing[0] << ": " << missing[1] << "\n";
  Fields outside = Ask(port, {"sum", "..|etc|passwd"});
  std::cout << "7. a path that leaves the root is refused -> status " << outside[0] << ": "
            << outside[1] << "\n";

  Fields bye = Ask(port, {"quit"});
  if (loop.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    std::cout << "The server's loop did not end.\n";
    std::_Exit(1);  // its thread cannot be joined
  }
  std::cout << "8. quit        -> " << bye[1] << "; the server's loop has ended.\n";
  std::cout << "9. The server answered " << server.served << " requests. Connections that ended\n"
            << "   without a whole request: " << server.broken << " (the client that went away:\n"
            << "   status " << server.lastFailure << ", " << errText(server.lastFailure)
            << "); the loop went on.\n";

  errstatus removed = scratch.Remove();
  std::cout << "\nThe service's directory is removed (status " << removed << "). Done.\n";
  return copy[0] == "1" && missing[0] != "1" && bye[1] == "bye" && removed == errOK ? 0 : 1;
}
