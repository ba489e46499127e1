// Owners of the crypto library's handles that the session code holds: each frees its handle when
// it goes out of scope unless released.
#pragma once
#include "crypto/cipher.h"
#include "crypto/rsa_interface.h"

namespace nivra::frames {

class CipherOwner {
 public:
  CipherOwner() = default;
  explicit CipherOwner(crypto::CipherHandle handle) : handle_(handle) {}
  ~CipherOwner() { Reset(); }
  CipherOwner(const CipherOwner&) = delete;
  CipherOwner& operator=(const CipherOwner&) = delete;
  crypto::CipherHandle Get() const { return handle_; }
  crypto::CipherHandle* Out() { Reset(); return &handle_; }
  crypto::CipherHandle Release() { crypto::CipherHandle h = handle_; handle_ = 0; return h; }
  void Reset() {
    if (handle_ != 0) crypto::CipherDestroy(handle_);
    handle_ = 0;
  }

 private:
  crypto::CipherHandle handle_ = 0;
};

class RsaOwner {
 public:
  RsaOwner() = default;
  ~RsaOwner() {
    if (handle_ != 0) crypto::RsaFreeKey(handle_);
  }
  RsaOwner(const RsaOwner&) = delete;
  RsaOwner& operator=(const RsaOwner&) = delete;
  crypto::RsaHandle Get() const { return handle_; }
  crypto::RsaHandle* Out() { return &handle_; }

 private:
  crypto::RsaHandle handle_ = 0;
};

}  // namespace nivra::frames
