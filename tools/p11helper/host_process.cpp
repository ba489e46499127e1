#include "tools/p11helper/host_process.h"

#include <fstream>
#include <string>

namespace nivra::p11helper {

bool HostProcessGone(uint32_t processId) {
  if (processId == 0) return false;
  // No entry: the process is gone. An ended process whose parent has not reaped it yet keeps its
  // entry, in state Z (or X).
  std::ifstream stat("/proc/" + std::to_string(processId) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  const size_t name = line.rfind(')');
  return name != std::string::npos && name + 2 < line.size() &&
         (line[name + 2] == 'Z' || line[name + 2] == 'X');
}

}  // namespace nivra::p11helper
