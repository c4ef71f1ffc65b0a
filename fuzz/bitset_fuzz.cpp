// Bit sets: any bytes restored into a set as a packed form, and any block
// packed. Restore and Unpack must give what a plain reading of the packed form
// gives and never write past their room; a restored set then answers every
// question from its own positions, its tail unseen; and Save, Pack and Unpack
// turn the bytes into the canonical packed form and back.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fuzzsupport.h"
#include "quillon.h"

namespace {

// The plain reading: the decimal count is skipped as operator>> skips it, then
// each non-zero byte stands for itself and a zero byte with its count for a
// run of zeros; a zero byte at the very end adds nothing.
std::string Unpacked(std::string const& form) {
  std::istringstream in(form);
  unsigned int ignored;
  in >> ignored;
  if (!in) return "";
  std::string rest(std::istreambuf_iterator<char>(in), {});
  std::string plain;
  for (std::size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] != 0) plain += rest[i];
    else if (i + 1 < rest.size()) plain.append(static_cast<unsigned char>(rest[++i]), '\0');
  }
  return plain;
}

// The canonical packed form of a block.
std::string Packed(std::string const& plain) {
  std::string form = std::to_string(plain.size());
  for (std::size_t i = 0; i < plain.size();) {
    if (plain[i] != 0) {
      form += plain[i++];
      continue;
    }
    std::size_t run = 0;
    while (i < plain.size() && plain[i] == 0 && run < 255) ++run, ++i;
    form += '\0';
    form += static_cast<char>(run);
  }
  return form;
}

std::string Saved(dsBitSet const& set) {
  std::ostringstream out(std::ios::binary);
  FUZZ_CHECK(set.Save(out) == 1);
  return out.str();
}

// Everything a set tells about its positions, against the bits one by one.
void CheckPositions(dsBitSet const& set) {
  std::vector<std::uint32_t> on;
  for (std::uint32_t i = 0; i < set.GetBitCount(); ++i)
    if (((set.GetBytes()[i >> 3] >> (7 - (i & 7))) & 1) != 0) on.push_back(i);
  FUZZ_CHECK(set.GetSize() == on.size());
  FUZZ_CHECK(set.First() == (on.empty() ? dsBitSet::none : on.front()));
  FUZZ_CHECK(set.Last() == (on.empty() ? dsBitSet::none : on.back()));
  std::string text = "[";
  for (std::size_t k = 0; k < on.size(); ++k) {
    FUZZ_CHECK(set.IsOn(on[k]) && set.ByIndex(static_cast<std::uint32_t>(k)) == on[k]);
    FUZZ_CHECK(set.GetIndex(on[k]) == k);
    FUZZ_CHECK(set.Next(on[k]) == (k + 1 < on.size() ? on[k + 1] : dsBitSet::none));
    FUZZ_CHECK(set.Previous(on[k]) == (k > 0 ? on[k - 1] : dsBitSet::none));
    text += (k == 0 ? "" : ", ") + std::to_string(on[k]);
  }
  FUZZ_CHECK(set.ByIndex(static_cast<std::uint32_t>(on.size())) == dsBitSet::none);
  FUZZ_CHECK(!set.IsOn(set.GetBitCount()) && set.Next(set.GetBitCount()) == dsBitSet::none);
  std::ostringstream shown;
  shown << set;
  FUZZ_CHECK(shown.str() == text + "]");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  std::uint32_t const bits = input.ConsumeIntegralInRange<std::uint32_t>(0, 8 * 1024);
  unsigned int const limit = input.ConsumeIntegralInRange<unsigned int>(0, 4096);
  std::string const form = input.ConsumeRemainingBytesAsString();
  std::string const plain = Unpacked(form);

  // Unpack into a block of exactly the room it is given.
  {
    std::unique_ptr<char[]> room(new char[limit]);
    std::istringstream in(form, std::ios::binary);
    unsigned int const produced = Unpack(in, room.get(), limit);
    if (plain.size() <= limit) {
      FUZZ_CHECK(produced == plain.size() && std::memcmp(room.get(), plain.data(), produced) == 0);
    } else {
      FUZZ_CHECK(produced == 0);
    }
  }

  dsBitSet set(bits);
  std::size_t const storage = (bits >> 3) + 1;
  std::istringstream in(form, std::ios::binary);
  int const restored = set.Restore(in);
  FUZZ_CHECK(restored == (plain.size() == storage ? 1 : 0));
  FUZZ_CHECK(set.GetBitCount() == bits);
  CheckPositions(set);  // also after a failed Restore, which may have written bytes
  if (restored == 1) {
    FUZZ_CHECK(std::memcmp(set.GetBytes(), plain.data(), storage) == 0);
    // Saved, the set is the canonical form of its bytes, and reads back the
    // same unless its first byte is a digit, which merges with the count.
    std::string const saved = Saved(set);
    FUZZ_CHECK(saved == Packed(plain));
    dsBitSet copy(bits);
    std::istringstream back(saved, std::ios::binary);
    bool const digitFirst = plain[0] >= '0' && plain[0] <= '9';
    FUZZ_CHECK(copy.Restore(back) == (digitFirst ? 0 : 1));
    if (!digitFirst) FUZZ_CHECK(std::memcmp(copy.GetBytes(), set.GetBytes(), storage) == 0);
  }

  // Any block packs to its canonical form.
  std::ostringstream out(std::ios::binary);
  FUZZ_CHECK(Pack(form.data(), static_cast<unsigned int>(form.size()), out) == (form.empty() ? 1 : 0));
  FUZZ_CHECK(out.str() == (form.empty() ? "" : Packed(form)));
  return 0;
}
