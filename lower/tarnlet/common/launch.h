// tarnlet, inside: what every platform checks and splits before it starts a
// child, and the open file of a standard file buffer.
#ifndef TARNLET_LAUNCH_H
#define TARNLET_LAUNCH_H

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

// The arguments of a Process_Launch: false when the call is void (an output
// missing, second given, a mode other than 1 or 2, no program in command),
// which the platform reports as an invalid argument.
bool vekLaunchArguments(void** process, std::uint32_t* processId, char const* command,
                        char const* second, unsigned int mode, std::vector<std::string>& args);

#if defined(__GLIBCXX__)
// libstdc++ keeps the open file of a filebuf in its protected member _M_file,
// whose fd() gives the C library's descriptor of a filebuf that is open.
struct vekFileBufAccess : std::basic_filebuf<char> {
  static int Descriptor(std::basic_filebuf<char>* buffer) {
    return (buffer->*&vekFileBufAccess::_M_file).fd();
  }
};
#endif

#endif
