// A module that the load probe opens beside the library: it makes and drops
// interned strings, and starts and kills a managed task, so that the string
// database and the task registry each hold a block when the library is
// unloaded.
#include "quillon.h"

namespace {

class ProbeTask : public pmManageTask {
 public:
  ProbeTask() : pmManageTask(false, false) {}
  void* Handle() const { return GetHandle(); }

 protected:
  unsigned int ThreadBody() override { return 0; }
};

bool UseTheRegistry() {
  ProbeTask task;
  if (!task.Start()) return false;
  void* const key = task.Handle();
  bool found = pmManageTask::Fetch(key) == &task;
  // Kill after the end: closes the handle and takes the entry out.
  bool ended = vekWaitForSingleObject(key, 10000) == vekWaitObject0;
  return found && ended && task.Kill() && pmManageTask::Fetch(key) == nullptr;
}

}  // namespace

extern "C" VEK_EXPORT int quillon_probe_use() {
  dsUniqueString first("first");
  dsUniqueString second("second");
  dsUniqueString copy(first);
  bool strings = copy == first && first != second;
  return strings && UseTheRegistry() ? 0 : 1;
}
