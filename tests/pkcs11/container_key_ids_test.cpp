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

TEST(KeyIdRecord, SplitsAtTheLengthsOfItsHeaderAndRefusesShortRecords) {
  // S = 2, X = 3, two reserved bytes whose value does not matter.
  const uint8_t record[] = {2, 3, 0xAA, 0x55, 'k', '1', 'k', '2', 'x'};
  const uint8_t empty[] = {0, 0, 0, 0};
  const struct {
    const uint8_t* bytes;
    size_t length;
    bool split;
    const char *signature, *exchange;
  } cases[] = {{record, sizeof record, true, "k1", "k2x"},
               {record, sizeof record - 1, false, "", ""},  // one exchange byte missing
               {record, 3, false, "", ""},                  // no whole header
               {empty, sizeof empty, true, "", ""}};
  for (const auto& c : cases) {
    KeyIdView signature{}, exchange{};
    ASSERT_EQ(SplitKeyIdRecord(c.bytes, c.length, &signature, &exchange), c.split) << c.length;
    if (!c.split) continue;
    EXPECT_EQ(Text(signature), c.signature);
    EXPECT_EQ(Text(exchange), c.exchange);
  }
}

// The suffixes themselves are read from the token's objects in the token tests.
TEST(DerivedKeyId, TheLengthProtocol) {
  provider::ProviderContext ctx{};
  std::strcpy(ctx.containerName, "container");
  for (uint32_t capacity : {0u, 13u, 14u}) {  // 0: no buffer
    uint8_t buffer[14];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = capacity;
    EXPECT_EQ(BuildKeyId(ctx, 2, capacity ? buffer : nullptr, &length), capacity == 13 ? 234u : 0u);
    EXPECT_EQ(length, 14u) << "9 characters and the suffix, no NUL";
    EXPECT_EQ(buffer[0], capacity == 14 ? 'c' : 0xEE) << "nothing written into a short buffer";
  }
}

}  // namespace
}  // namespace nivra::pkcs11
