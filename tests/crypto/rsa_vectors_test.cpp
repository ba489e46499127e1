// RSA and PKCS#1 against the published PKCS#1 test vectors (python3-cryptography-vectors): v1.5
// signatures (block type 1 built, signed by both private paths, verified by unpadding), RSAES-OAEP
// decryption with its seeds (MGF1 on both masks), and the published DER encodings of a key.
#include <gtest/gtest.h>

#include <utility>

#include "crypto/digest_info.h"
#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

std::vector<std::string> ReadLines(const std::string& path) {
  std::ifstream in(VectorPath("asymmetric/RSA/" + path));
  EXPECT_TRUE(in.good()) << "missing vector file " << path;
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    const size_t end = line.find_last_not_of(" \t\r");
    lines.push_back(line.substr(0, end == std::string::npos ? 0 : end + 1));
  }
  return lines;
}

// Appends the bytes of a line of hexadecimal byte pairs; false for any other line.
bool AppendHexLine(const std::string& line, Bytes& out) {
  if (line.empty()) return false;
  try {
    const Bytes bytes = Hex(line);
    out.insert(out.end(), bytes.begin(), bytes.end());
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// Each "# Label:" line with the hex lines under it, in file order.
std::vector<std::pair<std::string, Bytes>> ReadEntries(const std::string& path) {
  std::vector<std::pair<std::string, Bytes>> entries;
  bool open = false;
  for (const std::string& line : ReadLines(path)) {
    if (line.rfind("# ", 0) == 0 && line.back() == ':') {
      entries.push_back({line.substr(2, line.size() - 3), {}});
      open = true;
    } else if (!open || !AppendHexLine(line, entries.back().second)) {
      open = false;
    }
  }
  return entries;
}

struct Example {
  Bytes message, seed, result;  // result: "Signature" or "Encryption"; seed: OAEP only
};
struct VectorKey {
  Bytes n, e, d, p, q, dP, dQ, qInv;
  std::vector<Example> examples;
};

// Keys in the order of the file, each with the examples that follow it.
std::vector<VectorKey> ReadKeys(const std::string& path) {
  static const std::map<std::string, Bytes VectorKey::*> kComponents = {
      {"Modulus", &VectorKey::n},           {"Public exponent", &VectorKey::e},   {"Prime 1", &VectorKey::p},
      {"Prime 2", &VectorKey::q},           {"Prime exponent 1", &VectorKey::dP}, {"Prime exponent 2", &VectorKey::dQ},
      {"Coefficient", &VectorKey::qInv}};
  std::vector<VectorKey> keys;
  VectorKey current;
  for (const auto& [label, bytes] : ReadEntries(path)) {
    if (kComponents.count(label)) current.*kComponents.at(label) = bytes;
    else if (label == "Exponent") (current.e.empty() ? current.e : current.d) = bytes;  // public, then private
    else if (label == "Message to be signed" || label == "Message") keys.back().examples.push_back({bytes, {}, {}});
    else if (label == "Seed") keys.back().examples.back().seed = bytes;
    else if (label == "Signature" || label == "Encryption") keys.back().examples.back().result = bytes;
    if (label == "Coefficient") keys.push_back(std::exchange(current, VectorKey()));
  }
  return keys;
}

// A key built component by component, as a caller that holds the raw integers would.
KeyPtr BuildKey(const VectorKey& v, bool withCrt) {
  CRSA* raw = nullptr;
  EXPECT_EQ(RsaCreateKey(&raw), kOk);
  KeyPtr key(raw);
  const std::pair<uint32_t, const Bytes*> parts[] = {
      {kRsaComponentN, &v.n},   {kRsaComponentE, &v.e},   {kRsaComponentD, &v.d},   {kRsaComponentP, &v.p},
      {kRsaComponentQ, &v.q},   {kRsaComponentDP, &v.dP}, {kRsaComponentDQ, &v.dQ}, {kRsaComponentQInv, &v.qInv}};
  for (size_t i = 0; i < (withCrt ? 8u : 3u); ++i) {
    EXPECT_EQ(RsaSetKey(key.get(), parts[i].first, parts[i].second->data(), parts[i].second->size()), kOk);
  }
  EXPECT_EQ(key->hasCrt + key->hasPrivate + key->hasPublic, withCrt ? 3 : 2);
  return key;
}

// Keys 1 to 15 of 1024 to 2048 bits; keys 1, 7 (1025 bits), 13 (1031) and 15 (2048) are also
// signed through the private exponent alone.
TEST(RsaVectors, Pkcs1V15SignaturesMatchAndVerifyByUnpadding) {
  const std::vector<VectorKey> keys = ReadKeys("pkcs1v15sign-vectors.txt");
  ASSERT_EQ(keys.size(), 15u);
  for (size_t k = 0; k < keys.size(); ++k) {
    ASSERT_EQ(keys[k].examples.size(), 20u);
    const KeyPtr crt = BuildKey(keys[k], true);
    const KeyPtr plain = (k == 0 || k == 6 || k == 12 || k == 14) ? BuildKey(keys[k], false) : nullptr;
    const size_t len = crt->ModulusBytes();
    ASSERT_EQ(len, keys[k].n.size());
    for (const Example& ex : keys[k].examples) {
      uint8_t digest[20];
      ASSERT_EQ(Pkcs1Sha1(digest, ex.message.data(), ex.message.size(), nullptr, 0), kOk);
      Bytes info(35), block(len), signature(len), recovered(len);
      size_t written = 0;
      ASSERT_EQ(DigestInfoEncode(DigestAlgorithm::kSha1, digest, 20, info.data(), info.size(), &written), kOk);
      ASSERT_EQ(Pkcs1PadType1(block.data(), len, info.data(), info.size()), kOk);
      for (const CRSA* key : {crt.get(), plain.get()}) {
        if (key == nullptr) continue;
        size_t outLen = 0;
        ASSERT_EQ(RsaPrivate(key, block.data(), len, signature.data(), &outLen), kOk);
        EXPECT_EQ(outLen, len);
        EXPECT_EQ(signature, ex.result) << "key " << k + 1 << (key == crt.get() ? " CRT" : " exponent");
      }
      ASSERT_EQ(RsaPublic(crt.get(), ex.result.data(), len, recovered.data(), nullptr), kOk);
      const uint8_t* data = nullptr;
      size_t dataLen = 0;
      ASSERT_EQ(Pkcs1UnpadType1(recovered.data(), len, &data, &dataLen), kOk);
      EXPECT_EQ(Bytes(data, data + dataLen), info);
    }
  }
}

TEST(RsaVectors, OaepCiphertextsDecryptToTheirMessagesAndSeeds) {
  const std::vector<VectorKey> keys = ReadKeys("pkcs-1v2-1d2-vec/oaep-vect.txt");
  ASSERT_EQ(keys.size(), 10u);
  size_t checked = 0;
  for (const VectorKey& v : keys) {
    const KeyPtr key = BuildKey(v, true);
    const size_t len = key->ModulusBytes();
    for (const Example& ex : v.examples) {
      Bytes em(len), again(len), message(len), seed(20);
      ASSERT_EQ(RsaPrivate(key.get(), ex.result.data(), len, em.data(), nullptr), kOk);
      size_t messageLen = message.size();
      ASSERT_EQ(OaepDecode(message.data(), &messageLen, em.data(), len), kOk);
      message.resize(messageLen);
      EXPECT_EQ(message, ex.message);
      // The seed is EM[1..20] xor MGF1(maskedDB).
      ASSERT_EQ(Mgf1Sha1(seed.data(), 20, em.data() + 21, len - 21), kOk);
      EXPECT_EQ(XorBytes(seed, Bytes(em.begin() + 1, em.begin() + 21)), ex.seed);
      ASSERT_EQ(RsaPublic(key.get(), em.data(), len, again.data(), nullptr), kOk);
      EXPECT_EQ(again, ex.result);
      ++checked;
    }
  }
  EXPECT_EQ(checked, 60u);
}

// The example key's DER encodings as printed in oaep-int.txt: imported, and exported byte for byte
// (long length forms of one and two octets included).
TEST(RsaVectors, PublishedDerKeysImportAndExportByteForByte) {
  Bytes publicDer, privateDer, *into = nullptr;
  for (const std::string& line : ReadLines("pkcs-1v2-1d2-vec/oaep-int.txt")) {
    if (line == "# RSAPublicKey") into = &publicDer;
    else if (line == "# RSAPrivateKey") into = &privateDer;
    else if (line.rfind("# PrivateKeyInfo", 0) == 0) into = nullptr;
    else if (into != nullptr) AppendHexLine(line, *into);
  }
  ASSERT_EQ(publicDer.size(), 3u + 0x87u);
  ASSERT_EQ(privateDer.size(), 4u + 0x25Bu);
  CRSA* raw = nullptr;
  uint32_t bits = 0;
  ASSERT_EQ(RsaImportKey(&raw, &bits, kRsaFormPrivate, privateDer.data(), privateDer.size()), kOk);
  const KeyPtr key(raw);
  EXPECT_EQ(bits, 1024u);
  EXPECT_EQ(ExportKey(key.get(), kRsaFormPrivate), privateDer);
  EXPECT_EQ(ExportKey(key.get(), kRsaFormPublic), publicDer);
  EXPECT_EQ(ExportKey(ImportKey(kRsaFormPublic, publicDer).get(), kRsaFormPublic), publicDer);
}

}  // namespace
}  // namespace nivra::testing
