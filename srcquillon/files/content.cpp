// File content operations: the checksum and the string replacement.
#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>

#include "fsshared.h"
#include "ombhandle.h"
#include "pfufs.h"
#include "vekfile.h"

namespace {

// Finds a run of bytes, zero bytes included, with the C library's portable
// calls only. A short run: memchr to each place where its first byte stands,
// memcmp for the rest there, fast on text and at most one short compare per
// byte. A longer run: Boyer-Moore, whose work stays linear in the bytes
// searched whatever they hold.
class ByteSearch {
 public:
  ByteSearch(char const* needle, std::size_t length) : needle(needle), length(length) {
    if (length > kShortRun) longRun = std::make_unique<LongRunSearch>(needle, needle + length);
  }

  // The first place of the run in [from, to), or null.
  char const* In(char const* from, char const* to) const {
    if (longRun) {
      char const* found = std::search(from, to, *longRun);
      return found != to ? found : nullptr;
    }
    while (static_cast<std::size_t>(to - from) >= length) {
      auto const* candidate = static_cast<char const*>(
          std::memchr(from, needle[0], static_cast<std::size_t>(to - from) - length + 1));
      if (candidate == nullptr) return nullptr;
      if (std::memcmp(candidate + 1, needle + 1, length - 1) == 0) return candidate;
      from = candidate + 1;
    }
    return nullptr;
  }

 private:
  using LongRunSearch = std::boyer_moore_searcher<char const*>;
  static constexpr std::size_t kShortRun = 64;
  char const* needle;
  std::size_t length;
  std::unique_ptr<LongRunSearch> longRun;  // for a long run only
};

// Large reads and writes in place of the byte-at-a-time calls: the results
// are the same, the system calls far fewer.
std::uint32_t const blockSize = 1u << 16;

// Sum modulo 256 and exclusive or of a block, a word at a time. The sum runs
// in 16-bit lanes, flushed before a lane could overflow.
void Accumulate(unsigned char const* bytes, std::size_t count, unsigned& sum, unsigned& xorValue) {
  std::uint64_t const evenBytes = 0x00FF00FF00FF00FFull;
  std::uint64_t wordXor = 0;
  while (count >= 8) {
    // Each word adds at most 2 * 255 to a lane: 128 words stay below 65536.
    std::size_t words = count / 8 < 128 ? count / 8 : 128;
    std::uint64_t lanes = 0;
    for (std::size_t i = 0; i < words; ++i) {
      std::uint64_t word;
      std::memcpy(&word, bytes + 8 * i, 8);
      wordXor ^= word;
      lanes += (word & evenBytes) + ((word >> 8) & evenBytes);
    }
    for (int shift = 0; shift < 64; shift += 16) sum += static_cast<unsigned>(lanes >> shift);
    bytes += 8 * words;
    count -= 8 * words;
  }
  for (int shift = 0; shift < 64; shift += 8) xorValue ^= static_cast<unsigned>(wordXor >> shift);
  for (; count > 0; --count, ++bytes) {
    sum += *bytes;
    xorValue ^= *bytes;
  }
  sum &= 0xFFu;
  xorValue &= 0xFFu;
}

// What the replacement writes, gathered into large writes. A write that
// fails is reported by the call that adds the bytes or by Flush.
class Output {
 public:
  explicit Output(void* handle) : handle(handle), block(new char[blockSize]), used(0) {}

  bool Put(char const* bytes, std::size_t count) {
    if (count > blockSize - used) {
      if (!Flush()) return false;
      if (count >= blockSize) return Write(bytes, count);
    }
    std::memcpy(block.get() + used, bytes, count);
    used += count;
    return true;
  }

  bool Flush() {
    std::size_t count = used;
    used = 0;
    return Write(block.get(), count);
  }

 private:
  bool Write(char const* bytes, std::size_t count) {
    std::uint32_t written = 0;
    return count == 0 ||
           (vekWriteFile(handle, bytes, static_cast<std::uint32_t>(count), &written) && written == count);
  }

  void* handle;
  std::unique_ptr<char[]> block;
  std::size_t used;
};

}  // namespace

errstatus pfuFS::pfuCalcCheckSumByPath(char const* path, unsigned int& checksum) {
  if (!pfuFiles::Fits(path)) return errNoMemoryOrIO;
  // A failed open shows as a failed first read.
  void* file = pfuFiles::OpenSource(pfuOSPath(pfuFiles::Text(path)));
  std::unique_ptr<unsigned char[]> block(new unsigned char[blockSize]);
  unsigned count = 0, sum = 0, xorValue = 0;
  std::uint32_t got = 0;
  bool read;
  while ((read = vekReadFile(file, block.get(), blockSize, &got)) && got != 0) {
    count = (count + got) & 0xFFFFu;
    Accumulate(block.get(), got, sum, xorValue);
  }
  win32CloseFileHandle(file);
  if (!read) return errNoMemoryOrIO;
  checksum = count << 16 | sum << 8 | xorValue;
  return errOK;
}

errstatus pfuFS::pfuReplaceString(char const* const search, char const* const replacement,
                                  char const* source, char const* target) {
  std::size_t const searchLength = static_cast<std::size_t>(Strlen(search));
  std::size_t const replacementLength = static_cast<std::size_t>(Strlen(replacement));
  // An empty search would match at every place for ever.
  if (searchLength == 0 || !pfuFiles::Fits(source) || !pfuFiles::Fits(target)) return errNoMemoryOrIO;
  void* in = pfuFiles::OpenSource(pfuOSPath(pfuFiles::Text(source)));
  if (in == VEK_INVALID_HANDLE) return errNoMemoryOrIO;
  void* out = pfuFiles::OpenTarget(pfuOSPath(pfuFiles::Text(target)));
  if (out == VEK_INVALID_HANDLE) {
    win32CloseFileHandle(in);
    return errNoMemoryOrIO;
  }

  // Room for the held tail (at most searchLength - 1 bytes) and a block read
  // behind it, whatever the length of search.
  std::size_t const capacity = searchLength - 1 + blockSize;
  std::unique_ptr<char[]> buffer(new char[capacity]);
  ByteSearch const matches(search, searchLength);
  Output output(out);
  errstatus status = errOK;
  std::size_t carry = 0;
  for (;;) {
    std::uint32_t got = 0;
    if (!vekReadFile(in, buffer.get() + carry, static_cast<std::uint32_t>(capacity - carry), &got)) {
      status = errNoMemoryOrIO;
      break;
    }
    if (got == 0) break;
    char* const head = buffer.get();
    std::size_t end = carry + got, cursor = 0;
    // Every match, left to right; a failed write ends the matching of this
    // block at the match it stood before.
    while (char const* found = matches.In(head + cursor, head + end)) {
      std::size_t match = static_cast<std::size_t>(found - head);
      if (!output.Put(head + cursor, match - cursor)) {
        status = errNoMemoryOrIO;
        end = match;
        break;
      }
      cursor = match;
      if (!output.Put(replacement, replacementLength)) {
        status = errNoMemoryOrIO;
        end = match;
        break;
      }
      cursor += searchLength;
    }
    // Hold back what could begin a match that the next read completes.
    std::size_t tail = end - cursor;
    std::size_t held = tail < searchLength ? tail : searchLength - 1;
    if (!output.Put(head + cursor, tail - held)) {
      status = errNoMemoryOrIO;
      break;
    }
    std::memmove(head, head + end - held, held);
    carry = held;
  }
  if (!output.Put(buffer.get(), carry) || !output.Flush()) status = errNoMemoryOrIO;
  win32CloseFileHandle(in);
  win32CloseFileHandle(out);
  return status;
}
