// The handshake and frame protection against OpenSSL as the independent peer: OpenSSL encrypts
// session secrets to the hello's key and checks the check block and wrapped bodies; every
// malformed session-key frame and secret is refused with its own result.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <memory>

#include "crypto/rsa_key.h"
#include "service/frames/card_key_exchange.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_codes.h"
#include "service/frames/session_handshake.h"

namespace nivra::frames {
namespace {

constexpr size_t kK = 128;  // a 1024-bit transport key keeps the tests quick

Bytes OpenSslTdes(const uint8_t* key, const Bytes& in, bool encrypt) {
  const uint8_t iv[8] = {};
  std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> ctx(EVP_CIPHER_CTX_new(),
                                                                      EVP_CIPHER_CTX_free);
  Bytes out(in.size() + 8);
  int n = 0, m = 0;
  const bool ok =
      EVP_CipherInit_ex(ctx.get(), EVP_des_ede_cbc(), nullptr, key, iv, encrypt) == 1 &&
      EVP_CipherUpdate(ctx.get(), out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
      EVP_CipherFinal_ex(ctx.get(), out.data() + n, &m) == 1;
  EXPECT_TRUE(ok);
  out.resize(ok ? static_cast<size_t>(n + m) : 0);
  return out;
}

class SessionFrames : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    ASSERT_EQ(crypto::RsaGenerateNewKey(&key_, 8 * kK, 65537), crypto::kOk);
  }
  static void TearDownTestSuite() { crypto::RsaFreeKey(key_); }

  Bytes HelloKey() {
    Bytes hello;
    EXPECT_EQ(BuildHello(key_, &hello), FrameStatus::kOk);
    // The hello carries format 2 and the DER public key.
    EXPECT_EQ(Bytes(hello.begin(), hello.begin() + 2), (Bytes{0x11, 0x10}));
    EXPECT_EQ(Bytes(hello.begin() + 8, hello.begin() + 11), (Bytes{2, 0, 0x30}));
    const uint8_t* der = nullptr;
    size_t derLen = 0;
    EXPECT_EQ(ParseHelloBody(hello.data() + 8, hello.size() - 8, &der, &derLen), FrameStatus::kOk);
    return Bytes(der, der + derLen);
  }

  // The session-key frame as OpenSSL makes it from the hello's public key.
  Bytes OpenSslSessionKeyFrame(const Bytes& secret) {
    const Bytes der = HelloKey();
    const uint8_t* p = der.data();
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> pkey(
        d2i_PublicKey(EVP_PKEY_RSA, nullptr, &p, static_cast<long>(der.size())), EVP_PKEY_free);
    EXPECT_NE(pkey, nullptr);
    std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
        EVP_PKEY_CTX_new(pkey.get(), nullptr), EVP_PKEY_CTX_free);
    size_t len = kK;
    Bytes frame = {0x11, 0x90, kK + 2, 0, 0, 0, 0, 0, 2, 0};
    frame.resize(10 + kK);
    EXPECT_TRUE(EVP_PKEY_encrypt_init(ctx.get()) == 1 &&
                EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) == 1 &&
                EVP_PKEY_encrypt(ctx.get(), frame.data() + 10, &len, secret.data(),
                                 secret.size()) == 1 &&
                len == kK);
    return frame;
  }

  // The module's side of the handshake over one received frame.
  FrameStatus Finish(const Bytes& frame, CipherOwner* cipher) {
    const uint8_t* encrypted = nullptr;
    FrameStatus status = ParseSessionKeyFrame(frame.data(), frame.size(), kK, &encrypted);
    if (status != FrameStatus::kOk) return status;
    Bytes secret;
    status = DecryptSessionSecret(key_, encrypted, kK, &secret);
    if (status != FrameStatus::kOk) return status;
    return OpenSessionSecret(secret.data(), secret.size(), cipher->Out());
  }

  static Bytes SecretWithCheck(const Bytes& key, const Bytes& checkPlain) {
    Bytes secret = key;
    const Bytes check = OpenSslTdes(key.data(), checkPlain, true);
    secret.insert(secret.end(), check.begin(), check.end());
    return secret;
  }

  static crypto::RsaHandle key_;
};
crypto::RsaHandle SessionFrames::key_ = 0;

const Bytes kSessionKey = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                           0xFE, 0xDC, 0xBA, 0x98, 0x76, 0x54, 0x32, 0x10};

TEST_F(SessionFrames, SecretFromOpenSslOpensASessionThatWrapsLikeOpenSsl) {
  CipherOwner cipher;
  ASSERT_EQ(Finish(OpenSslSessionKeyFrame(SecretWithCheck(kSessionKey, Bytes(4))), &cipher),
            FrameStatus::kOk);
  const Bytes plain = {0x11, 0x70, 5, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5};
  Bytes wrapped;
  ASSERT_EQ(WrapFrame(cipher.Get(), plain.data(), plain.size(), &wrapped), FrameStatus::kOk);
  const Bytes expected = OpenSslTdes(kSessionKey.data(), Bytes(plain.begin() + 8, plain.end()), true);
  EXPECT_EQ(Bytes(wrapped.begin(), wrapped.begin() + 8), (Bytes{0x11, 0x70, 8, 0, 0, 0, 0, 0}));
  EXPECT_EQ(Bytes(wrapped.begin() + 8, wrapped.end()), expected);
  // Every frame starts again from the zero IV.
  Bytes twice;
  ASSERT_EQ(WrapFrame(cipher.Get(), plain.data(), plain.size(), &twice), FrameStatus::kOk);
  EXPECT_EQ(twice, wrapped);
  Bytes back;
  ASSERT_EQ(UnwrapFrame(cipher.Get(), wrapped.data(), wrapped.size(), &back), FrameStatus::kOk);
  EXPECT_EQ(back, plain);
}

// The service's secret carries the agreed check block: four zero bytes under the session key.
// That the module opens the service's session-key frame is every exchange with the real service.
// A card's key travels as DER that OpenSSL reads, and the module's secret for the card under
// the card's own command.
TEST_F(SessionFrames, ServiceCheckBlockAndCardKeyAsOpenSslReadsThem) {
  uint8_t secret[kSessionSecretSize];
  ASSERT_EQ(MakeSessionSecret(secret), FrameStatus::kOk);
  EXPECT_EQ(OpenSslTdes(secret, Bytes(secret + 16, secret + 24), false), Bytes(4));
  Bytes cardKey;
  ASSERT_EQ(BuildCardKeyFrame(key_, 0, &cardKey), FrameStatus::kOk);
  const uint8_t* der = nullptr;
  size_t derLen = 0;
  ASSERT_EQ(ParseCardKeyFrame(cardKey.data(), cardKey.size(), &der, &derLen), FrameStatus::kOk);
  const uint8_t* p = der;
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> pkey(
      d2i_PublicKey(EVP_PKEY_RSA, nullptr, &p, static_cast<long>(derLen)), EVP_PKEY_free);
  ASSERT_NE(pkey, nullptr);
  EXPECT_EQ(EVP_PKEY_bits(pkey.get()), static_cast<int>(8 * kK));
  Bytes frame;
  ASSERT_EQ(BuildSessionKeyFrame(der, derLen, secret, sizeof(secret), &frame, kCmdCardSessionKey),
            FrameStatus::kOk);
  EXPECT_EQ(Bytes(frame.begin(), frame.begin() + 4), (Bytes{0x02, 0x10, kK + 2, 0}));
  const uint8_t* encrypted = nullptr;
  EXPECT_EQ(ParseCardSessionKeyFrame(frame.data(), frame.size(), kK, &encrypted), FrameStatus::kOk);
  frame[0] = 0x11;  // the channel's session-key command is not a card's
  EXPECT_EQ(ParseCardSessionKeyFrame(frame.data(), frame.size(), kK, &encrypted),
            FrameStatus::kBadCommand);
}

TEST_F(SessionFrames, MalformedSessionKeyFramesAndSecretsAreRefused) {
  const Bytes good = OpenSslSessionKeyFrame(SecretWithCheck(kSessionKey, Bytes(4)));
  struct Case { const char* what; Bytes frame; FrameStatus expected; };
  auto edit = [&](auto change) { Bytes f = good; change(f); return f; };
  auto resized = [&](size_t body) {
    return edit([&](Bytes& f) { f.resize(8 + body); f[2] = static_cast<uint8_t>(body); });
  };
  Bytes check8 = Bytes(8);
  const Case cases[] = {
      {"status", edit([](Bytes& f) { f[4] = 0x20; f[7] = 0x80; }), FrameStatus::kPeerStatus},
      {"k+1", resized(kK + 1), FrameStatus::kBadLength},
      {"short", Bytes(good.begin(), good.end() - 1), FrameStatus::kBadLength},
      {"header only", Bytes(good.begin(), good.begin() + 7), FrameStatus::kTruncated},
      {"format", edit([](Bytes& f) { f[8] = 1; }), FrameStatus::kBadField},
      {"tampered", edit([](Bytes& f) { f[40] ^= 0x01; }), FrameStatus::kBadField},
      {"secret 23", OpenSslSessionKeyFrame(Bytes(23, 1)), FrameStatus::kBadLength},
      {"check of other bytes",
       OpenSslSessionKeyFrame(SecretWithCheck(kSessionKey, {0, 0, 1, 0})),
       FrameStatus::kCheckFailed},
      {"check of empty plaintext", OpenSslSessionKeyFrame(SecretWithCheck(kSessionKey, {})),
       FrameStatus::kOk},
      {"check not a padded block",
       OpenSslSessionKeyFrame([&] { Bytes s = kSessionKey; s.insert(s.end(), 8, 0x5A); return s; }()),
       FrameStatus::kCheckFailed},
  };
  for (const Case& c : cases) {
    CipherOwner cipher;
    EXPECT_EQ(Finish(c.frame, &cipher), c.expected) << c.what;
    EXPECT_EQ(cipher.Get() != 0, c.expected == FrameStatus::kOk) << c.what;
  }
}

TEST_F(SessionFrames, WrapRefusesWhatCannotBeCarried) {
  CipherOwner cipher;
  ASSERT_EQ(crypto::CipherCreateTdes2(cipher.Out(), kSessionKey.data()), crypto::kOk);
  struct Case { const char* what; Bytes frame; bool wrap; FrameStatus expected; size_t outLen; };
  auto frame = [](size_t body) {
    Bytes f(8 + body);
    f[2] = static_cast<uint8_t>(body);
    f[3] = static_cast<uint8_t>(body >> 8);
    return f;
  };
  // 65528 bytes pad to 65536, one more than a body can hold; 65527 pad to 65528.
  const Case cases[] = {
      {"empty body", frame(0), true, FrameStatus::kOk, 8},
      {"body too long once padded", frame(65528), true, FrameStatus::kTooLong, 0},
      {"largest body", frame(65527), true, FrameStatus::kOk, 8 + 65528},
      {"not whole blocks", frame(7), false, FrameStatus::kCipherError, 0},
      {"inconsistent frame", {0x11, 0xF0, 9, 0, 0, 0, 0, 0, 1}, true, FrameStatus::kBadLength, 0},
  };
  for (const Case& c : cases) {
    Bytes out;
    const FrameStatus status = c.wrap ? WrapFrame(cipher.Get(), c.frame.data(), c.frame.size(), &out)
                                      : UnwrapFrame(cipher.Get(), c.frame.data(), c.frame.size(), &out);
    EXPECT_EQ(status, c.expected) << c.what;
    if (status == FrameStatus::kOk) {
      EXPECT_EQ(out.size(), c.outLen) << c.what;
    }
  }
  // A frame that fails to unwrap ends its connection on either side; that the cipher rewinds after
  // a failed final step is the crypto library's (CipherStreaming).
}

}  // namespace
}  // namespace nivra::frames
