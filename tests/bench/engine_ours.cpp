// Our crypto library behind the benchmark's engine interface.
#include "bench_engine.h"

#include "crypto/hash_object.h"

namespace nivra::bench {
namespace {

Outcome FromStatus(crypto::Status status) {
  return status == crypto::kOk ? Outcome::kDone : Outcome::kFailed;
}

class OurEngine : public BenchEngine {
 public:
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

  Outcome TdesCbcStart(const uint8_t*, const uint8_t*) override { return Outcome::kNotBuilt; }
  Outcome TdesCbcEncrypt(uint8_t*, size_t) override { return Outcome::kNotBuilt; }
  Outcome RsaGenerate() override { return Outcome::kNotBuilt; }
  Outcome RsaMakeSharedKey(RsaKeyComponents*) override { return Outcome::kNotBuilt; }
  Outcome RsaLoadSharedKey(const RsaKeyComponents&) override { return Outcome::kNotBuilt; }
  Outcome RsaSign(const uint8_t*, const uint8_t*, uint8_t*) override { return Outcome::kNotBuilt; }
  Outcome RsaVerify(const uint8_t*, const uint8_t*, const uint8_t*) override {
    return Outcome::kNotBuilt;
  }
};

}  // namespace

std::unique_ptr<BenchEngine> MakeOurEngine() { return std::make_unique<OurEngine>(); }

}  // namespace nivra::bench
