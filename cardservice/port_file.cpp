#include "cardservice/port_file.h"

#include <cstdio>
#include <fstream>

namespace nivra::cardservice {

bool WritePortFile(const std::string& path, uint16_t port) {
  std::string temporary = path + ".tmp";
  {
    std::ofstream out(temporary, std::ios::trunc);
    out << port << "\n";
    if (!out) return false;
  }
  return std::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace nivra::cardservice
