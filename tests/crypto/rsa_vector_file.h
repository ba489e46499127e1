// Readers for the published RSA test-vector files (PKCS#1 v2.1 vector set as shipped in
// python3-cryptography-vectors): labelled hex blocks, the keys they define, and the examples that
// follow each key.
#pragma once
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <string>
#include <vector>

#ifndef NIVRA_VECTORS_DIR
#error "NIVRA_VECTORS_DIR must name the cryptography_vectors folder"
#endif

namespace nivra::crypto::testing {

using Bytes = std::vector<uint8_t>;

inline std::string RsaVectorPath(const std::string& relative) {
  return std::string(NIVRA_VECTORS_DIR) + "/asymmetric/RSA/" + relative;
}

inline bool IsHexLine(const std::string& line) {
  bool any = false;
  for (char c : line) {
    if (std::isxdigit(static_cast<unsigned char>(c))) any = true;
    else if (c != ' ' && c != '\t' && c != '\r') return false;
  }
  return any;
}

inline void AppendHex(const std::string& line, Bytes& out) {
  std::string digits;
  for (char c : line) {
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
  }
  for (size_t i = 0; i + 1 < digits.size(); i += 2) {
    out.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
}

inline Bytes Hex(const std::string& text) {
  Bytes out;
  AppendHex(text, out);
  return out;
}

inline std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << "missing vector file " << path;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// One "# Label:" line and the hex lines under it.
struct VectorEntry {
  std::string label;
  Bytes bytes;
};

inline std::vector<VectorEntry> ReadEntries(const std::string& path) {
  std::vector<VectorEntry> entries;
  bool open = false;
  for (const std::string& raw : ReadLines(path)) {
    std::string line = raw;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t')) {
      line.pop_back();
    }
    if (line.rfind("# ", 0) == 0 && !line.empty() && line.back() == ':') {
      entries.push_back({line.substr(2, line.size() - 3), {}});
      open = true;
    } else if (open && IsHexLine(line)) {
      AppendHex(line, entries.back().bytes);
    } else {
      open = false;
    }
  }
  return entries;
}

// The hex bytes of every line between the lines starting with `from` and `to`, ignoring comment
// lines (the BER dumps of oaep-int.txt).
inline Bytes ReadHexBetween(const std::string& path, const std::string& from,
                            const std::string& to) {
  Bytes out;
  bool inside = false;
  for (const std::string& line : ReadLines(path)) {
    if (line.rfind(from, 0) == 0) inside = true;
    else if (line.rfind(to, 0) == 0) break;
    else if (inside && IsHexLine(line)) AppendHex(line, out);
  }
  return out;
}

struct VectorExample {
  Bytes message;  // "Message to be signed" / "Message"
  Bytes seed;     // OAEP only
  Bytes result;   // "Signature" / "Encryption"
};

struct VectorKey {
  Bytes n, e, d, p, q, dP, dQ, qInv;
  std::vector<VectorExample> examples;
};

// Keys in the order of the file, each with the examples that follow it.
inline std::vector<VectorKey> ReadKeys(const std::string& path) {
  std::vector<VectorKey> keys;
  VectorKey current;
  for (const VectorEntry& entry : ReadEntries(path)) {
    const std::string& l = entry.label;
    if (l == "Modulus") current.n = entry.bytes;
    else if (l == "Public exponent") current.e = entry.bytes;
    else if (l == "Exponent") (current.e.empty() ? current.e : current.d) = entry.bytes;
    else if (l == "Prime 1") current.p = entry.bytes;
    else if (l == "Prime 2") current.q = entry.bytes;
    else if (l == "Prime exponent 1") current.dP = entry.bytes;
    else if (l == "Prime exponent 2") current.dQ = entry.bytes;
    else if (l == "Coefficient") {
      current.qInv = entry.bytes;
      keys.push_back(current);
      current = VectorKey();
    } else if (l == "Message to be signed" || l == "Message") {
      keys.back().examples.push_back({entry.bytes, {}, {}});
    } else if (l == "Seed") {
      keys.back().examples.back().seed = entry.bytes;
    } else if (l == "Signature" || l == "Encryption") {
      keys.back().examples.back().result = entry.bytes;
    }
  }
  return keys;
}

}  // namespace nivra::crypto::testing
