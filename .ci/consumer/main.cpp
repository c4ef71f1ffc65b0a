// Uses a little of each installed library through <quillon.h> alone, and
// exits 0 only if every answer is right.
#include <quillon.h>

#include <iostream>
#include <sstream>
#include <string>

int main() {
  int failures = 0;
  auto check = [&](bool ok, char const* what) {
    if (!ok) {
      std::cerr << "consumer: wrong " << what << "\n";
      ++failures;
    }
  };

  dsString text("installed");
  text += " quillon";
  check(std::string(text) == "installed quillon", "string");

  std::stringbuf buffer;
  bdtIOStream stream(&buffer, true);
  stream << 258 << "portable";
  int number = 0;
  dsString word;
  stream >> number >> word;
  check(number == 258 && std::string(word) == "portable" && stream.rdstate() == 0,
        "portable stream");
  check(buffer.str().compare(0, 4, std::string("\0\0\x01\x02", 4)) == 0, "wire form");

  wchar_t wide[8];
  check(mbxNeutToWide("\xC3\xA9", wide) == 1 && wide[0] == L'\u00E9', "neutral text");
  check(errText(errSysNotFound) != nullptr, "status text");

  vekTimeval now(0, 0);
  now.GetTimeOfDay();
  check(now.ToDouble() > 0, "clock");

  void* block = vekAlloc(16);
  check(block != nullptr, "allocation");
  vekFree(block);

  if (failures == 0) std::cout << "consumer: " << text << " works\n";
  return failures == 0 ? 0 : 1;
}
