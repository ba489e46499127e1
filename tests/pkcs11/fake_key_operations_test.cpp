// RSA with the container's keys: the blocks the back end hands the token, the answers it makes
// of the token's results, and the one-entry cache. The fake's raw RSA returns its input, so the
// block the token receives is what comes back.
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <string>
#include <thread>

#include "fake_backend_fixture.h"
#include "provider/card_dispatch.h"
#include "provider/entries.h"

namespace nivra::p11test {
namespace {

using provider::kNteBadData;
using provider::kNteBadFlags;
using provider::kNteBadLen;
constexpr uint32_t kMoreData = provider::kErrMoreData;
constexpr uint32_t kInvalidParameter = provider::kErrInvalidParameter;

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

// 00 type PS 00 data, PS of `padding` bytes (0xFF for type 1, 0x5A for type 2).
Bytes Block(size_t k, uint8_t type, size_t padding, const Bytes& data) {
  Bytes block = {0x00, type};
  block.insert(block.end(), padding, type == 1 ? 0xFF : 0x5A);
  block.push_back(0x00);
  block.insert(block.end(), data.begin(), data.end());
  block.resize(k, 0x33);
  return block;
}

class KeyOperations : public FakeBackendTest {
 protected:
  void SetUp() override {
    FakeBackendTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(StartBackend(), 0u);
    LoginOnSlot(kSlot0);
    ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\ops", CRYPT_NEWKEYSET, &prov), 0u);
    ASSERT_TRUE(NivraCPGenKey(prov, AT_SIGNATURE, 2048u << 16, &signatureKey));
    ASSERT_TRUE(NivraCPGenKey(prov, AT_KEYEXCHANGE, 2048u << 16, &exchangeKey));
  }
  uint32_t Private(uint32_t keySpec, uint32_t mode, const Bytes& in, Bytes* out,
                   uint32_t capacity = 256) {
    out->assign(capacity, 0xEE);
    uint32_t length = capacity;
    const uint32_t status = provider::CardPrivateKeyOp(
        Context(prov), keySpec, mode, in.data(), static_cast<uint32_t>(in.size()), out->data(),
        &length);
    out->resize(std::min(length, capacity));
    lastLength = length;
    return status;
  }
  uint32_t Public(uint32_t keySpec, uint32_t mode, const Bytes& in, Bytes* out,
                  uint32_t capacity = 256) {
    provider::KeyObject key{};
    key.algId = keySpec;
    out->assign(capacity, 0xEE);
    uint32_t length = capacity;
    const uint32_t status = provider::CardPublicKeyOp(
        Context(prov), key, mode, in.data(), static_cast<uint32_t>(in.size()), out->data(), &length);
    out->resize(std::min(length, capacity));
    lastLength = length;
    return status;
  }
  HCRYPTPROV prov = 0;
  HCRYPTKEY signatureKey = 0;
  HCRYPTKEY exchangeKey = 0;
  uint32_t lastLength = 0;
};

TEST_F(KeyOperations, SignatureBlockIsType1AndTheResultComesBackReversed) {
  const Bytes input(35, 0x42);
  Bytes out;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, input, &out), 0u);
  ASSERT_EQ(out.size(), 256u);
  EXPECT_EQ(out, Reversed(Block(256, 1, 256 - 3 - 35, input)));
}

TEST_F(KeyOperations, RepeatedRequestIsAnsweredWithoutTheToken) {
  const Bytes input(35, 0x42);
  Bytes first;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, input, &first), 0u);
  const uint32_t decrypts = fake.CallCount("C_Decrypt");
  const uint32_t sessions = fake.CallCount("C_OpenSession");
  Bytes second;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, input, &second), 0u);
  EXPECT_EQ(second, first);
  EXPECT_EQ(fake.CallCount("C_Decrypt"), decrypts);
  EXPECT_EQ(fake.CallCount("C_OpenSession"), sessions);

  Bytes other;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, Bytes(35, 0x43), &other), 0u);
  EXPECT_EQ(fake.CallCount("C_Decrypt"), decrypts + 1) << "new input goes to the token";
  ASSERT_EQ(Private(AT_KEYEXCHANGE, 1, input, &other), 0u);
  EXPECT_EQ(fake.CallCount("C_Decrypt"), decrypts + 2) << "so does another key";
}

TEST_F(KeyOperations, EachTokenOperationHasASessionOfItsOwn) {
  const uint32_t opens = fake.CallCount("C_OpenSession");
  const uint32_t closes = fake.CallCount("C_CloseSession");
  Bytes out;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, Bytes(20, 1), &out), 0u);
  EXPECT_EQ(fake.CallCount("C_OpenSession"), opens + 1);
  EXPECT_EQ(fake.CallCount("C_CloseSession"), closes + 1);
}

TEST_F(KeyOperations, FailedTokenOperationIsMappedAndEmptiesTheCache) {
  const Bytes input(35, 0x42);
  Bytes out;
  ASSERT_EQ(Private(AT_SIGNATURE, 1, input, &out), 0u);
  const CK_ULONG privateClass = CKO_PRIVATE_KEY;
  const auto keys = FindOnToken(0, {Attr(CKA_CLASS, &privateClass, 4), Text(CKA_ID, "ops_cspS")});
  ASSERT_EQ(keys.size(), 1u);
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(fake.functions->C_OpenSession(kFakeFirstSlotId, CKF_SERIAL_SESSION | CKF_RW_SESSION,
                                          nullptr, nullptr, &session),
            CKR_OK);
  ASSERT_EQ(fake.functions->C_DestroyObject(session, keys[0]), CKR_OK);
  fake.functions->C_CloseSession(session);

  const uint32_t inits = fake.CallCount("C_DecryptInit");
  EXPECT_EQ(Private(AT_SIGNATURE, 1, input, &out), 0u) << "the cached entry still answers";
  EXPECT_EQ(fake.CallCount("C_DecryptInit"), inits);
  EXPECT_EQ(Private(AT_SIGNATURE, 1, Bytes(35, 0x44), &out), 0x80090020u)
      << "CKR_KEY_HANDLE_INVALID maps to NTE_FAIL";
  EXPECT_EQ(fake.CallCount("C_DecryptInit"), inits + 1);
  EXPECT_EQ(Private(AT_SIGNATURE, 1, input, &out), 0x80090020u)
      << "the failure emptied the cache, so the first request reaches the token again";
  EXPECT_EQ(fake.CallCount("C_DecryptInit"), inits + 2);
}

TEST_F(KeyOperations, SigningSizeQueryAndShortBuffer) {
  const Bytes input(20, 1);
  uint32_t length = 0;
  EXPECT_EQ(provider::CardPrivateKeyOp(Context(prov), AT_SIGNATURE, 1, input.data(), 20, nullptr,
                                       &length),
            0u);
  EXPECT_EQ(length, 256u);
  Bytes out;
  EXPECT_EQ(Private(AT_SIGNATURE, 1, input, &out, 255), kMoreData);
  EXPECT_EQ(lastLength, 256u);
  EXPECT_EQ(provider::CardPrivateKeyOp(Context(prov), AT_SIGNATURE, 1, input.data(), 20, nullptr,
                                       nullptr),
            kInvalidParameter);
  EXPECT_EQ(Private(AT_SIGNATURE, 1, Bytes(246, 1), &out), kNteBadData) << "too long to pad";
}

TEST_F(KeyOperations, DecryptingTakesExactlyOneBlock) {
  Bytes out;
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Bytes(255, 1), &out), kNteBadData);
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Bytes(257, 1), &out), kNteBadData);
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 0, Bytes(255, 1), &out), kNteBadData);
}

TEST_F(KeyOperations, Type2BlockGivesItsMessage) {
  const Bytes message = {'s', 'e', 'c', 'r', 'e', 't'};
  const Bytes block = Block(256, 2, 256 - 3 - message.size(), message);
  Bytes out;
  ASSERT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(block), &out, 64), 0u);
  EXPECT_EQ(out, message);
}

TEST_F(KeyOperations, Type2BlockWithSevenPaddingBytesIsBadData) {
  Bytes message(256 - 3 - 7, 0x61);
  Bytes out;
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(Block(256, 2, 7, message)), &out), kNteBadData);
  message.pop_back();
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(Block(256, 2, 8, message)), &out), 0u)
      << "eight padding bytes are enough";
  EXPECT_EQ(out, message);
}

TEST_F(KeyOperations, Type2MessageLargerThanTheBufferIsBadDataWithItsLength) {
  const Bytes message(40, 0x62);
  Bytes out;
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(Block(256, 2, 256 - 43, message)), &out, 39),
            kNteBadData);
  EXPECT_EQ(lastLength, 40u);
}

TEST_F(KeyOperations, MalformedType2BlocksAreBadData) {
  Bytes block = Block(256, 2, 100, Bytes(153, 0x01));
  Bytes out;
  Bytes wrongType = block;
  wrongType[1] = 0x01;
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(wrongType), &out), kNteBadData);
  Bytes noSeparator = Bytes{0x00, 0x02};
  noSeparator.resize(256, 0x5A);
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(noSeparator), &out), kNteBadData);
  Bytes leadingByte = block;
  leadingByte[0] = 0x01;
  EXPECT_EQ(Private(AT_KEYEXCHANGE, 2, Reversed(leadingByte), &out), kNteBadData);
}

TEST_F(KeyOperations, RawDecryptionReturnsTheBlockInCallerOrder) {
  Bytes input(256);
  for (size_t i = 0; i < input.size(); ++i) input[i] = static_cast<uint8_t>(i);
  Bytes out;
  ASSERT_EQ(Private(AT_KEYEXCHANGE, 0, input, &out), 0u);
  EXPECT_EQ(out, input) << "reversed in, reversed out";
}

TEST_F(KeyOperations, VerificationUnwrapsAType1Block) {
  const Bytes digestInfo(35, 0x7E);
  const Bytes block = Block(256, 1, 256 - 38, digestInfo);
  Bytes out;
  ASSERT_EQ(Public(AT_SIGNATURE, 1, Reversed(block), &out, 100), 0u);
  EXPECT_EQ(out, digestInfo);
  Bytes shortRun = Block(256, 1, 7, Bytes(256 - 10, 0x7E));
  EXPECT_EQ(Public(AT_SIGNATURE, 1, Reversed(shortRun), &out), kNteBadData);
  Bytes notFF = block;
  notFF[5] = 0xFE;
  EXPECT_EQ(Public(AT_SIGNATURE, 1, Reversed(notFF), &out), kNteBadData);
  EXPECT_EQ(Public(AT_SIGNATURE, 1, Reversed(block), &out, 34), kNteBadData) << "too small";
  EXPECT_EQ(Public(AT_SIGNATURE, 1, Bytes(255, 0), &out), kNteBadData) << "not one block";
}

TEST_F(KeyOperations, PssVerificationIsBadFlags) {
  Bytes out;
  EXPECT_EQ(Public(AT_SIGNATURE, 17, Bytes(256, 0x01), &out), kNteBadFlags);
}

TEST_F(KeyOperations, EncryptionPadsWithType2AndChecksTheBuffer) {
  const Bytes message = {1, 2, 3};
  Bytes out;
  ASSERT_EQ(Public(AT_KEYEXCHANGE, 2, message, &out), 0u);
  ASSERT_EQ(out.size(), 256u);
  const Bytes block = Reversed(out);
  EXPECT_EQ(block[0], 0x00);
  EXPECT_EQ(block[1], 0x02);
  EXPECT_TRUE(std::none_of(block.begin() + 2, block.end() - 4, [](uint8_t b) { return b == 0; }));
  EXPECT_EQ(block[252], 0x00);
  EXPECT_EQ(Bytes(block.end() - 3, block.end()), message);

  EXPECT_EQ(Public(AT_KEYEXCHANGE, 2, message, &out, 255), kNteBadLen);
  EXPECT_EQ(lastLength, 256u);
}

TEST_F(KeyOperations, ConcurrentSignaturesOnOneSlotEachGetTheirOwnBlock) {
  HCRYPTPROV second = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\ops", 0, &second), 0u);
  provider::ProviderContext* contexts[2] = {&Context(prov), &Context(second)};
  bool ok[2] = {true, true};
  auto worker = [&](int index) {
    for (int round = 0; round < 50; ++round) {
      const Bytes input(30, static_cast<uint8_t>(round * 2 + index));
      Bytes out(256);
      uint32_t length = 256;
      if (provider::CardPrivateKeyOp(*contexts[index], AT_SIGNATURE, 1, input.data(), 30,
                                     out.data(), &length) != 0 ||
          out != Reversed(Block(256, 1, 256 - 33, input))) {
        ok[index] = false;
      }
    }
  };
  std::thread a(worker, 0);
  std::thread b(worker, 1);
  a.join();
  b.join();
  EXPECT_TRUE(ok[0]);
  EXPECT_TRUE(ok[1]);
}

}  // namespace
}  // namespace nivra::p11test
