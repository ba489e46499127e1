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

TEST(DesKeyChecksOpenSsl, WeakVerdictMatchesOnWeakKeysAndNeighbours) {
  // Every odd-parity key built from the byte values that weak keys use.
  const uint8_t halves[][4] = {{0x01, 0x01, 0x01, 0x01}, {0xFE, 0xFE, 0xFE, 0xFE}, {0xE0, 0xE0, 0xE0, 0xE0},
                               {0x1F, 0x1F, 0x1F, 0x1F}, {0x01, 0xFE, 0x01, 0xFE}, {0xFE, 0x01, 0xFE, 0x01},
                               {0x1F, 0xE0, 0x1F, 0xE0}, {0xE0, 0x1F, 0xE0, 0x1F}, {0x01, 0xE0, 0x01, 0xE0},
                               {0xE0, 0x01, 0xE0, 0x01}, {0x1F, 0xFE, 0x1F, 0xFE}, {0xFE, 0x1F, 0xFE, 0x1F},
                               {0x01, 0x1F, 0x01, 0x1F}, {0x1F, 0x01, 0x1F, 0x01}, {0xE0, 0xFE, 0xE0, 0xFE},
                               {0xFE, 0xE0, 0xFE, 0xE0}};
  const uint8_t tails[][4] = {{0x01, 0x01, 0x01, 0x01}, {0xFE, 0xFE, 0xFE, 0xFE}, {0xF1, 0xF1, 0xF1, 0xF1},
                              {0x0E, 0x0E, 0x0E, 0x0E}, {0x01, 0xFE, 0x01, 0xFE}, {0xFE, 0x01, 0xFE, 0x01},
                              {0x0E, 0xF1, 0x0E, 0xF1}, {0xF1, 0x0E, 0xF1, 0x0E}, {0x01, 0xF1, 0x01, 0xF1},
                              {0xF1, 0x01, 0xF1, 0x01}, {0x0E, 0xFE, 0x0E, 0xFE}, {0xFE, 0x0E, 0xFE, 0x0E},
                              {0x01, 0x0E, 0x01, 0x0E}, {0x0E, 0x01, 0x0E, 0x01}, {0xF1, 0xFE, 0xF1, 0xFE},
                              {0xFE, 0xF1, 0xFE, 0xF1}};
  int weak = 0;
  for (const auto& head : halves) {
    for (const auto& tail : tails) {
      DES_cblock key;
      std::memcpy(key, head, 4);
      std::memcpy(key + 4, tail, 4);
      const bool opensslWeak = DES_is_weak_key(&key) == 1;
      EXPECT_EQ(DesCheckKey(key) == kErrWeakKey, opensslWeak);
      weak += opensslWeak;
    }
  }
  EXPECT_EQ(weak, 16);
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
