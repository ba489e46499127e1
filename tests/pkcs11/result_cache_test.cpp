// The one-entry cache of raw private-key results.
#include <gtest/gtest.h>

#include <vector>

#include "pkcs11/result_cache.h"

namespace nivra::pkcs11 {
namespace {

class ResultCache : public ::testing::Test {
 protected:
  void Store(uint32_t keySpec, uint32_t mode, const std::vector<uint8_t>& input) {
    CacheRequest(cache, keySpec, mode, input.data(), static_cast<uint32_t>(input.size()));
    CacheResult(cache, result.data(), static_cast<uint32_t>(result.size()));
  }
  const uint8_t* Lookup(uint32_t keySpec, uint32_t mode, const std::vector<uint8_t>& input) {
    return CachedResult(cache, keySpec, mode, input.data(), static_cast<uint32_t>(input.size()));
  }
  PrivateResultCache cache{};
  std::vector<uint8_t> result = std::vector<uint8_t>(128, 0x5A);
  std::vector<uint8_t> input = {1, 2, 3, 4, 5};
};

TEST_F(ResultCache, SameRequestIsAnsweredWithTheStoredBytes) {
  Store(2, 1, input);
  const uint8_t* hit = Lookup(2, 1, input);
  ASSERT_NE(hit, nullptr);
  EXPECT_EQ(std::vector<uint8_t>(hit, hit + result.size()), result);
}

TEST_F(ResultCache, AnyDifferenceIsAMiss) {
  Store(2, 1, input);
  EXPECT_EQ(Lookup(1, 1, input), nullptr) << "other key specification";
  EXPECT_EQ(Lookup(2, 2, input), nullptr) << "other mode";
  std::vector<uint8_t> lastByte = input;
  lastByte.back() ^= 1;
  EXPECT_EQ(Lookup(2, 1, lastByte), nullptr) << "other last byte";
  std::vector<uint8_t> shorter(input.begin(), input.end() - 1);
  EXPECT_EQ(Lookup(2, 1, shorter), nullptr) << "a prefix of the input";
  std::vector<uint8_t> longer = input;
  longer.push_back(0);
  EXPECT_EQ(Lookup(2, 1, longer), nullptr) << "the input and one more byte";
}

TEST_F(ResultCache, OnlyTheLastRequestIsKept) {
  Store(2, 1, input);
  const std::vector<uint8_t> other = {9, 9};
  Store(2, 1, other);
  EXPECT_EQ(Lookup(2, 1, input), nullptr);
  EXPECT_NE(Lookup(2, 1, other), nullptr);
}

TEST_F(ResultCache, RequestWithoutResultIsNotAnswered) {
  CacheRequest(cache, 2, 1, input.data(), static_cast<uint32_t>(input.size()));
  EXPECT_EQ(Lookup(2, 1, input), nullptr);
}

TEST_F(ResultCache, FailedOperationEmptiesTheCache) {
  Store(2, 1, input);
  ForgetCachedRequest(cache);
  EXPECT_EQ(Lookup(2, 1, input), nullptr);
  EXPECT_EQ(cache.keySpec, 0u);
  EXPECT_EQ(cache.inputLength, 0u);
}

TEST_F(ResultCache, InputsUpTo2048BytesAreCachedLongerOnesNever) {
  const std::vector<uint8_t> largest(2048, 0x11);
  Store(1, 0, largest);
  EXPECT_NE(Lookup(1, 0, largest), nullptr);
  const std::vector<uint8_t> tooLong(2049, 0x11);
  Store(1, 0, tooLong);
  EXPECT_EQ(Lookup(1, 0, tooLong), nullptr);
  EXPECT_EQ(Lookup(1, 0, largest), nullptr) << "the earlier entry is dropped as well";
}

}  // namespace
}  // namespace nivra::pkcs11
