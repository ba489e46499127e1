// Reader for NIST CAVS response files (*.rsp) as shipped with python3-cryptography-vectors:
// blocks of "Name = value" lines separated by blank lines; "#" comments and "[...]" section
// headers are skipped. Values are kept as text; Hex() converts hexadecimal ones.
#pragma once
#include <cstdint>
#include <fstream>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace nivra::testing {

using RspRecord = std::map<std::string, std::string>;

// The records of the file at path in order; throws std::runtime_error when it cannot be opened,
// so a missing vector file fails the test instead of passing with no cases.
inline std::vector<RspRecord> ReadRsp(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::vector<RspRecord> records;
  RspRecord current;
  std::string line;
  auto trim = [](std::string s) {
    const auto first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return std::string();
    const auto last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
  };
  while (std::getline(in, line)) {
    line = trim(line);
    if (line.empty()) {
      if (!current.empty()) records.push_back(current);
      current.clear();
      continue;
    }
    if (line[0] == '#' || line[0] == '[') continue;
    const auto eq = line.find('=');
    if (eq == std::string::npos) continue;
    current[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
  }
  if (!current.empty()) records.push_back(current);
  return records;
}

// Bytes of a hexadecimal string (even length); throws on a non-hexadecimal character.
inline std::vector<uint8_t> Hex(const std::string& text) {
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    throw std::runtime_error(std::string("not hexadecimal: ") + c);
  };
  if (text.size() % 2 != 0) throw std::runtime_error("odd hexadecimal length");
  std::vector<uint8_t> out(text.size() / 2);
  for (size_t i = 0; i < out.size(); ++i)
    out[i] = static_cast<uint8_t>(nibble(text[2 * i]) << 4 | nibble(text[2 * i + 1]));
  return out;
}

}  // namespace nivra::testing
