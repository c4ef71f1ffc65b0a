// A walk through what quillon offers today: owning strings, growing arrays,
// token lists, C-style text and status values. It prints what it does.
#include <quillon.h>

#include <iostream>
#include <memory>

int main() {
  std::cout << "quillon demo\n\n";

  dsString greeting("systems");
  greeting += ' ';
  greeting += "toolkit";
  greeting.Replace(0, 0, "a ");
  std::cout << "1. An owning string built piece by piece: \"" << greeting << "\" ("
            << greeting.GetLength() << " bytes)\n";

  dsXArray<char> bytes;
  for (int i = 0; i < 300; ++i) bytes += static_cast<char>('a' + i % 26);
  std::cout << "2. A growing array took 300 appends: size " << bytes.GetSize()
            << ", capacity " << bytes.GetCapacity() << " (it grows in steps of "
            << bytes.GetControl().grain << " bytes)\n";

  dsString list, field;
  char const* fields[] = {"name=a,b", "path=C:|data", "plain"};
  for (char const* f : fields) {
    dsMkToken(f, field, ',');
    if (!list.IsEmpty()) list += ',';
    list += field;
  }
  std::cout << "3. Three fields joined into one token list: " << list << "\n   read back:";
  for (char const* rest = list; rest != nullptr;) {
    rest = dsGetNextToken(rest, field, ',');
    std::cout << " [" << field << "]";
  }
  std::cout << "\n";

  std::cout << "4. Text with a tab, a quote and an e-acute in C-style form: ";
  NativeStringToCStyle("tab\there \"caf\xc3\xa9\"", std::cout);
  std::cout << "\n";

  dsString hex;
  ToString(48879, hex, ToStringHex);
  std::cout << "5. 48879 in hexadecimal: " << hex << "\n";

  std::cout << "6. Failures are status values with a text: " << errSysNotFound << " means \""
            << errText(errSysNotFound) << "\", " << errOK << " means \"" << errText(errOK)
            << "\"\n";
  return 0;
}
