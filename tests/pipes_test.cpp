// Anonymous pipes: the lower ends and stream buffers, the pipe streams with
// their read event, and the pipe buffer that works on a handle.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "quillon.h"
#include "testsupport.h"
#include "vekpipe.h"

namespace {

int const eof = std::char_traits<char>::eof();

int fdOf(void* handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)); }

std::string pattern(std::size_t size) {
  std::string text(size, 0);
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
  return text;
}

// Opens the protected operations of the buffer to the tests.
class TestPipeBuf : public vekPipeBuf {
 public:
  TestPipeBuf() : vekPipeBuf(true) {}
  using vekPipeBuf::overflow;
  using vekPipeBuf::underflow;
  std::ptrdiff_t Pending() const { return pptr() - pbase(); }
};

TEST(LowerPipe, EndsAreClosedOnExecAndCarryBytesToEndOfFile) {
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  for (void* end : {in.fd(), out.fd()}) EXPECT_NE(::fcntl(fdOf(end), F_GETFD) & FD_CLOEXEC, 0);

  auto* reader = new vekIPipeSBuf(in);
  std::istream source(reader);
  EXPECT_EQ(reader->in_avail(), 0) << "a sound, empty pipe has nothing yet";
  // More than the pipe holds, so writer and reader must take turns.
  std::string const sent = pattern(3u << 20);
  std::thread writer([&] {
    std::basic_streambuf<char>* buffer = new vekOPipeSBuf(out);
    std::ostream sink(buffer);
    sink.write(sent.data(), 100);  // a small piece stays in the area...
    sink.write(sent.data() + 100, static_cast<std::streamsize>(sent.size() - 100));
    EXPECT_TRUE(sink.good());
    delete buffer;  // ...and deleting flushes and closes the end
  });
  std::string got(sent.size(), 0);
  source.read(&got[0], 5);
  source.read(&got[5], static_cast<std::streamsize>(got.size() - 5));
  writer.join();
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(source.get(), eof);
  EXPECT_EQ(reader->in_avail(), -1) << "the writer has gone";
  delete static_cast<std::basic_streambuf<char>*>(reader);
}

TEST(LowerPipe, WritingWithoutAReaderFailsWithoutSignal) {
  // The default action of SIGPIPE would end this test program.
  struct sigaction plain {};
  plain.sa_handler = SIG_DFL;
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGPIPE, &plain, &before), 0);
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  ASSERT_TRUE(vekPipeClose(in.fd()));
  unsigned written = 99;
  EXPECT_FALSE(vekPipeWrite(out.fd(), "lost", 4, &written));
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(errMapError(), errSysBrokenPipe);

  std::basic_streambuf<char>* buffer = new vekOPipeSBuf(out);
  std::ostream sink(buffer);
  EXPECT_TRUE((sink << "lost as well" << std::flush).bad());
  delete buffer;  // closes the write end
  // The handle buffer keeps what it could not write.
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  ASSERT_TRUE(vekPipeClose(in.fd()));
  TestPipeBuf writer;
  writer.setIOCtrlHandle(out.fd());
  ASSERT_EQ(writer.sputn("pending", 7), 7);
  EXPECT_EQ(writer.pubsync(), -1);
  EXPECT_EQ(writer.overflow('x'), eof);
  EXPECT_EQ(writer.Pending(), 7);

  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0) << "no SIGPIPE left behind";
  ::sigaction(SIGPIPE, &before, nullptr);
}

TEST(PipeStream, CarriesTextWakesAReaderAndFlushesWhenTheWriterIsDeleted) {
  oPipeStream* out = nullptr;
  iPipeStream* in = nullptr;
  ASSERT_EQ(CreatePipeSt(&out, &in), errOK);
  vekEvent* event = in->GetReadEvent();
  EXPECT_FALSE(event->Wait(0));

  std::string got;
  std::thread reader([&] {
    if (!event->Wait(10000)) return;
    std::getline(*in, got);
  });
  *out << "wake up\n" << 42 << ' ' << std::flush;
  reader.join();
  EXPECT_EQ(got, "wake up");
  *out << "unflushed";
  EXPECT_EQ(in->rdbuf()->in_avail(), 3) << "only \"42 \" came; the rest is in the writer's buffer";
  DeletePipe(out);  // flushes, then closes the only write end
  int number = 0;
  *in >> number >> got;
  EXPECT_EQ(std::to_string(number) + got, "42unflushed");
  EXPECT_TRUE(event->Wait(5000)) << "the end of the pipe also wakes a reader";
  EXPECT_EQ(in->get(), eof);
  delete event;
  DeletePipe(in);
}

TEST(PipeStream, NoPipeWhenDescriptorsRunOut) {
  rlimit saved{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &saved), 0);
  int probe = ::dup(0);
  ASSERT_GE(probe, 0);
  ::close(probe);
  rlimit tight = saved;
  tight.rlim_cur = static_cast<rlim_t>(probe);  // the next descriptor is over the limit
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &tight), 0);
  oPipeStream* out = reinterpret_cast<oPipeStream*>(&probe);
  iPipeStream* in = nullptr;
  errstatus status = CreatePipeSt(&out, &in);
  ::setrlimit(RLIMIT_NOFILE, &saved);
  EXPECT_EQ(status, errPipeCreate);
  EXPECT_TRUE(out == reinterpret_cast<oPipeStream*>(&probe) && in == nullptr) << "out-parameters untouched";
}

TEST(PipeBuffer, NonBlockingReadsTellNothingYetFromTheEnd) {
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  TestPipeBuf reader;
  EXPECT_TRUE(reader.setIOCtrlHandle(in.fd()));
  EXPECT_FALSE(reader.setIOCtrlHandle(out.fd())) << "the first handle stays";
  EXPECT_EQ(reader.underflow(), eof);
  EXPECT_EQ(reader.in_avail(), 0) << "nothing yet, the writer is there";
  {
    TestPipeBuf writer;
    writer.setIOCtrlHandle(out.fd());
    // Writing allocates on demand; a full put area is written by overflow.
    std::string const sent = pattern(6000);
    EXPECT_EQ(writer.sputn(sent.data(), 6000), 6000);
    EXPECT_EQ(reader.in_avail(), 4096);
    EXPECT_EQ(writer.pubsync(), 1);
    std::string got;
    for (int c; (c = reader.sbumpc()) != eof;) got += static_cast<char>(c);
    EXPECT_TRUE(got == sent);
    // sync drops what was read from the pipe and not taken yet.
    ASSERT_TRUE(writer.sputn("abcdef", 6) == 6 && writer.pubsync() == 1);
    EXPECT_EQ(reader.sbumpc(), 'a');
    EXPECT_EQ(reader.pubsync(), 1);
    EXPECT_EQ(reader.sgetc(), eof);
    ASSERT_TRUE(writer.sputn("end", 3) == 3 && writer.pubsync() == 1);
  }  // the writer closes the only write end
  EXPECT_EQ(reader.sbumpc(), 'e');
  EXPECT_EQ(reader.in_avail(), 2) << "the rest of what came is still there";
  reader.sbumpc();
  reader.sbumpc();
  EXPECT_EQ(reader.sgetc(), eof);
  EXPECT_EQ(reader.in_avail(), -1) << "the pipe has ended";
}

}  // namespace
