// DES and TDEA against the NIST CAVS known-answer (variable key and text, permutation and
// substitution tables) and multi-block message tests, ECB and CBC, in both directions, through the
// cipher framework. Every record is checked with the key as three 8-byte keys; records whose keys
// repeat are also checked in their short form (two-key TDEA, single DES).
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using crypto::CipherModeWord;
using crypto::kCipherModeCbc;
using crypto::kCipherModeEcb;
using crypto::kCipherPadNone;
using crypto::kOk;

struct VectorFile {
  std::string folder;  // "ECB" or "CBC"
  std::string name;
  size_t records;
};

std::string PathOf(const VectorFile& f) {
  return std::string(NIVRA_VECTORS_DIR) + "/ciphers/3DES/" + f.folder + "/" + f.name;
}

// The key variants a record can be checked under: the full 24 bytes, and the shorter forms
// that mean the same cipher.
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

// "TECBMMT1.rsp" -> "MMT1"
std::string TestName(const ::testing::TestParamInfo<VectorFile>& info) {
  const std::string& name = info.param.name;
  return name.substr(4, name.size() - 8);
}

class DesNistVectors : public ::testing::TestWithParam<VectorFile> {};

TEST_P(DesNistVectors, EncryptAndDecryptEveryRecord) {
  const VectorFile file = GetParam();
  const auto records = ReadRsp(PathOf(file));
  ASSERT_EQ(records.size(), file.records);
  const bool cbc = file.folder == "CBC";
  const uint32_t modeWord = CipherModeWord(cbc ? kCipherModeCbc : kCipherModeEcb, kCipherPadNone);
  size_t checked = 0;
  for (const auto& r : records) {
    const Bytes plain = Hex(r.at("PLAINTEXT"));
    const Bytes cipher = Hex(r.at("CIPHERTEXT"));
    const Bytes iv = cbc ? Hex(r.at("IV")) : Bytes(8, 0);
    for (const Bytes& key : KeyForms(r)) {
      ScopedCipher c(key, modeWord, iv);
      ASSERT_EQ(c.status(), kOk);
      const MessageRun enc = RunMessage(c.get(), plain, true);
      EXPECT_EQ(enc.update, kOk);
      EXPECT_EQ(enc.final, kOk);
      EXPECT_EQ(enc.out, cipher) << file.name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
      // The final rewound the chaining register, so the same context decrypts from the IV.
      const MessageRun dec = RunMessage(c.get(), cipher, false);
      EXPECT_EQ(dec.update, kOk);
      EXPECT_EQ(dec.final, kOk);
      EXPECT_EQ(dec.out, plain) << file.name << " COUNT=" << r.at("COUNT") << " keyLen=" << key.size();
      ++checked;
    }
  }
  EXPECT_GE(checked, file.records);
}

// The eight CAVS files of one mode: multi-block messages with 1, 2 and 3 distinct keys, then the
// known-answer tests. Record counts are those of the published files.
std::vector<VectorFile> FilesOf(const char* folder, const char* prefix) {
  static const std::pair<const char*, size_t> kKinds[] = {
      {"MMT1", 20},    {"MMT2", 20},   {"MMT3", 20},    {"invperm", 128},
      {"permop", 64},  {"subtab", 38}, {"varkey", 112}, {"vartext", 128}};
  std::vector<VectorFile> files;
  for (const auto& [kind, records] : kKinds) {
    files.push_back({folder, std::string(prefix) + kind + ".rsp", records});
  }
  return files;
}

INSTANTIATE_TEST_SUITE_P(Ecb, DesNistVectors, ::testing::ValuesIn(FilesOf("ECB", "TECB")), TestName);
INSTANTIATE_TEST_SUITE_P(Cbc, DesNistVectors, ::testing::ValuesIn(FilesOf("CBC", "TCBC")), TestName);

}  // namespace
}  // namespace nivra::testing
