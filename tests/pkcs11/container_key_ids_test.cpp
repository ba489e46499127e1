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

TEST(DerivedKeyId, SuffixByKeySpecAndTheLengthProtocol) {
  provider::ProviderContext ctx{};
  std::strcpy(ctx.containerName, "container");
  const struct {
    uint32_t keySpec;
    uint32_t capacity;  // 0: no buffer
    uint32_t status;
    const char* id;  // null: nothing written
  } cases[] = {{2, 0, 0, nullptr},      {2, 13, 234, nullptr},  {2, 14, 0, "container_cspS"},
               {1, 20, 0, "container_cspX"}, {3, 20, 0, "container_cspX"}, {0, 20, 0, "container_cspX"}};
  for (const auto& c : cases) {
    uint8_t buffer[20];
    std::memset(buffer, 0xEE, sizeof buffer);
    uint32_t length = c.capacity;
    EXPECT_EQ(BuildKeyId(ctx, c.keySpec, c.capacity ? buffer : nullptr, &length), c.status);
    EXPECT_EQ(length, 14u) << "9 characters and the suffix, no NUL";
    if (c.id) EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 14), c.id);
    else EXPECT_EQ(buffer[0], 0xEE) << "nothing written into a buffer that is too small";
  }
  ctx.containerName[0] = '\0';
  uint32_t length = 0;
  EXPECT_EQ(BuildKeyId(ctx, 2, nullptr, &length), 0u);
  EXPECT_EQ(length, 5u) << "an empty name gives the bare suffix";
}

}  // namespace
}  // namespace nivra::pkcs11
