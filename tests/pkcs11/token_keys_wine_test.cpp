// Key pairs, signatures, decryption and certificates on a SoftHSM2 token through CryptoAPI,
// checked from the native side and with OpenSSL.
#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "software_keys.h"
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
    for (const NativeObject& object : NativeObjectsWith("id", Hex(TextBytes(name + suffix)))) {
      if (object.at("class") == "2") return object;
    }
    ADD_FAILURE() << "no public key " << name << suffix;
    return {};
  }
  Bytes SignSha1(DWORD keySpec, const Bytes& message) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash));
    EXPECT_TRUE(CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0));
    DWORD length = 0;
    EXPECT_TRUE(CryptSignHashW(hash, keySpec, nullptr, 0, nullptr, &length)) << std::hex << GetLastError();
    Bytes signature(length);
    EXPECT_TRUE(CryptSignHashW(hash, keySpec, nullptr, 0, signature.data(), &length))
        << std::hex << GetLastError();
    CryptDestroyHash(hash);
    return Reversed(signature);  // CryptoAPI gives it least significant byte first
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
  const NativeObject kPublic = {{"class", "2"}, {"token", "1"}, {"key_type", "0"}, {"encrypt", "1"},
                                {"verify", "1"}, {"wrap", "1"}, {"modulus_bits", "2048"}};
  const NativeObject kPrivate = {{"class", "3"}, {"token", "1"}, {"key_type", "0"}, {"sensitive", "1"},
                                 {"sign", "1"}, {"decrypt", "1"}, {"private", "1"}};
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
// remembered for the old pair nor the handles of its destroyed objects are used. An imported pair
// is stored complete (SoftHSM2 wants every private component: the import falls back to the
// complete key, leaving nothing of the refused first attempt) and signs for its own modulus.
TEST_F(TokenKeys, RepeatedSignatureAfterReplacingThePairIsTheNewKeys) {
  const Bytes message = TextBytes("asked again after the pair changed");
  for (const bool import : {false, true}) {
    SCOPED_TRACE(import ? "import" : "generation");
    Bytes previous;
    for (int round = 0; round < 2; ++round) {
      HCRYPTKEY key = 0;
      const Bytes blob = import ? SoftwarePrivateKeyBlob() : Bytes();
      if (import) {
        ASSERT_TRUE(CryptImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key))
            << std::hex << GetLastError();
      } else {
        ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key)) << std::hex << GetLastError();
      }
      CryptDestroyKey(key);
      const Bytes signature = SignSha1(AT_KEYEXCHANGE, message);
      const NativeObject pub = PublicObject("_cspX");
      EXPECT_TRUE(NativeVerifiesSha1(FromHex(pub.at("modulus")), FromHex(pub.at("public_exponent")),
                                     message, signature))
          << "round " << round;
      if (import) {
        EXPECT_EQ(FromHex(pub.at("modulus")), Reversed(Bytes(blob.begin() + 20, blob.begin() + 148)));
        EXPECT_EQ(CountInModule(CKO_PRIVATE_KEY, name + "_cspX"), 1u);
      }
      EXPECT_NE(signature, previous);
      previous = signature;
    }
  }
}

// Two contexts sign on one slot at once, and each signature is checked through the token's public
// key (a tampered one is refused).
TEST_F(TokenKeys, ConcurrentSignaturesOnOneSlotAllVerify) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024u << 16, &key));
  CryptDestroyKey(key);
  HCRYPTPROV second = 0;
  ASSERT_EQ(CryptAcquire(OnToken(name), 0, &second), 0u);
  int verified[2] = {0, 0};
  auto worker = [&](int index) {
    const HCRYPTPROV own = index == 0 ? prov : second;
    HCRYPTKEY publicKey = 0;
    if (!CryptGetUserKey(own, AT_SIGNATURE, &publicKey)) return;
    for (int round = 0; round < 20; ++round) {
      const Bytes message = TextBytes(std::to_string(index) + " signs round " + std::to_string(round));
      HCRYPTHASH hash = 0;
      BYTE signature[128];
      DWORD length = sizeof(signature);
      if (CryptCreateHash(own, CALG_SHA1, 0, 0, &hash) &&
          CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0) &&
          CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature, &length) &&
          CryptVerifySignatureW(hash, signature, length, publicKey, nullptr, 0)) {
        signature[round] ^= 1;
        verified[index] += !CryptVerifySignatureW(hash, signature, length, publicKey, nullptr, 0);
      }
      if (hash != 0) CryptDestroyHash(hash);
    }
    CryptDestroyKey(publicKey);
  };
  std::thread other(worker, 1);
  worker(0);
  other.join();
  EXPECT_EQ(verified[0], 20);
  EXPECT_EQ(verified[1], 20);
}

TEST_F(TokenKeys, MessagesEncryptedByOpenSslDecryptOnTheToken) {
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key));
  const NativeObject pub = PublicObject("_cspX");
  const Bytes message = TextBytes("a session key's worth");
  for (const char* padding : {"pkcs1", "oaep"}) {
    Bytes data = Reversed(NativeEncrypt(padding, FromHex(pub.at("modulus")),
                                        FromHex(pub.at("public_exponent")), message));
    ASSERT_EQ(data.size(), 128u) << padding;
    DWORD length = static_cast<DWORD>(data.size());
    ASSERT_TRUE(CryptDecrypt(key, 0, TRUE, padding[0] == 'o' ? CRYPT_OAEP : 0, data.data(), &length))
        << padding << " " << std::hex << GetLastError();
    EXPECT_EQ(Bytes(data.begin(), data.begin() + length), message) << padding;
  }
  CryptDestroyKey(key);
}

Bytes VectorCertificate() {
  std::ifstream in("Z:/usr/lib/python3/dist-packages/cryptography_vectors/x509/san_edipartyname.der",
                   std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST_F(TokenKeys, CertificateIsStoredWithASubjectAndReadBack) {
  const Bytes cert = VectorCertificate();
  ASSERT_EQ(cert.size(), 702u) << "test vector missing";
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key));
  ASSERT_TRUE(CryptSetKeyParam(key, KP_CERTIFICATE, cert.data(), 0)) << std::hex << GetLastError();
  ASSERT_TRUE(CryptSetKeyParam(key, KP_CERTIFICATE, cert.data(), 0)) << "the same one again";
  std::vector<NativeObject> certs;
  for (const NativeObject& object : NativeObjectsWith("id", Hex(TextBytes(name + "_cspX")))) {
    if (object.at("class") == "1") certs.push_back(object);
  }
  ASSERT_EQ(certs.size(), 1u) << "written once";
  EXPECT_EQ(CountInModule(CKO_CERTIFICATE, name + "_cspX"), 1u)
      << "nothing is left of the refused first attempt";
  EXPECT_EQ(certs[0].at("certificate_type"), "0");
  EXPECT_EQ(certs[0].at("label"), "00");
  EXPECT_EQ(certs[0].at("token"), "1");
  EXPECT_EQ(FromHex(certs[0].at("value")), cert);
  // SoftHSM2 refuses a certificate without a subject: the certificate's own one was added.
  EXPECT_EQ(FromHex(certs[0].at("subject")), Bytes(cert.begin() + 105, cert.begin() + 166));

  DWORD length = 0;
  ASSERT_TRUE(CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &length, 0)) << std::hex << GetLastError();
  Bytes back(length);
  ASSERT_TRUE(CryptGetKeyParam(key, KP_CERTIFICATE, back.data(), &length, 0));
  EXPECT_EQ(back, cert);
  CryptDestroyKey(key);
}

}  // namespace
}  // namespace nivra::p11test
