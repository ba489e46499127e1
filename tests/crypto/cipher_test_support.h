// Test helpers for the cipher framework: an owning handle, whole-message runs with generous
// buffers, and reproducible pseudo-random test data.
#pragma once
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "crypto/cipher.h"

namespace nivra::testing {

using Bytes = std::vector<uint8_t>;

// A cipher context that is destroyed with the object.
class ScopedCipher {
 public:
  explicit ScopedCipher(const Bytes& key, uint32_t modeWord = crypto::kCipherModeWordCreated) {
    status_ = crypto::CipherCreate(&handle_, key.data(), key.size());
    if (status_ == crypto::kOk) status_ = crypto::CipherSetMode(handle_, modeWord);
  }
  ScopedCipher(const Bytes& key, uint32_t modeWord, const Bytes& iv) : ScopedCipher(key, modeWord) {
    if (status_ == crypto::kOk) status_ = crypto::CipherSetIv(handle_, iv.data(), iv.size());
  }
  ScopedCipher(const ScopedCipher&) = delete;
  ScopedCipher& operator=(const ScopedCipher&) = delete;
  ~ScopedCipher() {
    if (handle_ != 0) crypto::CipherDestroy(handle_);
  }
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

// Feeds `in` to the context in pieces of the given sizes (the rest in one last call), then runs
// the final. Buffers are always large enough; the first failing update stops the run. The final's
// output is kept when it succeeded and when it failed its padding check (the decrypted block is
// still handed out then).
inline MessageRun RunMessage(crypto::CipherHandle h, const Bytes& in, bool encrypt,
                             const std::vector<size_t>& pieces = {}) {
  MessageRun run;
  run.out.resize(in.size() + 32);
  size_t written = 0, offset = 0;
  auto feed = [&](size_t len) {
    size_t outLen = run.out.size() - written;
    run.update = crypto::CipherUpdate(h, in.data() + offset, len, run.out.data() + written,
                                      &outLen, encrypt);
    offset += len;
    if (run.update == crypto::kOk) written += outLen;
    return run.update == crypto::kOk;
  };
  for (size_t piece : pieces) {
    if (piece > in.size() - offset) piece = in.size() - offset;
    if (!feed(piece)) {
      run.out.resize(written);
      return run;
    }
  }
  if (!feed(in.size() - offset)) {
    run.out.resize(written);
    return run;
  }
  size_t outLen = run.out.size() - written;
  run.final = crypto::CipherFinal(h, run.out.data() + written, &outLen);
  if (run.final == crypto::kOk || run.final == crypto::kErrPaddingCheck) written += outLen;
  run.out.resize(written);
  return run;
}

// Reproducible test data.
inline Bytes RandomBytes(std::mt19937& rng, size_t len) {
  Bytes out(len);
  for (auto& b : out) b = static_cast<uint8_t>(rng());
  return out;
}

// a xor b over the length of a (b at least as long).
inline Bytes XorBytes(Bytes a, const Bytes& b) {
  for (size_t i = 0; i < a.size() && i < b.size(); ++i) a[i] ^= b[i];
  return a;
}

inline Bytes Concat(Bytes a, const Bytes& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

}  // namespace nivra::testing
