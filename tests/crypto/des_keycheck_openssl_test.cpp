// The key-check tables against OpenSSL's own DES key checks.
#include <gtest/gtest.h>

#include <cstring>

#include "cipher_openssl_support.h"
#include "crypto/des.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

TEST(DesKeyChecksOpenSsl, ParityVerdictMatchesForEveryByteValue) {
  for (unsigned v = 0; v < 256; ++v) {
    DES_cblock key = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
    key[3] = static_cast<uint8_t>(v);
    const bool opensslOk = DES_check_key_parity(&key) == 1;
    EXPECT_EQ(DesCheckKey(key) != kErrKeyParity, opensslOk) << v;
  }
}

// OpenSSL's weak-key verdict on random keys and on every key of our table's 8-byte patterns
// with one byte changed: ours agrees, so the table neither misses nor adds a key.
TEST(DesKeyChecksOpenSsl, WeakVerdictMatchesNearTheWeakKeys) {
  const char* const weak[] = {"0101010101010101", "fefefefefefefefe", "e0e0e0e0f1f1f1f1", "1f1f1f1f0e0e0e0e",
                              "01fe01fe01fe01fe", "fe01fe01fe01fe01", "1fe01fe00ef10ef1", "e01fe01ff10ef10e",
                              "01e001e001f101f1", "e001e001f101f101", "1ffe1ffe0efe0efe", "fe1ffe1ffe0efe0e",
                              "011f011f010e010e", "1f011f010e010e01", "e0fee0fef1fef1fe", "fee0fee0fef1fef1"};
  int weakSeen = 0;
  for (const char* text : weak) {
    const Bytes base = Hex(text);
    for (size_t pos = 0; pos < 8; ++pos) {
      for (uint8_t replacement : {base[pos], uint8_t{0x01}, uint8_t{0xFE}, uint8_t{0x1F}, uint8_t{0xE0}}) {
        DES_cblock key;
        std::memcpy(key, base.data(), 8);
        key[pos] = replacement;
        const bool opensslWeak = DES_is_weak_key(&key) == 1;
        EXPECT_EQ(DesCheckKey(key) == kErrWeakKey, opensslWeak) << text << " pos " << pos;
        weakSeen += opensslWeak;
      }
    }
  }
  EXPECT_GE(weakSeen, 16 * 8);
}

// A weak key encrypts as its own inverse, and each semi-weak key is undone by its partner: the
// table's pairs are what they claim to be.
TEST(DesKeyChecksOpenSsl, SemiWeakPairsInvertEachOther) {
  const char* const pairs[][2] = {{"01fe01fe01fe01fe", "fe01fe01fe01fe01"}, {"1fe01fe00ef10ef1", "e01fe01ff10ef10e"},
                                  {"01e001e001f101f1", "e001e001f101f101"}, {"1ffe1ffe0efe0efe", "fe1ffe1ffe0efe0e"},
                                  {"011f011f010e010e", "1f011f010e010e01"}, {"e0fee0fef1fef1fe", "fee0fee0fef1fef1"}};
  const Bytes block = Hex("0123456789abcdef");
  for (const auto& p : pairs) {
    const Bytes a = Hex(p[0]), b = Hex(p[1]);
    EXPECT_EQ(DesCheckKey(a.data()), kErrWeakKey);
    EXPECT_EQ(DesCheckKey(b.data()), kErrWeakKey);
    EXPECT_EQ(OpenSslDes(b).Single(0, OpenSslDes(a).Single(0, block, true), true), block) << p[0];
  }
}

}  // namespace
}  // namespace nivra::testing
