#include "tools/p11helper/host_process.h"

#include <signal.h>

#include <cerrno>
#include <fstream>
#include <string>

namespace nivra::p11helper {

bool HostProcessGone(uint32_t processId) {
  if (processId == 0) return false;
  if (kill(static_cast<pid_t>(processId), 0) != 0 && errno == ESRCH) return true;
  // An ended process stays in the table until its parent reaps it: its state is then Z (or X).
  std::ifstream stat("/proc/" + std::to_string(processId) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  const size_t name = line.rfind(')');
  return name != std::string::npos && name + 2 < line.size() &&
         (line[name + 2] == 'Z' || line[name + 2] == 'X');
}

}  // namespace nivra::p11helper
