// Our crypto library behind the benchmark's engine interface.
#include "bench_engine.h"

#include <cstring>

#include "crypto/cipher.h"
#include "crypto/hash_object.h"
#include "crypto/rsa_interface.h"

namespace nivra::bench {
namespace {

Outcome FromStatus(crypto::Status status) {
  return status == crypto::kOk ? Outcome::kDone : Outcome::kFailed;
}

class OurEngine : public BenchEngine {
 public:
  ~OurEngine() override {
    if (key_ != 0) crypto::RsaFreeKey(key_);
    if (cipher_ != 0) crypto::CipherDestroy(cipher_);
  }

  std::string Name() const override { return "Nivra crypto library"; }

  Outcome Sha1(const uint8_t* data, size_t len, uint8_t out[20]) override {
    crypto::HashHandle handle = 0;
    crypto::Status status = crypto::HashCreate(&handle);
    if (status != crypto::kOk) return Outcome::kFailed;
    status = crypto::HashUpdate(handle, data, len);
    if (status == crypto::kOk) status = crypto::HashFinal(handle, out);
    const crypto::Status destroyed = crypto::HashDestroy(handle);
    return FromStatus(status != crypto::kOk ? status : destroyed);
  }

  // A two-key context switched to CBC without padding: one long message, encrypted in place
  // call after call.
  Outcome TdesCbcStart(const uint8_t key[16], const uint8_t iv[8]) override {
    if (cipher_ != 0) crypto::CipherDestroy(cipher_);
    cipher_ = 0;
    if (crypto::CipherCreateTdes2(&cipher_, key) != crypto::kOk) return Outcome::kFailed;
    const uint32_t mode = crypto::CipherModeWord(crypto::kCipherModeCbc, crypto::kCipherPadNone);
    if (crypto::CipherSetMode(cipher_, mode) != crypto::kOk) return Outcome::kFailed;
    return FromStatus(crypto::CipherSetIv(cipher_, iv, 8));
  }

  Outcome TdesCbcEncrypt(uint8_t* data, size_t len) override {
    size_t outLen = len;
    const crypto::Status status = crypto::CipherUpdate(cipher_, data, len, data, &outLen, true);
    return status == crypto::kOk && outLen == len ? Outcome::kDone : Outcome::kFailed;
  }
  // Keys are reached through key-interface handles, as the provider and the card transports
  // reach them.
  Outcome RsaGenerate() override {
    crypto::RsaHandle handle = 0;
    const crypto::Status status =
        crypto::RsaGenerateNewKey(&handle, kRsaBits, kRsaPublicExponent);
    if (status != crypto::kOk) return Outcome::kFailed;
    return FromStatus(crypto::RsaFreeKey(handle));
  }

  // The peer makes the shared key.
  Outcome RsaMakeSharedKey(RsaKeyComponents*) override { return Outcome::kNotBuilt; }

  Outcome RsaLoadSharedKey(const RsaKeyComponents& key) override {
    if (crypto::RsaNewKey(&key_) != crypto::kOk) return Outcome::kFailed;
    const struct {
      uint32_t id;
      const std::vector<uint8_t>* value;
    } components[] = {{crypto::kRsaComponentN, &key.n},   {crypto::kRsaComponentE, &key.e},
                      {crypto::kRsaComponentD, &key.d},   {crypto::kRsaComponentP, &key.p},
                      {crypto::kRsaComponentQ, &key.q},   {crypto::kRsaComponentDP, &key.dP},
                      {crypto::kRsaComponentDQ, &key.dQ}, {crypto::kRsaComponentQInv, &key.qInv}};
    for (const auto& c : components) {
      if (crypto::RsaHandleSetKey(key_, c.id, c.value->data(), c.value->size()) != crypto::kOk)
        return Outcome::kFailed;
    }
    return Outcome::kDone;
  }

  Outcome RsaSign(const uint8_t block[kRsaBytes], const uint8_t*,
                  uint8_t signature[kRsaBytes]) override {
    size_t outLen = kRsaBytes;
    return FromStatus(crypto::RsaHandlePrivate(key_, block, kRsaBytes, signature, &outLen));
  }

  Outcome RsaVerify(const uint8_t signature[kRsaBytes], const uint8_t block[kRsaBytes],
                    const uint8_t*) override {
    uint8_t recovered[kRsaBytes];
    size_t outLen = kRsaBytes;
    if (crypto::RsaHandlePublic(key_, signature, kRsaBytes, recovered, &outLen) != crypto::kOk)
      return Outcome::kFailed;
    return std::memcmp(recovered, block, kRsaBytes) == 0 ? Outcome::kDone : Outcome::kFailed;
  }

 private:
  crypto::RsaHandle key_ = 0;
  crypto::CipherHandle cipher_ = 0;
};

}  // namespace

std::unique_ptr<BenchEngine> MakeOurEngine() { return std::make_unique<OurEngine>(); }

}  // namespace nivra::bench
