// Typed values written to a file in the portable form and read back.
//
// A bdtOStream puts numbers on the wire big-endian, in fixed widths (a short
// takes 4 bytes, a long 4 on every host), and text as a count and its
// neutral (UTF-8) bytes, so a file written here reads the same on any
// machine. The program writes one record of many types to a file in its own
// temporary directory, shows the first bytes, reads the record back with a
// bdtIStream, checks every value, and removes the directory. Exits with 1 if
// any value differs.
//
//   build/examples/portable_stream
#include <quillon.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>

#include "scratch_dir.h"

namespace {

int failures = 0;

template <class T>
void Expect(char const* what, T const& got, T const& wanted) {
  bool const same = got == wanted;
  std::cout << "  " << what << ": " << got << (same ? "" : "  <- wrong") << "\n";
  if (!same) ++failures;
}

}  // namespace

int main() {
  std::cout << std::boolalpha;
  ScratchDir dir("quillon-stream-");
  if (!dir.Made()) return 1;
  pfuDirPath const path(dir.Path(), pfuDirPath("record.bin"));
  char raw[] = {0, 1, 2, 3, 127};

  {
    std::filebuf file;
    if (OpenFile(file, path, std::ios::out | std::ios::binary | std::ios::trunc, 0) == nullptr) {
      return 1;
    }
    bdtOStream out(&file, 1);  // 1: the portable form
    out << 'Q' << static_cast<short>(-2) << static_cast<unsigned short>(65534) << 1
        << 4000000000u << -123456L << 1.5f << 3.141592653589793 << "neutral text"
        << static_cast<char const*>(nullptr) << L"wide text";
    out.Write(raw, sizeof raw);
    if (out.rdstate() != 0) return 1;  // a short write
  }

  std::ifstream bytes(pfuOSPath(path), std::ios::binary);
  std::cout << "the first bytes of the file:";
  for (int i = 0; i < 13 && bytes; ++i) std::printf(" %02X", bytes.get() & 0xFF);
  bytes.close();  // Windows removes no file that is still open
  std::cout << "\n  'Q', the short -2 in 4 bytes, 65534, the int 1: the same on every host\n";

  std::filebuf file;
  if (OpenFile(file, path, std::ios::in | std::ios::binary, 0) == nullptr) return 1;
  bdtIStream in(&file, 1);
  char tag = 0;
  short delta = 0;
  unsigned short port = 0;
  int one = 0;
  unsigned int mask = 0;
  long offset = 0;
  float ratio = 0;
  double pi = 0;
  dsString name, none, wide;
  in >> tag >> delta >> port >> one >> mask >> offset >> ratio >> pi >> name >> none >> wide;
  char* block = nullptr;
  int count = 0;
  in.Read(block, count);

  std::cout << "read back:\n";
  Expect("char", tag, 'Q');
  Expect("short", delta, static_cast<short>(-2));
  Expect("unsigned short", port, static_cast<unsigned short>(65534));
  Expect("int", one, 1);
  Expect("unsigned int", mask, 4000000000u);
  Expect("long", offset, -123456L);
  Expect("float", ratio, 1.5f);
  Expect("double", pi, 3.141592653589793);
  Expect("text", std::string(name), std::string("neutral text"));
  Expect("null text (reads as empty)", std::string(none), std::string());
  Expect("wide text", std::string(wide), std::string("wide text"));
  Expect("raw block comes back whole", count == sizeof raw && std::memcmp(block, raw, count) == 0,
         true);
  delete[] block;
  Expect("stream state", in.rdstate(), 0);

  int past = 0;
  in >> past;  // nothing is left: the state says so, nothing is thrown
  Expect("state after reading past the end", in.rdstate(), 3);
  file.close();
  if (dir.Remove() != errOK) return 1;
  return failures == 0 ? 0 : 1;
}
