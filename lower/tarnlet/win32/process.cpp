// Child processes on CreateProcessW, each given exactly its three standard
// handles, and the handle of a standard file buffer. Windows code only.
#include "vekproc.h"  // first: the library's size of an fd_set

#include <io.h>

#include <cstdlib>
#include <cwchar>
#include <memory>

#include "ombhandle.h"
#include "launch.h"
#include "ombmem.h"
#include "system.h"
#include "waitset.h"

namespace {

// The code a child ended by Process_Kill reports: what a POSIX shell shows
// for SIGKILL, so that a killed child reads the same on every host.
constexpr UINT kExitAfterKill = 128 + 9;

struct ProcessRecord {
  HANDLE process;
  DWORD id;
  bool waited;  // Process_Wait has seen it end: a kill now finds no process
};

ProcessRecord* recordOf(void* process) {
  if (process == nullptr || process == VEK_INVALID_HANDLE) {
    vekSetLastError(ERROR_INVALID_HANDLE);
    return nullptr;
  }
  return static_cast<ProcessRecord*>(process);
}

bool hasEnded(ProcessRecord const& record) { return ::WaitForSingleObject(record.process, 0) == WAIT_OBJECT_0; }

bool isSeparator(wchar_t c) { return c == L'\\' || c == L'/'; }

// 0: no such file; 1: a file; -1: there, but not a file that can run.
int fileState(std::wstring const& path) {
  DWORD const attributes = ::GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return 0;
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? -1 : 1;
}

// The names a program may have: as written when it has an extension, and
// with each extension of PATHEXT (.COM;.EXE;.BAT;.CMD without it).
std::vector<std::wstring> programNames(std::wstring const& name) {
  std::size_t const lastPart = name.find_last_of(L"\\/:");
  std::size_t const dot = name.rfind(L'.');
  bool const hasExtension = dot != std::wstring::npos && (lastPart == std::wstring::npos || dot > lastPart);
  std::vector<std::wstring> names;
  if (hasExtension) names.push_back(name);
  wchar_t const* listed = ::_wgetenv(L"PATHEXT");
  std::wstring extensions = listed != nullptr && *listed != 0 ? listed : L".COM;.EXE;.BAT;.CMD";
  std::size_t start = 0;
  for (;;) {
    std::size_t const semicolon = extensions.find(L';', start);
    std::wstring const extension = extensions.substr(start, semicolon - start);
    if (!extension.empty()) names.push_back(name + extension);
    if (semicolon == std::wstring::npos) break;
    start = semicolon + 1;
  }
  return names;
}

// The program to run: a name with a separator or a drive where it says, any
// other name in the folders of PATH (an empty entry is the current folder).
bool findProgram(std::wstring const& name, std::wstring& path) {
  bool const placed = name.find_first_of(L"\\/:") != std::wstring::npos;
  std::vector<std::wstring> folders;
  if (placed) {
    folders.push_back(std::wstring());
  } else {
    wchar_t const* search = ::_wgetenv(L"PATH");
    std::wstring list = search != nullptr ? search : L"";
    std::size_t start = 0;
    for (;;) {
      std::size_t const semicolon = list.find(L';', start);
      std::wstring folder = list.substr(start, semicolon - start);
      if (!folder.empty() && !isSeparator(folder.back())) folder += L'\\';
      folders.push_back(folder);
      if (semicolon == std::wstring::npos) break;
      start = semicolon + 1;
    }
  }
  bool sawOne = false;
  for (auto const& folder : folders) {
    for (auto const& candidate : programNames(name)) {
      int const state = fileState(folder + candidate);
      if (state == 1) {
        path = folder + candidate;
        return true;
      }
      sawOne = sawOne || state < 0;
    }
  }
  vekSetLastError(sawOne ? ERROR_ACCESS_DENIED : ERROR_FILE_NOT_FOUND);
  return false;
}

// The standard handles of a child, as inheritable duplicates of its own that
// the parent closes once the child has started; a stream not assigned gets
// the parent's own (when there is one).
class ChildHandles {
 public:
  ~ChildHandles() {
    for (HANDLE handle : list) ::CloseHandle(handle);
  }

  // False, with the error kept, when a handle cannot be given.
  bool Assign(void* const (&ends)[3]) {
    DWORD const standard[3] = {STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    for (int stream = 0; stream < 3; ++stream) {
      HANDLE source = ends[stream] != VEK_INVALID_HANDLE ? static_cast<HANDLE>(ends[stream])
                                                        : ::GetStdHandle(standard[stream]);
      if (source == nullptr || source == INVALID_HANDLE_VALUE) {
        child[stream] = nullptr;
        continue;
      }
      // One duplicate per distinct handle: the list refuses one twice.
      int same = -1;
      for (int before = 0; before < stream; ++before) {
        if (sources[before] == source) same = before;
      }
      sources[stream] = source;
      if (same >= 0) {
        child[stream] = child[same];
        continue;
      }
      HANDLE const self = ::GetCurrentProcess();
      if (!::DuplicateHandle(self, source, self, &child[stream], 0, TRUE, DUPLICATE_SAME_ACCESS)) {
        // A parent's own stream that cannot be passed on is left out.
        if (ends[stream] == VEK_INVALID_HANDLE) {
          child[stream] = nullptr;
          continue;
        }
        vekKeepSystemError();
        return false;
      }
      list.push_back(child[stream]);
    }
    return true;
  }

  HANDLE Stream(int stream) const { return child[stream]; }
  std::vector<HANDLE>& List() { return list; }

 private:
  HANDLE sources[3] = {nullptr, nullptr, nullptr};
  HANDLE child[3] = {nullptr, nullptr, nullptr};
  std::vector<HANDLE> list;
};

// The attribute list that limits what a child inherits to the handles given.
class InheritOnly {
 public:
  explicit InheritOnly(std::vector<HANDLE>& handles) {
    if (handles.empty()) return;
    SIZE_T size = 0;
    ::InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
    storage.reset(new char[size]);
    auto* attributes = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage.get());
    if (!::InitializeProcThreadAttributeList(attributes, 1, 0, &size)) {
      vekKeepSystemError();
      failed = true;
      return;
    }
    list = attributes;
    if (!::UpdateProcThreadAttribute(list, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles.data(),
                                     handles.size() * sizeof(HANDLE), nullptr, nullptr)) {
      vekKeepSystemError();
      failed = true;
    }
  }
  ~InheritOnly() {
    if (list != nullptr) ::DeleteProcThreadAttributeList(list);
  }
  InheritOnly(InheritOnly const&) = delete;
  InheritOnly& operator=(InheritOnly const&) = delete;

  bool Failed() const { return failed; }
  LPPROC_THREAD_ATTRIBUTE_LIST List() const { return list; }

 private:
  std::unique_ptr<char[]> storage;
  LPPROC_THREAD_ATTRIBUTE_LIST list = nullptr;
  bool failed = false;
};

}  // namespace

// Every child gets a process group of its own, the only way a console's
// Ctrl-Break reaches one process (Process_Interrupt); a detached child also
// runs without a console.
bool Process_Launch(void** process, std::uint32_t* processId, char const* command,
                    char const* second, void* in, void* out, void* err, unsigned int mode) {
  std::vector<std::string> args;
  if (!vekLaunchArguments(process, processId, command, second, mode, args)) {
    vekSetLastError(ERROR_INVALID_PARAMETER);
    return false;
  }
  std::wstring name;
  std::wstring path;
  if (!vekToWide(args[0].c_str(), name) || !findProgram(name, path)) return false;
  std::string program;
  if (!vekFromWide(path.c_str(), program)) return false;
  args[0] = program;
  std::wstring line;
  if (!vekToWide(vekJoinCommandLine(args).c_str(), line)) return false;

  ChildHandles handles;
  void* const ends[3] = {in, out, err};
  if (!handles.Assign(ends)) return false;
  InheritOnly inherit(handles.List());
  if (inherit.Failed()) return false;

  STARTUPINFOEXW startup{};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = handles.Stream(0);
  startup.StartupInfo.hStdOutput = handles.Stream(1);
  startup.StartupInfo.hStdError = handles.Stream(2);
  startup.lpAttributeList = inherit.List();
  DWORD flags = CREATE_NEW_PROCESS_GROUP;
  if (mode == 2) flags |= DETACHED_PROCESS;
  if (inherit.List() != nullptr) flags |= EXTENDED_STARTUPINFO_PRESENT;
  PROCESS_INFORMATION started{};
  if (!::CreateProcessW(path.c_str(), &line[0], nullptr, nullptr, inherit.List() != nullptr, flags,
                        nullptr, nullptr, &startup.StartupInfo, &started)) {
    vekKeepSystemError();
    return false;
  }
  ::CloseHandle(started.hThread);
  *process = new ProcessRecord{started.hProcess, started.dwProcessId, false};
  *processId = started.dwProcessId;
  return true;
}

bool Process_Wait(void* process, std::int32_t* code, bool wait, bool release) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return false;
  DWORD const outcome = ::WaitForSingleObject(record->process, wait ? INFINITE : 0);
  if (outcome == WAIT_TIMEOUT) return false;
  DWORD exitCode = 0;
  if (outcome != WAIT_OBJECT_0 || !::GetExitCodeProcess(record->process, &exitCode)) {
    vekKeepSystemError();
    return false;
  }
  record->waited = true;
  *code = static_cast<std::int32_t>(exitCode);
  if (release) Process_Free(process);
  return true;
}

// A console's Ctrl-Break, sent to the child's own process group, whose id is
// the child's. Ctrl-C cannot be aimed at one group. It needs a console that
// parent and child share.
bool Process_Interrupt(std::uint32_t processId) {
  if (processId == 0) {
    vekSetLastError(ERROR_FILE_NOT_FOUND);
    return false;
  }
  if (!::GenerateConsoleCtrlEvent(CTRL_BREAK_EVENT, processId)) {
    vekKeepSystemError();
    return false;
  }
  return true;
}

bool Process_Kill(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return false;
  if (record->waited) {
    vekSetLastError(ERROR_FILE_NOT_FOUND);
    return false;
  }
  // An ended child that no wait has seen yet is killed already, as a POSIX
  // zombie would be; Windows itself refuses to terminate it again.
  if (hasEnded(*record)) return true;
  if (!::TerminateProcess(record->process, kExitAfterKill)) {
    int const error = static_cast<int>(::GetLastError());
    if (hasEnded(*record)) return true;
    vekSetLastError(error);
    return false;
  }
  return true;
}

AliveStatus Process_GetStatus(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return asUnknown;
  switch (::WaitForSingleObject(record->process, 0)) {
    case WAIT_OBJECT_0:
      return asNotAlive;
    case WAIT_TIMEOUT:
      return asAlive;
    default:
      vekKeepSystemError();
      return asUnknown;
  }
}

bool Process_GetExitCode(void* process, std::int32_t* code) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr || !hasEnded(*record)) return false;
  DWORD exitCode = 0;
  if (!::GetExitCodeProcess(record->process, &exitCode)) {
    vekKeepSystemError();
    return false;
  }
  *code = static_cast<std::int32_t>(exitCode);
  return true;
}

// Windows keeps no zombies: releasing the handle is all.
void Process_Free(void* process) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return;
  ::CloseHandle(record->process);
  delete record;
}

vekPROCESSEvent::vekPROCESSEvent(void* process) : handle(VEK_INVALID_HANDLE) {
  ProcessRecord* record = recordOf(process);
  if (record == nullptr) return;
  HANDLE const self = ::GetCurrentProcess();
  HANDLE own = nullptr;
  if (::DuplicateHandle(self, record->process, self, &own, SYNCHRONIZE, FALSE, 0)) handle = own;
}

vekPROCESSEvent::~vekPROCESSEvent() {
  if (handle != VEK_INVALID_HANDLE) ::CloseHandle(static_cast<HANDLE>(handle));
}

void vekPROCESSEvent::PrepareWait(vekWaitSet& wait) const {
  if (handle != VEK_INVALID_HANDLE) wait.WatchHandle(static_cast<HANDLE>(handle));
}

#if defined(__GLIBCXX__)
// The HANDLE behind the C runtime's descriptor.
void* vekStreamFileHandle(std::basic_filebuf<char>* buffer) {
  if (buffer == nullptr || !buffer->is_open()) return VEK_INVALID_HANDLE;
  intptr_t const native = ::_get_osfhandle(vekFileBufAccess::Descriptor(buffer));
  return native == -1 ? VEK_INVALID_HANDLE : reinterpret_cast<void*>(native);
}
#else
void* vekStreamFileHandle(std::basic_filebuf<char>*) {
  vekSetLastError(ERROR_NOT_SUPPORTED);
  return VEK_INVALID_HANDLE;
}
#endif
