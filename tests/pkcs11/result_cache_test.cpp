// The one-entry cache of raw private-key results. (That a repeated signature is answered without
// a token call is proved against SoftHSM2 in the token tests.)
#include <gtest/gtest.h>

#include <vector>

#include "pkcs11/result_cache.h"

namespace nivra::pkcs11 {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(ResultCache, OnlyTheSameLastCompleteRequestOfAtMost2048BytesIsAnswered) {
  const Bytes input = {1, 2, 3, 4, 5}, result(128, 0x5A);
  Bytes lastByte = input, longer = input;
  lastByte.back() ^= 1;
  longer.push_back(0);
  const Bytes shorter(input.begin(), input.end() - 1), largest(2048, 0x11), tooLong(2049, 0x11);
  const struct {
    const char* what;
    uint32_t keySpec, mode;
    const Bytes& stored;
    bool withResult, forgotten;
    const Bytes& asked;
    uint32_t askedKeySpec, askedMode;
    bool hit;
  } cases[] = {
      {"the same request", 2, 1, input, true, false, input, 2, 1, true},
      {"other key specification", 2, 1, input, true, false, input, 1, 1, false},
      {"other mode", 2, 1, input, true, false, input, 2, 2, false},
      {"other last byte", 2, 1, input, true, false, lastByte, 2, 1, false},
      {"a prefix of the input", 2, 1, input, true, false, shorter, 2, 1, false},
      {"the input and one more byte", 2, 1, input, true, false, longer, 2, 1, false},
      {"a request without its result", 2, 1, input, false, false, input, 2, 1, false},
      {"a failed operation", 2, 1, input, true, true, input, 2, 1, false},
      {"the largest input", 1, 0, largest, true, false, largest, 1, 0, true},
      {"a longer input", 1, 0, tooLong, true, false, tooLong, 1, 0, false},
  };
  for (const auto& c : cases) {
    PrivateResultCache cache{};
    // An earlier entry, which the stored request replaces (or drops, when it cannot be kept).
    CacheRequest(cache, 1, 0, largest.data(), static_cast<uint32_t>(largest.size()));
    CacheResult(cache, result.data(), static_cast<uint32_t>(result.size()));
    CacheRequest(cache, c.keySpec, c.mode, c.stored.data(), static_cast<uint32_t>(c.stored.size()));
    if (c.withResult) CacheResult(cache, result.data(), static_cast<uint32_t>(result.size()));
    if (c.forgotten) ForgetCachedRequest(cache);
    const uint8_t* hit = CachedResult(cache, c.askedKeySpec, c.askedMode, c.asked.data(),
                                      static_cast<uint32_t>(c.asked.size()));
    ASSERT_EQ(hit != nullptr, c.hit) << c.what;
    if (hit) EXPECT_EQ(Bytes(hit, hit + result.size()), result) << c.what;
    if (&c.stored != &largest) {
      EXPECT_EQ(CachedResult(cache, 1, 0, largest.data(), static_cast<uint32_t>(largest.size())),
                nullptr)
          << c.what << ": only the last request is kept";
    }
  }
}

}  // namespace
}  // namespace nivra::pkcs11
