// Helpers shared by the crypto library's tests: byte strings, the published vector files, owning
// wrappers for RSA keys and cipher contexts, and whole-message cipher runs.
#pragma once
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "crypto/cipher.h"
#include "crypto/rsa_key.h"

#ifndef NIVRA_VECTORS_DIR
#error "NIVRA_VECTORS_DIR must name the cryptography_vectors folder"
#endif

namespace nivra::testing {

using Bytes = std::vector<uint8_t>;

// Bytes of the hexadecimal digits in text; blanks are skipped, anything else throws, so a typo in
// an expected value fails the test instead of shortening it.
inline Bytes Hex(const std::string& text) {
  Bytes out;
  std::string digits;
  for (char c : text) {
    if (std::isxdigit(static_cast<unsigned char>(c))) digits += c;
    else if (c != ' ') throw std::runtime_error(std::string("not hexadecimal: ") + c);
    if (digits.size() < 2) continue;
    out.push_back(static_cast<uint8_t>(std::stoi(digits, 0, 16)));
    digits.clear();
  }
  if (!digits.empty()) throw std::runtime_error("odd hexadecimal length");
  return out;
}

inline Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// a xor b over the length of a (b at least as long).
inline Bytes XorBytes(Bytes a, const Bytes& b) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) a[i] ^= b[i];
  return a;
}

inline Bytes RandomBytes(std::mt19937& rng, size_t len) {
  Bytes out(len);
  for (auto& b : out) b = static_cast<uint8_t>(rng());
  return out;
}

using RspRecord = std::map<std::string, std::string>;
inline std::vector<RspRecord> ReadRsp(const std::string& relative) {
  const std::string path = std::string(NIVRA_VECTORS_DIR) + "/" + relative;
  std::ifstream in(path);
  if (!in) throw std::runtime_error("cannot open " + path);
  auto trim = [](const std::string& s) {
    const auto first = s.find_first_not_of(" \t\r");
    if (first == std::string::npos) return std::string();
    return s.substr(first, s.find_last_not_of(" \t\r") - first + 1);
  };
  std::vector<RspRecord> records(1);
  for (std::string line; std::getline(in, line);) {
    line = trim(line);
    if (line.empty() && !records.back().empty()) records.emplace_back();
    const auto eq = line.find('=');
    if (line.empty() || line[0] == '#' || line[0] == '[' || eq == std::string::npos) continue;
    records.back()[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
  }
  if (records.back().empty()) records.pop_back();
  return records;
}

// ---- RSA keys ---------------------------------------------------------------------------------

struct KeyDeleter {
  void operator()(crypto::CRSA* key) const { crypto::RsaDestroyKey(key); }
};
using KeyPtr = std::unique_ptr<crypto::CRSA, KeyDeleter>;

inline KeyPtr ImportKey(uint32_t form, const Bytes& der) {
  crypto::CRSA* key = nullptr;
  EXPECT_EQ(crypto::RsaImportKey(&key, nullptr, form, der.data(), der.size()), crypto::kOk);
  return KeyPtr(key);
}

inline KeyPtr GenerateKey(uint32_t bits, uint32_t e) {
  crypto::CRSA* key = nullptr;
  EXPECT_EQ(crypto::RsaGenerateKey(&key, bits, e), crypto::kOk);
  return KeyPtr(key);
}

// A DER form or one component of key.
inline Bytes ExportKey(const crypto::CRSA* key, uint32_t what) {
  size_t len = 0;
  EXPECT_EQ(crypto::RsaExportKey(key, what, nullptr, &len), crypto::kOk);
  Bytes out(len);
  EXPECT_EQ(crypto::RsaExportKey(key, what, out.data(), &len), crypto::kOk);
  return out;
}

// ---- cipher contexts --------------------------------------------------------------------------

// A cipher context destroyed with the object; status() is that of its set-up.
class ScopedCipher {
 public:
  explicit ScopedCipher(const Bytes& key, uint32_t modeWord = crypto::kCipherModeWordCreated,
                        const Bytes& iv = {}) {
    status_ = crypto::CipherCreate(&handle_, key.data(), key.size());
    if (status_ == crypto::kOk) status_ = crypto::CipherSetMode(handle_, modeWord);
    if (status_ == crypto::kOk && !iv.empty()) {
      status_ = crypto::CipherSetIv(handle_, iv.data(), iv.size());
    }
  }
  ScopedCipher(const ScopedCipher&) = delete;
  ~ScopedCipher() { crypto::CipherDestroy(handle_); }
  crypto::CipherHandle get() const { return handle_; }
  crypto::Status status() const { return status_; }

 private:
  crypto::CipherHandle handle_ = 0;
  crypto::Status status_ = crypto::kOk;
};

// Output of one message and the status of each step.
struct MessageRun {
  crypto::Status update = crypto::kOk;
  crypto::Status final = crypto::kOk;
  Bytes out;
};

// Feeds `in` in pieces of the given sizes (the rest in one last call), then runs the final, with
// buffers always large enough. The first failing update stops the run. The final's output is kept
// when it succeeded and when it failed its padding check (the block is still handed out then).
inline MessageRun RunMessage(crypto::CipherHandle h, const Bytes& in, bool encrypt,
                             std::vector<size_t> pieces = {}) {
  MessageRun run;
  run.out.resize(in.size() + 32);
  size_t written = 0, offset = 0, outLen = 0;
  pieces.push_back(in.size());
  for (size_t piece : pieces) {
    const size_t len = std::min(piece, in.size() - offset);
    outLen = run.out.size() - written;
    run.update = crypto::CipherUpdate(h, in.data() + offset, len, run.out.data() + written, &outLen,
                                      encrypt);
    if (run.update != crypto::kOk) break;
    offset += len;
    written += outLen;
  }
  if (run.update == crypto::kOk) {
    outLen = run.out.size() - written;
    run.final = crypto::CipherFinal(h, run.out.data() + written, &outLen);
    if (run.final == crypto::kOk || run.final == crypto::kErrPaddingCheck) written += outLen;
  }
  run.out.resize(written);
  return run;
}

}  // namespace nivra::testing
