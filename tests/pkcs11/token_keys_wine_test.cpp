// Key pairs, signatures, decryption and certificates on a SoftHSM2 token through CryptoAPI,
// checked from the native side and with OpenSSL.
#include <algorithm>
#include <string>
#include <thread>

#include "token_fixture.h"

namespace nivra::p11test {
namespace {

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

class TokenKeys : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    name = CaseName();
    prov = NewCryptContainer(name);
    ASSERT_NE(prov, 0u);
  }
  // The public key object of the pair, natively.
  NativeObject PublicObject(const std::string& suffix) {
    std::vector<NativeObject> found;
    for (const NativeObject& object : NativeObjectsWith("id", Hex(TextBytes(name + suffix))))
      if (object.at("class") == "2") found.push_back(object);
    EXPECT_EQ(found.size(), 1u) << "public keys " << name << suffix;
    return found.empty() ? NativeObject() : found[0];
  }
  Bytes SignSha1(DWORD keySpec, const Bytes& message) {
    Bytes signature;
    EXPECT_EQ(TokenTest::SignSha1(prov, keySpec, message, &signature), 0u);
    return signature;
  }
  std::string name;
  HCRYPTPROV prov = 0;
};

// The pair is on the token with the provider's templates (a private key that never leaves it),
// and its signatures verify with OpenSSL; a repeated one comes from the cache.
TEST_F(TokenKeys, PairOnTheTokenSignsForOpenSslAndRepeatsFromTheCache) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 2048u << 16, &key)) << std::hex << GetLastError();
  CryptDestroyKey(key);
  const auto objects = NativeObjectsWith("id", Hex(TextBytes(name + "_cspS")));
  ASSERT_EQ(objects.size(), 2u);
  // (Signing, decryption and the modulus's size show in what the keys do.)
  const NativeObject kPublic = {{"class", "2"}, {"token", "1"}};
  const NativeObject kPrivate = {{"class", "3"}, {"token", "1"}, {"sensitive", "1"}, {"private", "1"}};
  for (const NativeObject& object : objects) {
    for (const auto& [attribute, value] : object.at("class") == "2" ? kPublic : kPrivate)
      EXPECT_EQ(object.at(attribute), value) << attribute;
  }
  const NativeObject& pub = objects[0].at("class") == "2" ? objects[0] : objects[1];
  EXPECT_EQ(pub.at("public_exponent"), "010001");
  const Bytes message = TextBytes("signed on the token");
  const Bytes signature = SignSha1(AT_SIGNATURE, message);
  ASSERT_EQ(signature.size(), 256u);
  EXPECT_TRUE(NativeVerifiesSha1(FromHex(pub.at("modulus")), FromHex(pub.at("public_exponent")),
                                 message, signature));
  EXPECT_FALSE(NativeVerifiesSha1(FromHex(pub.at("modulus")), FromHex(pub.at("public_exponent")),
                                  TextBytes("another message"), signature))
      << "the check itself can fail";

  Control("reset-counts");
  EXPECT_EQ(SignSha1(AT_SIGNATURE, message), signature);
  EXPECT_EQ(Control("count C_Decrypt"), "0") << "the repeated request does not reach the token";
  EXPECT_EQ(Control("count C_DecryptInit"), "0");
  SignSha1(AT_SIGNATURE, TextBytes("something else"));
  EXPECT_EQ(Control("count C_Decrypt"), "1");
}

// A repeated request after the pair was replaced is answered by the new pair: neither the result
// remembered for the old pair nor the handles of its destroyed objects are used. (Imported pairs
// replacing each other sign for OpenSSL in the command-line tests.)
TEST_F(TokenKeys, RepeatedSignatureAfterReplacingThePairIsTheNewKeys) {
  const Bytes message = TextBytes("asked again after the pair changed");
  Bytes previous;
  for (int round = 0; round < 2; ++round) {
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key)) << std::hex << GetLastError();
    CryptDestroyKey(key);
    const Bytes signature = SignSha1(AT_KEYEXCHANGE, message);
    const NativeObject pub = PublicObject("_cspX");
    EXPECT_TRUE(NativeVerifiesSha1(FromHex(pub.at("modulus")), FromHex(pub.at("public_exponent")),
                                   message, signature))
        << round;
    EXPECT_NE(signature, previous);
    previous = signature;
  }
}

// Two contexts sign on one slot at once; each signature is the one the token makes alone (v1.5
// signatures are deterministic).
TEST_F(TokenKeys, ConcurrentSignaturesOnOneSlotAreTheTokensOwn) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024u << 16, &key));
  CryptDestroyKey(key);
  HCRYPTPROV second = 0;
  ASSERT_EQ(CryptAcquire(OnToken(name), 0, &second), 0u);
  auto message = [](int index, int round) {
    return TextBytes(std::to_string(index) + " signs round " + std::to_string(round));
  };
  std::vector<Bytes> signatures[2];
  auto worker = [&](int index) {
    for (int round = 0; round < 20; ++round) {
      signatures[index].emplace_back();
      TokenTest::SignSha1(index ? second : prov, AT_SIGNATURE, message(index, round),
                          &signatures[index].back());
    }
  };
  std::thread other(worker, 1);
  worker(0);
  other.join();
  for (int index : {0, 1}) {
    for (int round = 0; round < 20; ++round)
      EXPECT_EQ(SignSha1(AT_SIGNATURE, message(index, round)), signatures[index][round]) << round;
  }
}

// (PKCS#1 v1.5 key transport is opened through the token in the command-line tests.)
TEST_F(TokenKeys, OaepMessagesEncryptedByOpenSslDecryptOnTheToken) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key));
  const NativeObject pub = PublicObject("_cspX");
  const Bytes message = TextBytes("a session key's worth");
  Bytes data = Reversed(NativeEncrypt("oaep", FromHex(pub.at("modulus")),
                                      FromHex(pub.at("public_exponent")), message));
  ASSERT_EQ(data.size(), 128u);
  DWORD length = static_cast<DWORD>(data.size());
  ASSERT_TRUE(CryptDecrypt(key, 0, TRUE, CRYPT_OAEP, data.data(), &length)) << std::hex << GetLastError();
  EXPECT_EQ(Bytes(data.begin(), data.begin() + length), message);
  CryptDestroyKey(key);
}

}  // namespace
}  // namespace nivra::p11test
