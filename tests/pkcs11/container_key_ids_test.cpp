// Key IDs that tie key objects to their container: the key-ID record and the derived form.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "pkcs11/token_containers.h"

namespace nivra::pkcs11 {
namespace {

std::string Text(const KeyIdView& view) {
  return std::string(reinterpret_cast<const char*>(view.bytes), view.length);
}

TEST(KeyIdRecord, SplitsAtTheLengthsOfItsHeader) {
  // S = 2, X = 3, two reserved bytes whose value does not matter.
  const uint8_t record[] = {2, 3, 0xAA, 0x55, 'k', '1', 'k', '2', 'x'};
  KeyIdView signature{};
  KeyIdView exchange{};
  ASSERT_TRUE(SplitKeyIdRecord(record, sizeof(record), &signature, &exchange));
  EXPECT_EQ(Text(signature), "k1");
  EXPECT_EQ(Text(exchange), "k2x");
  EXPECT_EQ(signature.bytes, record + 4);
  EXPECT_EQ(exchange.bytes, record + 6);
}

TEST(KeyIdRecord, RecordShorterThanItsLengthsIsRefused) {
  const uint8_t record[] = {2, 3, 0, 0, 'k', '1', 'k', '2'};  // one exchange byte missing
  KeyIdView signature{};
  KeyIdView exchange{};
  EXPECT_FALSE(SplitKeyIdRecord(record, sizeof(record), &signature, &exchange));
  EXPECT_FALSE(SplitKeyIdRecord(record, 3, &signature, &exchange));  // no whole header
}

TEST(KeyIdRecord, EmptyIdsAreAllowed) {
  const uint8_t record[] = {0, 0, 0, 0};
  KeyIdView signature{};
  KeyIdView exchange{};
  ASSERT_TRUE(SplitKeyIdRecord(record, sizeof(record), &signature, &exchange));
  EXPECT_EQ(signature.length, 0u);
  EXPECT_EQ(exchange.length, 0u);
}

class DerivedKeyId : public ::testing::Test {
 protected:
  void SetName(const char* name) { std::strcpy(ctx.containerName, name); }
  std::string Build(uint32_t keySpec) {
    uint8_t buffer[300] = {};
    uint32_t length = sizeof(buffer);
    EXPECT_EQ(BuildKeyId(ctx, keySpec, buffer, &length), 0u);
    return std::string(reinterpret_cast<const char*>(buffer), length);
  }
  provider::ProviderContext ctx{};
};

TEST_F(DerivedKeyId, SignatureEndsInSAndEveryOtherSpecInX) {
  SetName("c1");
  EXPECT_EQ(Build(2), "c1_cspS");
  EXPECT_EQ(Build(1), "c1_cspX");
  EXPECT_EQ(Build(3), "c1_cspX");
  EXPECT_EQ(Build(0), "c1_cspX");
}

TEST_F(DerivedKeyId, NoBufferReportsTheLengthAndAShortBufferGivesMoreData) {
  SetName("container");
  uint32_t length = 0;
  EXPECT_EQ(BuildKeyId(ctx, 2, nullptr, &length), 0u);
  EXPECT_EQ(length, 14u);  // 9 characters and "_cspS", no NUL

  uint8_t buffer[13];
  std::memset(buffer, 0xEE, sizeof(buffer));
  length = sizeof(buffer);
  EXPECT_EQ(BuildKeyId(ctx, 2, buffer, &length), 234u);
  EXPECT_EQ(length, 14u);
  EXPECT_EQ(buffer[0], 0xEE) << "nothing is written into a buffer that is too small";

  uint8_t exact[14];
  length = sizeof(exact);
  EXPECT_EQ(BuildKeyId(ctx, 1, exact, &length), 0u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(exact), 14), "container_cspX");
}

TEST_F(DerivedKeyId, EmptyNameGivesTheBareSuffix) {
  SetName("");
  EXPECT_EQ(Build(2), "_cspS");
}

}  // namespace
}  // namespace nivra::pkcs11
