#include <new>

#include "foundation/shared.h"
#include "ombhandle.h"
#include "pmprocess.h"
#include "vekproc.h"
#include "vektext.h"

namespace {

// Kill and Interrupt put their outcome in the status.
bool Reported(pmExitStatus& status, bool done) {
  status.setStatus(StatusOf(done));
  return done;
}

}  // namespace

iAssignableStream::iAssignableStream(std::basic_fstream<char>& file)
    : stream(&file), ctrlHandle(vekStreamFileHandle(file.rdbuf())) {}

iAssignableStream::iAssignableStream(std::basic_ifstream<char>& file)
    : stream(&file), ctrlHandle(vekStreamFileHandle(file.rdbuf())) {}

iAssignableStream::iAssignableStream(iPipeStream& pipe)
    : stream(&pipe), ctrlHandle(pipe.rdbuf()->pipe().fd()) {}

iAssignableStream::~iAssignableStream() = default;

oAssignableStream::oAssignableStream(std::basic_fstream<char>& file)
    : stream(&file), ctrlHandle(vekStreamFileHandle(file.rdbuf())) {}

oAssignableStream::oAssignableStream(std::basic_ofstream<char>& file)
    : stream(&file), ctrlHandle(vekStreamFileHandle(file.rdbuf())) {}

oAssignableStream::oAssignableStream(oPipeStream& pipe)
    : stream(&pipe), ctrlHandle(pipe.rdbuf()->pipe().fd()) {}

oAssignableStream::~oAssignableStream() = default;

ptkExecProcessEvent::ptkExecProcessEvent(void* process)
    : vekEvent(new (std::nothrow) vekPROCESSEvent(process)) {}

QUILLON_EVENT_KIND_MEMBERS(ptkExecProcessEvent)

ExecProcess::ExecProcess(char const* command, unsigned int flags)
    : handle(VEK_INVALID_HANDLE),
      processId(0),
      finished(true),
      assignCout((flags & 2) != 0),
      assignCin((flags & 1) != 0),
      assignCerr((flags & 4) != 0),
      coutHandle(VEK_INVALID_HANDLE),
      cinHandle(VEK_INVALID_HANDLE),
      cerrHandle(VEK_INVALID_HANDLE),
      command(Strnew__(command)) {
  exitStatus.setAlive();
}

ExecProcess::~ExecProcess() {
  if (!finished) {
    Process_Free(handle);
    finished = true;
  }
  delete[] command;
}

bool ExecProcess::Launch(unsigned int mode) {
  void* launched = nullptr;
  std::uint32_t launchedId = 0;
  if (!Process_Launch(&launched, &launchedId, command, nullptr, cinHandle, coutHandle, cerrHandle, mode)) {
    return false;
  }
  // A child still held runs on without its object, as after destruction.
  if (!finished) Process_Free(handle);
  handle = launched;
  processId = launchedId;
  GetExitStatus().setStatus(errOK);
  finished = false;
  return true;
}

bool ExecProcess::Start() { return Launch(1); }

bool ExecProcess::Start(bool ordinary) { return Launch(ordinary ? 1 : 2); }

bool ExecProcess::Kill() { return !finished && Reported(GetExitStatus(), Process_Kill(handle)); }

bool ExecProcess::Interrupt() {
  return !finished && Reported(GetExitStatus(), Process_Interrupt(processId));
}

void ExecProcess::Delivered(std::int32_t code) {
  // The wait has released the handle.
  finished = true;
  handle = VEK_INVALID_HANDLE;
  exitStatus.setExitCode(code);
}

std::int32_t ExecProcess::WaitForProcess() {
  std::int32_t code = 0;
  if (finished) return code;
  if (Process_Wait(handle, &code, true, true)) Delivered(code);
  return code;
}

pmExitStatus& ExecProcess::GetExitCode() {
  if (finished) return exitStatus;
  std::int32_t code = 0;
  if (Process_Wait(handle, &code, false, true)) Delivered(code);
  return exitStatus;
}

pmExitStatus& ExecProcess::GetExitStatus() { return exitStatus; }

bool ExecProcess::IsAppAlive() {
  if (finished) return false;
  if (Process_GetStatus(handle) == asAlive) return true;
  GetExitStatus().setStatus(errOK);
  return false;
}

vekEvent* ExecProcess::GetExitEvent() {
  if (finished) return nullptr;
  return new (std::nothrow) ptkExecProcessEvent(handle);
}

void ExecProcess::AssignCin(iAssignableStream const& stream) {
  if (assignCin) cinHandle = stream.GetCtrlHandle();
}

void ExecProcess::AssignCout(oAssignableStream const& stream) {
  if (assignCout) coutHandle = stream.GetCtrlHandle();
}

void ExecProcess::AssignCerr(oAssignableStream const& stream) {
  if (assignCerr) cerrHandle = stream.GetCtrlHandle();
}

AliveStatus IsAlive(void* process) { return Process_GetStatus(process); }

bool GetProcExitCode(void* process, std::int32_t* code) { return Process_GetExitCode(process, code); }

errstatus CreateChildProcessWithPipes(iPipeStream* in, oPipeStream* out, oPipeStream* err,
                                      ExecProcess* process) {
  process->AssignCout(oAssignableStream(*out));
  process->AssignCin(iAssignableStream(*in));
  process->AssignCerr(oAssignableStream(*err));
  process->Start();
  return process->GetExitStatus().GetExitCode();
}

namespace {

// One pipe's two ends, released write end first; an end not made is skipped.
struct PipeEnds {
  oPipeStream* out = nullptr;
  iPipeStream* in = nullptr;

  void Release() {
    if (out != nullptr) DeletePipe(out);
    if (in != nullptr) DeletePipe(in);
  }
};

}  // namespace

errstatus OpenPipeWithChildProc(oPipeStream** toChild, iPipeStream** fromChild,
                                iPipeStream** errFromChild, ExecProcess* process) {
  PipeEnds input, output, error;
  errstatus status = CreatePipeSt(&input.out, &input.in);
  if (status == errOK) status = CreatePipeSt(&output.out, &output.in);
  if (status == errOK) status = CreatePipeSt(&error.out, &error.in);
  if (status == errOK) status = CreateChildProcessWithPipes(input.in, output.out, error.out, process);
  if (status != errOK) {
    input.Release();
    output.Release();
    error.Release();
    return status;
  }
  // The child holds its own ends now.
  DeletePipe(input.in);
  DeletePipe(output.out);
  DeletePipe(error.out);
  if (toChild != nullptr) *toChild = input.out;
  if (fromChild != nullptr) *fromChild = output.in;
  if (errFromChild != nullptr) *errFromChild = error.in;
  return errOK;
}
