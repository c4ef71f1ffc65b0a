// Nothing left behind: each family of the library used a thousand times
// leaves the process with the descriptors it had and no child unreaped; a
// server that meets peers breaking off goes on answering. Linux only (/proc).
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "quillon.h"
#include "testsupport.h"

namespace {

// A sanitizer makes children and threads far slower; fewer rounds still show
// a leak per round many times over.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
int const kRounds = 200;
#else
int const kRounds = 1000;
#endif

// Runs a round a few times first, so that what the library makes once per
// process exists, then rounds times; once every child has ended, the
// descriptors must be back where they were and no child left unreaped.
void ExpectNothingLeft(std::function<void()> const& round, int rounds = kRounds) {
  QTEST_POSIX_ONLY("descriptors counted in /proc, children by waitid");
  if (qtest::host::OpenDescriptorCount() < 0) GTEST_SKIP() << "needs /proc/self/fd";
  for (int i = 0; i < 3; ++i) round();
  ASSERT_TRUE(qtest::WaitUntil([] { return !qtest::host::AnyChildLeft(); }));
  int const before = qtest::host::OpenDescriptorCount();
  for (int i = 0; i < rounds && !testing::Test::HasFailure(); ++i) round();
  qtest::WaitUntil([&] { return qtest::host::OpenDescriptorCount() == before && !qtest::host::AnyChildLeft(); });
  EXPECT_EQ(qtest::host::OpenDescriptorCount(), before) << "descriptors left open";
  EXPECT_FALSE(qtest::host::AnyChildLeft()) << "children left unreaped";
}

using qtest::HelperCommand;

// One child is waited for; one that outlives its object must still answer.
// Two children a round: half the rounds.
TEST(Leaks, ChildrenWaitedForAndLeftRunning) {
  ExpectNothingLeft([] {
    oPipeStream* toChild = nullptr;
    iPipeStream* input = nullptr;
    ASSERT_EQ(CreatePipeSt(&toChild, &input), errOK);
    ExecProcess waited(HelperCommand("copy-input").c_str(), 1);
    waited.AssignCin(iAssignableStream(*input));
    ASSERT_TRUE(waited.Start());
    DeletePipe(input);  // the child has its own
    DeletePipe(toChild);
    EXPECT_EQ(waited.WaitForProcess(), 0);

    iPipeStream* fromChild = nullptr;
    iPipeStream* errors = nullptr;
    {
      ExecProcess child(HelperCommand("copy-input").c_str(), 7);
      ASSERT_EQ(OpenPipeWithChildProc(&toChild, &fromChild, &errors, &child), errOK);
    }
    *toChild << "ping\n";
    DeletePipe(toChild);  // the child sees the end of its input
    std::string line;
    EXPECT_TRUE(std::getline(*fromChild, line) && line == "ping") << "the child did not run on without its object";
    DeletePipe(fromChild);
    DeletePipe(errors);
  }, kRounds / 2);
}

// Takes one connection, answers one frame and closes it; counts the frames
// that did not come whole.
class OneFrame : public psockBlockingServer {
 public:
  bool Execute(psockStream* connection) override {
    std::unique_ptr<psockStream> owned(connection);
    dsXArray<char> message;
    if (Read(*connection, message) == errOK) {
      Write(*connection, message);
    } else {
      ++broken;
    }
    return true;
  }
  int broken = 0;
};

// Peers that break off inside the count, inside the payload, after announcing
// 2 GiB, or with a reset; a negative count reads as an empty frame.
struct HostilePeer {
  std::string bytes;
  bool reset;
};
HostilePeer const hostilePeers[] = {{std::string("\0\0", 2), false},
                                    {std::string("\0\0\0\x64", 4) + std::string(10, 'p'), false},
                                    {std::string("\x7f\xff\xff\xff", 4) + std::string(96 * 1024, 'g'), false},
                                    {std::string("\0\0\0\x64", 4) + std::string(10, 'r'), true},
                                    {std::string("\xff\xff\xff\xfb", 4), false}};
int const kHostileKinds = 5;

// Each round serves a hostile peer, then a good client, which must get its
// answer; a plain build also counts the server's memory (not a sanitizer's).
TEST(Leaks, SocketsWithGoodAndBrokenPeers) {
  OneFrame server;
  ASSERT_TRUE(server.Initialize(SystemAssigned));
  int rounds = 0;
  long resident = -1;
  ExpectNothingLeft([&] {
    if (rounds == 3) resident = qtest::host::ResidentBytes();  // after the warm-up rounds
    {
      std::unique_ptr<psockStream> peer(psockServer::Connect("127.0.0.1", server.GetPort()));
      ASSERT_NE(peer, nullptr);
      HostilePeer const& hostile = hostilePeers[rounds++ % kHostileKinds];
      ASSERT_TRUE(qtest::host::SendAll(peer->getSock(), hostile.bytes.data(), hostile.bytes.size()));
      if (hostile.reset) {
        ASSERT_TRUE(qtest::host::ResetOnClose(peer->getSock()));
      }
    }
    server.AcceptAndExecute();
    std::unique_ptr<psockStream> client(psockServer::Connect("127.0.0.1", server.GetPort()));
    ASSERT_NE(client, nullptr);
    dsXArray<char> message, answer;
    message.Append(4, "ping");
    ASSERT_EQ(Write(*client, message), errOK);
    server.AcceptAndExecute();
    EXPECT_EQ(Read(*client, answer), errOK);
    EXPECT_EQ(answer.GetSize(), 4u);
  });
  EXPECT_EQ(server.broken, rounds - rounds / kHostileKinds) << "every peer but the negative count breaks off";
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(qtest::host::ResidentBytes() - resident, 2L << 20) << "the server's memory grew with the rounds";
#endif
}

TEST(Leaks, DirectoryReadingAndFileLocks) {
  qtest::TempDir dir;
  for (char const* name : {"a.txt", "b.txt", "c.log"}) qtest::WriteFile(dir / name, "x");
  pfuDirPath const lockPath((dir / "lock").c_str());
  ExpectNothingLeft([&] {
    std::unique_ptr<pfuDir> reader(pfuDir::OpenDir(pfuDirPath(dir.Path().c_str())));
    ASSERT_NE(reader, nullptr);
    dsXArray<pfuDirPath*> found;
    EXPECT_TRUE(reader->ExpandPattern("*.txt", found));
    EXPECT_EQ(found.GetSize(), 2u);
    for (unsigned int i = 0; i < found.GetSize(); ++i) delete found[i];
    std::unique_ptr<pfuDir> unfinished(pfuDir::OpenDir(pfuDirPath(dir.Path().c_str())));
    pfuDirEntry entry;
    EXPECT_TRUE(unfinished != nullptr && unfinished->Read(entry));  // dropped half read
    std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct(lockPath));
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->Lock(), errOK);
    EXPECT_EQ(lock->Release(), errOK);
  });
}

}  // namespace
