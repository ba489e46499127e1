// A real session through nivrap11fwd.dll under Wine against SoftHSM2: slots and token, key pairs
// with the provider's templates, and raw RSA as the provider uses it. Login, container objects of
// the provider's vendor class, and that the provider's signatures verify with OpenSSL are proved
// through the provider itself (tests/pkcs11).
#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "tests/p11fwd/forwarding_harness.h"
#include "tests/p11fwd/provider_templates.h"

namespace nivra::p11test {
namespace {

constexpr char kKeyId[] = "WineBox_cspS";

// CK_ATTRIBUTEs pointing at the values of `t`, whose CK_ULONGs are 4 bytes as on Windows.
std::vector<CK_ATTRIBUTE> Attributes(p11wire::WireTemplate& t) {
  std::vector<CK_ATTRIBUTE> out;
  for (p11wire::WireAttribute& a : t)
    out.push_back({a.type, a.value.data(), static_cast<CK_ULONG>(a.value.size())});
  return out;
}

class ForwardedToken : public ForwardedTest {
 protected:
  void TearDown() override {
    if (session_) {
      f_->C_Logout(session_);
      f_->C_CloseSession(session_);
    }
    ForwardedTest::TearDown();
  }
  CK_RV LogIn(const char* pin) {
    if (!session_) session_ = OpenSession();
    std::string text = pin;
    return f_->C_Login(session_, CKU_USER, reinterpret_cast<CK_UTF8CHAR*>(text.data()),
                       static_cast<CK_ULONG>(text.size()));
  }
  // The value of one attribute, through a size query first.
  Bytes Read(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE a = {type, nullptr, 0};
    EXPECT_EQ(f_->C_GetAttributeValue(session_, object, &a, 1), CKR_OK);
    Bytes value(a.ulValueLen);
    a.pValue = value.data();
    EXPECT_EQ(f_->C_GetAttributeValue(session_, object, &a, 1), CKR_OK);
    return value;
  }
  CK_SESSION_HANDLE session_ = 0;
};

TEST_F(ForwardedToken, SlotListAndTokenInformationArriveIn32BitFields) {
  // More slots than a byte counts, the fake ones after the module's.
  HelperControl("add-slots 298");
  HelperControl("add-slots 2 blank");
  CK_ULONG count = 0;
  ASSERT_EQ(f_->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  ASSERT_GE(count, 302u);
  std::vector<CK_SLOT_ID> slots(count);
  CK_ULONG small = count - 1;
  EXPECT_EQ(f_->C_GetSlotList(CK_FALSE, slots.data(), &small), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(small, count);
  ASSERT_EQ(f_->C_GetSlotList(CK_FALSE, slots.data(), &count), CKR_OK);
  slots.resize(count);
  EXPECT_NE(std::find(slots.begin(), slots.end(), slot_), slots.end());
  CK_ULONG withToken = 0;
  ASSERT_EQ(f_->C_GetSlotList(CK_TRUE, nullptr, &withToken), CKR_OK);
  EXPECT_EQ(withToken, count - 300);

  CK_SLOT_INFO slot;
  ASSERT_EQ(f_->C_GetSlotInfo(slots[count - 1], &slot), CKR_OK);
  EXPECT_EQ(Bytes(slot.slotDescription, slot.slotDescription + 64), Bytes(64, ' '));
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0u);
  ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  EXPECT_EQ(Trimmed(slot.slotDescription, 64).rfind("SoftHSM slot ID 0x", 0), 0u);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, CKF_TOKEN_PRESENT);
  CK_TOKEN_INFO token;
  ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
  EXPECT_EQ(Trimmed(token.label, 32), kFixtureTokenLabel);
  EXPECT_EQ(token.flags & CKF_LOGIN_REQUIRED, CKF_LOGIN_REQUIRED);
  EXPECT_EQ(token.ulMaxPinLen, 255u);
  EXPECT_EQ(token.ulMinPinLen, 4u);
  EXPECT_EQ(token.ulTotalPublicMemory, 0xFFFFFFFFul);  // CK_UNAVAILABLE_INFORMATION
}

TEST_F(ForwardedToken, ProviderKeyPairSignsWithRawRsa) {
  ASSERT_EQ(LogIn(kFixtureUserPin), CKR_OK);
  p11wire::WireTemplate publicValues = ProviderPublicKeyTemplate(kKeyId, 2048);
  p11wire::WireTemplate privateValues = ProviderPrivateKeyTemplate(kKeyId);
  std::vector<CK_ATTRIBUTE> publicTemplate = Attributes(publicValues);
  std::vector<CK_ATTRIBUTE> privateTemplate = Attributes(privateValues);
  CK_MECHANISM generate = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
  CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
  ASSERT_EQ(f_->C_GenerateKeyPair(session_, &generate, publicTemplate.data(), 9,
                                  privateTemplate.data(), 8, &publicKey, &privateKey),
            CKR_OK);

  // CK_ULONG attributes come back as 4-byte values.
  CK_ULONG modulusBits = 0, keyType = 99;
  CK_ATTRIBUTE ulongs[] = {{CKA_MODULUS_BITS, &modulusBits, sizeof modulusBits},
                           {CKA_KEY_TYPE, &keyType, sizeof keyType}};
  ASSERT_EQ(f_->C_GetAttributeValue(session_, publicKey, ulongs, 2), CKR_OK);
  EXPECT_EQ(modulusBits, 2048u);
  EXPECT_EQ(ulongs[0].ulValueLen, 4u);
  EXPECT_EQ(keyType, CKK_RSA);
  uint8_t tooSmall[3];
  CK_ATTRIBUTE classInThree = {CKA_CLASS, tooSmall, sizeof tooSmall};
  EXPECT_EQ(f_->C_GetAttributeValue(session_, privateKey, &classInThree, 1), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(classInThree.ulValueLen, CK_UNAVAILABLE_INFORMATION);
  ASSERT_EQ(Read(publicKey, CKA_MODULUS).size(), 256u);
  EXPECT_EQ(Read(privateKey, CKA_ID), TextBytes(kKeyId));

  // As the provider signs: raw RSA with C_Decrypt (in place) in a session of its own.
  Bytes block(256, 0x5A);
  block[0] = 0x00;  // below any 2048-bit modulus
  CK_SESSION_HANDLE operation = OpenSession();
  CK_MECHANISM raw = {CKM_RSA_X_509, nullptr, 0};
  ASSERT_EQ(f_->C_DecryptInit(operation, &raw, privateKey), CKR_OK);
  Bytes decrypted = block;
  CK_ULONG length = 256;
  ASSERT_EQ(f_->C_Decrypt(operation, decrypted.data(), length, decrypted.data(), &length), CKR_OK);
  ASSERT_EQ(length, 256u);
  EXPECT_EQ(f_->C_CloseSession(operation), CKR_OK);

  // And with C_Sign and its output-length protocol: the size, a short buffer, then the signature.
  ASSERT_EQ(f_->C_SignInit(session_, &raw, privateKey), CKR_OK);
  Bytes signature(300, 0);
  for (auto [buffer, capacity, rv] : {std::tuple<CK_BYTE*, CK_ULONG, CK_RV>{nullptr, 0, CKR_OK},
                                      {signature.data(), 255, CKR_BUFFER_TOO_SMALL},
                                      {signature.data(), 300, CKR_OK}}) {
    length = capacity;
    EXPECT_EQ(f_->C_Sign(session_, block.data(), 256, buffer, &length), rv) << capacity;
    EXPECT_EQ(length, 256u) << capacity;
  }
  signature.resize(256);
  EXPECT_EQ(signature, decrypted);

  f_->C_DestroyObject(session_, publicKey);
  f_->C_DestroyObject(session_, privateKey);
}

}  // namespace
}  // namespace nivra::p11test
