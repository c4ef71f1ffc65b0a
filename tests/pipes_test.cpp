// Anonymous pipes: the lower ends and stream buffers, the pipe streams with
// their read event, and the pipe buffer that works on a handle.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "quillon.h"
#include "testsupport.h"
#include "vekpipe.h"

namespace {

int const eof = std::char_traits<char>::eof();

// Opens the protected operations of the buffer to the tests.
class TestPipeBuf : public vekPipeBuf {
 public:
  TestPipeBuf() : vekPipeBuf(true) {}
  using vekPipeBuf::overflow;
  std::ptrdiff_t Pending() const { return pptr() - pbase(); }
};

// Writes through every layer to a pipe whose reader has gone, with SIGPIPE
// at its default action. Gives the first expectation that failed, or null.
char const* WritesWithoutAReader() {
  qtest::host::DefaultBrokenPipeSignal plain;
  if (!plain.Active()) return "SIGPIPE's default action could not be set";
  vekOutputPipe out;
  vekInputPipe in;
  if (!vekAnonymousPipe::Create(out, in) || !vekPipeClose(in.fd())) return "no pipe";
  unsigned written = 99;
  if (vekPipeWrite(out.fd(), "lost", 4, &written) || written != 0) return "the write did not fail";
  if (errMapError() != errSysBrokenPipe) return "the failure is not a broken pipe";

  std::basic_streambuf<char>* buffer = new vekOPipeSBuf(out);
  std::ostream sink(buffer);
  bool const bad = (sink << "lost as well" << std::flush).bad();
  delete buffer;  // closes the write end
  if (!bad) return "the stream did not fail";
  // The handle buffer keeps what it could not write.
  if (!vekAnonymousPipe::Create(out, in) || !vekPipeClose(in.fd())) return "no pipe";
  TestPipeBuf writer;
  writer.setIOCtrlHandle(out.fd());
  if (writer.sputn("pending", 7) != 7 || writer.pubsync() != -1 || writer.overflow('x') != eof) {
    return "the handle buffer's write did not fail";
  }
  if (writer.Pending() != 7) return "the handle buffer lost what it could not write";
  return qtest::host::BrokenPipeSignalPending() ? "a SIGPIPE is left behind" : nullptr;
}

// In a child: a SIGPIPE delivered at its default action ends the process.
TEST(LowerPipeDeathTest, WritingWithoutAReaderFailsWithoutSignal) {
  EXPECT_EXIT(
      {
        char const* failed = WritesWithoutAReader();
        if (failed != nullptr) std::cerr << failed << std::endl;
        std::exit(failed == nullptr ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// The streams run on the lower buffers, which own the ends.
TEST(PipeStream, EndsAreClosedOnExecCarryBytesToEndOfFileAndSignalAReader) {
  oPipeStream* out = nullptr;
  iPipeStream* in = nullptr;
  ASSERT_EQ(CreatePipeSt(&out, &in), errOK);
  for (void* end : {in->rdbuf()->pipe().fd(), out->rdbuf()->pipe().fd()}) {
    EXPECT_FALSE(qtest::host::IsInheritable(reinterpret_cast<std::uintptr_t>(end)));
  }
  vekEvent* event = in->GetReadEvent();
  EXPECT_FALSE(event->Wait(0));
  EXPECT_EQ(in->rdbuf()->in_avail(), 0) << "a sound, empty pipe has nothing yet";
  *out << "wake up\nrest" << std::flush;
  ASSERT_TRUE(event->Wait(5000)) << "a flushed line signals the reader";
  std::string got;
  std::getline(*in, got);
  EXPECT_EQ(got, "wake up");
  EXPECT_EQ(in->rdbuf()->in_avail(), 4) << "what came and is not taken yet";

  // More than the pipe holds, so writer and reader must take turns.
  std::string const sent = "rest" + qtest::TextPattern(3u << 20);
  std::thread writer([&] {
    out->write(sent.data() + 4, 100);  // a small piece stays in the area...
    out->write(sent.data() + 104, static_cast<std::streamsize>(sent.size() - 104));
    EXPECT_TRUE(out->good());
    DeletePipe(out);  // ...and deleting flushes and closes the only write end
  });
  got.assign(sent.size(), 0);
  QTEST_BOUNDED("reading all that was written", static_cast<void>(in->read(&got[0], static_cast<std::streamsize>(got.size()))));
  QTEST_BOUNDED("the writer", writer.join());
  EXPECT_TRUE(got == sent);
  EXPECT_TRUE(event->Wait(5000)) << "the end of the pipe also wakes a reader";
  EXPECT_EQ(QTEST_BOUNDED("the end of the pipe (was the write end closed?)", in->get()), eof);
  EXPECT_EQ(in->rdbuf()->in_avail(), -1) << "the writer has gone";
  delete event;
  DeletePipe(in);
}

TEST(PipeStream, NoPipeWhenDescriptorsRunOut) {
  QTEST_POSIX_ONLY("a limit on open descriptors");
  int untouched = 0;
  auto* const sentinel = reinterpret_cast<oPipeStream*>(&untouched);
  oPipeStream* out = sentinel;
  iPipeStream* in = nullptr;
  qtest::host::NoMoreDescriptors limit;
  ASSERT_TRUE(limit.Active());
  EXPECT_EQ(CreatePipeSt(&out, &in), errPipeCreate);
  EXPECT_TRUE(out == sentinel && in == nullptr) << "out-parameters untouched";
}

TEST(PipeBuffer, NonBlockingReadsTellNothingYetFromTheEnd) {
  vekOutputPipe out;
  vekInputPipe in;
  ASSERT_TRUE(vekAnonymousPipe::Create(out, in));
  TestPipeBuf reader;
  EXPECT_TRUE(reader.setIOCtrlHandle(in.fd()));
  EXPECT_FALSE(reader.setIOCtrlHandle(out.fd())) << "the first handle stays";
  EXPECT_EQ(reader.sgetc(), eof);
  EXPECT_EQ(reader.in_avail(), 0) << "nothing yet, the writer is there";
  {
    TestPipeBuf writer;
    writer.setIOCtrlHandle(out.fd());
    // Writing allocates on demand; a full put area is written by overflow.
    std::string const sent = qtest::TextPattern(6000);
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
  std::string rest;
  for (int c; (c = reader.sbumpc()) != eof;) rest += static_cast<char>(c);
  EXPECT_EQ(rest, "end");
  EXPECT_EQ(reader.in_avail(), -1) << "the pipe has ended";
}

}  // namespace
