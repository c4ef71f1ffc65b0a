// Anonymous pipes: the lower ends and stream buffers, the pipe streams with
// their read event, and the pipe buffer that works on a handle.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <istream>
#include <ostream>
#include <string>
#include <thread>

#include "quillon.h"
#include "testsupport.h"
#include "vekpipe.h"

namespace {

int fdOf(void* handle) { return static_cast<int>(reinterpret_cast<std::intptr_t>(handle)); }

std::string pattern(std::size_t size) {
  std::string text(size, 0);
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 251) % 26);
  return text;
}

TEST(LowerPipe, EndsAreClosedOnExecAndCarryBytesToEndOfFile) {
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_EQ(fdOf(out.fd()), -1);
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  EXPECT_NE(::fcntl(fdOf(in.fd()), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(::fcntl(fdOf(out.fd()), F_GETFD) & FD_CLOEXEC, 0);

  auto* reader = new vekIPipeSBuf(in);
  EXPECT_EQ(reader->pipe().fd(), in.fd());
  std::istream source(reader);
  EXPECT_EQ(reader->in_avail(), 0) << "a sound, empty pipe has nothing yet";

  // More than the pipe holds, so writer and reader must take turns.
  std::string const sent = pattern(3u << 20);
  std::thread writer([&] {
    std::basic_streambuf<char>* buffer = new vekOPipeSBuf(out);
    std::ostream sink(buffer);
    sink.write(sent.data(), 100);  // a small piece stays in the area...
    sink.write(sent.data() + 100, static_cast<std::streamsize>(sent.size() - 100));
    sink << std::flush;
    EXPECT_TRUE(sink.good());
    delete buffer;  // ...and deleting flushes and closes the end
  });
  std::string got(sent.size(), 0);
  source.read(&got[0], 5);
  source.read(&got[5], static_cast<std::streamsize>(got.size() - 5));
  writer.join();
  EXPECT_TRUE(source.good());
  EXPECT_TRUE(got == sent);
  EXPECT_EQ(source.get(), std::char_traits<char>::eof());
  EXPECT_EQ(reader->in_avail(), -1) << "the writer has gone";
  delete static_cast<std::basic_streambuf<char>*>(reader);
}

TEST(LowerPipe, WriteWithoutReaderFailsWithoutSignal) {
  // The default action of SIGPIPE would end this test program.
  struct sigaction plain {};
  plain.sa_handler = SIG_DFL;
  struct sigaction before {};
  ASSERT_EQ(::sigaction(SIGPIPE, &plain, &before), 0);

  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  ASSERT_TRUE(vekPipeClose(in.fd()));
  char const text[] = "lost";
  unsigned written = 99;
  EXPECT_FALSE(vekPipeWrite(out.fd(), text, 4, &written));
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(errMapError(), errSysBrokenPipe);
  sigset_t pending;
  sigemptyset(&pending);
  ::sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0) << "no SIGPIPE left behind";

  // Through the stream buffer the failure shows as a bad stream.
  std::basic_streambuf<char>* buffer = new vekOPipeSBuf(out);
  std::ostream sink(buffer);
  sink << "lost as well" << std::flush;
  EXPECT_TRUE(sink.bad());
  delete buffer;
  ::sigaction(SIGPIPE, &before, nullptr);
}

TEST(LowerPipe, EventTellsDataAndEndOfPipe) {
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  vekPipeEvent event(in.fd());
  EXPECT_FALSE(event.Wait(0));
  unsigned count = 0;
  ASSERT_TRUE(vekPipeWrite(out.fd(), "x", 1, &count));
  EXPECT_TRUE(event.Wait(5000));
  int available = 0;
  EXPECT_TRUE(vekPipePeek(in.fd(), &available));
  EXPECT_EQ(available, 1);
  char byte = 0;
  ASSERT_TRUE(vekPipeRead(in.fd(), &byte, 1, &count));
  EXPECT_EQ(byte, 'x');
  EXPECT_FALSE(event.Wait(0));
  ASSERT_TRUE(vekPipeClose(out.fd()));
  EXPECT_TRUE(event.Wait(5000)) << "the end of the pipe wakes a reader too";
  EXPECT_FALSE(vekPipePeek(in.fd(), &available));
  EXPECT_EQ(errMapError(), errSysBrokenPipe);
  ASSERT_TRUE(vekPipeRead(in.fd(), &byte, 1, &count));
  EXPECT_EQ(count, 0u);
  vekPipeClose(in.fd());
}

}  // namespace
