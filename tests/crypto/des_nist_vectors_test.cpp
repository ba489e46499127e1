// DES and TDEA against the NIST CAVS known-answer (variable key and text, permutation and
// substitution tables) and multi-block message tests, ECB and CBC, in both directions, through the
// cipher framework. Every record is checked with the key as three 8-byte keys; records whose keys
// repeat are also checked in their short form (two-key TDEA, single DES).
#include <gtest/gtest.h>

#include "crypto/cipher.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// The key forms a record can be checked under: the full 24 bytes, and the shorter forms that mean
// the same cipher.
std::vector<Bytes> KeyForms(const RspRecord& r) {
  if (r.count("KEYs")) {
    const Bytes k = Hex(r.at("KEYs"));
    return {Concat(Concat(k, k), k), Concat(k, k), k};
  }
  const Bytes k1 = Hex(r.at("KEY1")), k2 = Hex(r.at("KEY2")), k3 = Hex(r.at("KEY3"));
  std::vector<Bytes> forms = {Concat(Concat(k1, k2), k3)};
  if (k3 == k1) forms.push_back(Concat(k1, k2));
  if (k1 == k2 && k2 == k3) forms.push_back(k1);
  return forms;
}

class DesNistVectors : public ::testing::TestWithParam<const char*> {};

// The final rewinds the chaining register, so the same context then decrypts from the IV.
TEST_P(DesNistVectors, EncryptAndDecryptEveryRecordOfBothModes) {
  // Record counts of the published files, so a short read cannot pass.
  const std::map<std::string, size_t> kRecords = {{"MMT1", 20},   {"MMT2", 20},  {"MMT3", 20},    {"invperm", 128},
                                                  {"permop", 64}, {"subtab", 38}, {"varkey", 112}, {"vartext", 128}};
  for (const bool cbc : {false, true}) {
    const std::string name = std::string(cbc ? "CBC/TCBC" : "ECB/TECB") + GetParam() + ".rsp";
    const auto records = ReadRsp(VectorPath("ciphers/3DES/" + name));
    ASSERT_EQ(records.size(), kRecords.at(GetParam())) << name;
    for (const auto& r : records) {
      const Bytes plain = Hex(r.at("PLAINTEXT")), cipher = Hex(r.at("CIPHERTEXT"));
      for (const Bytes& key : KeyForms(r)) {
        ScopedCipher c(key, CipherModeWord(cbc ? kCipherModeCbc : kCipherModeEcb, kCipherPadNone),
                       cbc ? Hex(r.at("IV")) : Bytes(8, 0));
        ASSERT_EQ(c.status(), kOk);
        const MessageRun enc = RunMessage(c.get(), plain, true), dec = RunMessage(c.get(), cipher, false);
        EXPECT_EQ(enc.final, kOk);
        EXPECT_EQ(enc.out, cipher) << name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
        EXPECT_EQ(dec.final, kOk);
        EXPECT_EQ(dec.out, plain) << name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Cavs, DesNistVectors,
                         ::testing::Values("MMT1", "MMT2", "MMT3", "invperm", "permop", "subtab", "varkey", "vartext"),
                         [](const ::testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

}  // namespace
}  // namespace nivra::testing
