// A real session through nivrap11fwd.dll under Wine against SoftHSM2: slots and token, login,
// key pairs with the provider's templates, raw RSA as the provider uses it, and container objects
// of the provider's vendor class. Results that OpenSSL and SoftHSM2 must confirm natively are
// written to the fixture directory (see forwarding_results_check.cpp).
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "tests/p11fwd/forwarding_harness.h"

namespace nivra::p11test {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr CK_OBJECT_CLASS kContainerClass = 0x80000001;
constexpr char kContainerLabel[] = "WineBox";
constexpr char kKeyId[] = "WineBox_cspS";

// SHA-256 of "abc" (FIPS 180-2, appendix B.1).
const uint8_t kSha256OfAbc[32] = {0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                                  0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                                  0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};

// The 256-byte PKCS#1 v1.5 type 1 block over the SHA-256 DigestInfo of "abc".
Bytes SignatureBlock() {
  const Bytes prefix = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                        0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
  Bytes block(256, 0xFF);
  block[0] = 0x00;
  block[1] = 0x01;
  block[256 - 52] = 0x00;
  std::copy(prefix.begin(), prefix.end(), block.end() - 51);
  std::copy(kSha256OfAbc, kSha256OfAbc + 32, block.end() - 32);
  return block;
}

std::string Trimmed(const unsigned char* field, size_t size) {
  std::string s(reinterpret_cast<const char*>(field), size);
  return s.substr(0, s.find_last_not_of(' ') + 1);
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
  void LogIn() {
    session_ = OpenSession();
    CK_UTF8CHAR pin[] = {'1', '2', '3', '4'};
    ASSERT_EQ(f_->C_Login(session_, CKU_USER, pin, sizeof pin), CKR_OK);
  }
  // The value of one attribute, through a size query first.
  Bytes Read(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE a = {type, nullptr, 0};
    EXPECT_EQ(f_->C_GetAttributeValue(session_, object, &a, 1), CKR_OK);
    Bytes value(a.ulValueLen);
    a.pValue = value.data();
    EXPECT_EQ(f_->C_GetAttributeValue(session_, object, &a, 1), CKR_OK);
    value.resize(a.ulValueLen);
    return value;
  }
  std::vector<CK_OBJECT_HANDLE> Find(CK_ATTRIBUTE* search, CK_ULONG count) {
    EXPECT_EQ(f_->C_FindObjectsInit(session_, search, count), CKR_OK);
    CK_OBJECT_HANDLE found[32];
    CK_ULONG n = 0;
    EXPECT_EQ(f_->C_FindObjects(session_, found, 32, &n), CKR_OK);
    EXPECT_EQ(f_->C_FindObjectsFinal(session_), CKR_OK);
    return std::vector<CK_OBJECT_HANDLE>(found, found + n);
  }
  CK_SESSION_HANDLE session_ = 0;
};

TEST_F(ForwardedToken, SlotListFollowsTheSizeQueryProtocol) {
  HelperControl("add-slots 40");
  HelperControl("add-slots 2 blank");
  CK_ULONG count = 0;
  ASSERT_EQ(f_->C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
  ASSERT_GE(count, 44u);
  std::vector<CK_SLOT_ID> slots(count);
  CK_ULONG small = count - 1;
  EXPECT_EQ(f_->C_GetSlotList(CK_FALSE, slots.data(), &small), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(small, count);
  ASSERT_EQ(f_->C_GetSlotList(CK_FALSE, slots.data(), &count), CKR_OK);
  slots.resize(count);
  EXPECT_NE(std::find(slots.begin(), slots.end(), slot_), slots.end());

  CK_SLOT_INFO blank;
  ASSERT_EQ(f_->C_GetSlotInfo(slots[count - 1], &blank), CKR_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(blank.slotDescription), 64), std::string(64, ' '));
  EXPECT_EQ(blank.flags & CKF_TOKEN_PRESENT, 0u);

  CK_ULONG withToken = 0;
  ASSERT_EQ(f_->C_GetSlotList(CK_TRUE, nullptr, &withToken), CKR_OK);
  EXPECT_EQ(withToken, count - 42);
}

TEST_F(ForwardedToken, SlotAndTokenInformationArriveIn32BitFields) {
  CK_SLOT_INFO slot;
  ASSERT_EQ(f_->C_GetSlotInfo(slot_, &slot), CKR_OK);
  EXPECT_EQ(Trimmed(slot.slotDescription, 64).rfind("SoftHSM slot ID 0x", 0), 0u);
  EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, CKF_TOKEN_PRESENT);
  CK_TOKEN_INFO token;
  ASSERT_EQ(f_->C_GetTokenInfo(slot_, &token), CKR_OK);
  EXPECT_EQ(Trimmed(token.label, 32), kFixtureTokenLabel);
  EXPECT_EQ(Trimmed(token.manufacturerID, 32), "SoftHSM project");
  EXPECT_EQ(token.flags & CKF_LOGIN_REQUIRED, CKF_LOGIN_REQUIRED);
  EXPECT_EQ(token.ulMaxPinLen, 255u);
  EXPECT_EQ(token.ulMinPinLen, 4u);
  EXPECT_EQ(token.ulTotalPublicMemory, CK_UNAVAILABLE_INFORMATION);
  EXPECT_EQ(token.ulTotalPublicMemory, 0xFFFFFFFFul);
  CK_INFO info;
  ASSERT_EQ(f_->C_GetInfo(&info), CKR_OK);
  EXPECT_EQ(info.cryptokiVersion.major, 2);
}

TEST_F(ForwardedToken, WrongPinIsIncorrectAndRightPinLogsIn) {
  session_ = OpenSession();
  CK_UTF8CHAR wrong[] = {'9', '9', '9', '9'};
  EXPECT_EQ(f_->C_Login(session_, CKU_USER, wrong, sizeof wrong), CKR_PIN_INCORRECT);
  CK_SESSION_INFO info;
  ASSERT_EQ(f_->C_GetSessionInfo(session_, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_PUBLIC_SESSION);
  EXPECT_EQ(info.slotID, slot_);
  CK_UTF8CHAR right[] = {'1', '2', '3', '4'};
  ASSERT_EQ(f_->C_Login(session_, CKU_USER, right, sizeof right), CKR_OK);
  ASSERT_EQ(f_->C_GetSessionInfo(session_, &info), CKR_OK);
  EXPECT_EQ(info.state, CKS_RW_USER_FUNCTIONS);
}

TEST_F(ForwardedToken, ProviderKeyPairSignsWithRawRsa) {
  LogIn();
  CK_OBJECT_CLASS publicClass = CKO_PUBLIC_KEY, privateClass = CKO_PRIVATE_KEY;
  CK_KEY_TYPE rsa = CKK_RSA;
  CK_BBOOL yes = CK_TRUE;
  CK_ULONG bits = 2048;
  CK_BYTE exponent[] = {0x00, 0x01, 0x00, 0x01};
  CK_ULONG idLength = sizeof kKeyId - 1;
  CK_ATTRIBUTE publicTemplate[] = {
      {CKA_CLASS, &publicClass, sizeof publicClass}, {CKA_ID, const_cast<char*>(kKeyId), idLength},
      {CKA_TOKEN, &yes, 1}, {CKA_KEY_TYPE, &rsa, sizeof rsa}, {CKA_ENCRYPT, &yes, 1},
      {CKA_VERIFY, &yes, 1}, {CKA_WRAP, &yes, 1}, {CKA_MODULUS_BITS, &bits, sizeof bits},
      {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent}};
  CK_ATTRIBUTE privateTemplate[] = {
      {CKA_CLASS, &privateClass, sizeof privateClass}, {CKA_ID, const_cast<char*>(kKeyId), idLength},
      {CKA_TOKEN, &yes, 1}, {CKA_KEY_TYPE, &rsa, sizeof rsa}, {CKA_SENSITIVE, &yes, 1},
      {CKA_SIGN, &yes, 1}, {CKA_DECRYPT, &yes, 1}, {CKA_PRIVATE, &yes, 1}};
  static_assert(sizeof publicTemplate / sizeof publicTemplate[0] == 9, "nine public attributes");
  static_assert(sizeof privateTemplate / sizeof privateTemplate[0] == 8, "eight private attributes");
  CK_MECHANISM generate = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
  CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
  ASSERT_EQ(f_->C_GenerateKeyPair(session_, &generate, publicTemplate, 9, privateTemplate, 8,
                                  &publicKey, &privateKey),
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

  Bytes modulus = Read(publicKey, CKA_MODULUS);
  Bytes publicExponent = Read(publicKey, CKA_PUBLIC_EXPONENT);
  ASSERT_EQ(modulus.size(), 256u);
  EXPECT_EQ(Read(privateKey, CKA_ID), Bytes(kKeyId, kKeyId + idLength));

  // As the provider signs: raw RSA with C_Decrypt in a session of its own.
  Bytes block = SignatureBlock();
  CK_SESSION_HANDLE operation = OpenSession();
  CK_MECHANISM raw = {CKM_RSA_X_509, nullptr, 0};
  ASSERT_EQ(f_->C_DecryptInit(operation, &raw, privateKey), CKR_OK);
  Bytes decrypted = block;
  CK_ULONG length = static_cast<CK_ULONG>(decrypted.size());
  ASSERT_EQ(f_->C_Decrypt(operation, decrypted.data(), length, decrypted.data(), &length), CKR_OK);
  ASSERT_EQ(length, 256u);
  EXPECT_EQ(f_->C_CloseSession(operation), CKR_OK);

  // And with C_Sign, including the output-length protocol.
  ASSERT_EQ(f_->C_SignInit(session_, &raw, privateKey), CKR_OK);
  CK_ULONG needed = 0;
  ASSERT_EQ(f_->C_Sign(session_, block.data(), 256, nullptr, &needed), CKR_OK);
  EXPECT_EQ(needed, 256u);
  Bytes signature(300, 0);
  CK_ULONG shortLength = 255;
  EXPECT_EQ(f_->C_Sign(session_, block.data(), 256, signature.data(), &shortLength), CKR_BUFFER_TOO_SMALL);
  EXPECT_EQ(shortLength, 256u);
  CK_ULONG signatureLength = static_cast<CK_ULONG>(signature.size());
  ASSERT_EQ(f_->C_Sign(session_, block.data(), 256, signature.data(), &signatureLength), CKR_OK);
  ASSERT_EQ(signatureLength, 256u);
  signature.resize(signatureLength);
  EXPECT_EQ(signature, decrypted);

  WriteArtefact("modulus.bin", modulus);
  WriteArtefact("exponent.bin", publicExponent);
  WriteArtefact("block.bin", block);
  WriteArtefact("signature.bin", signature);
  f_->C_DestroyObject(session_, publicKey);
  f_->C_DestroyObject(session_, privateKey);
}

TEST_F(ForwardedToken, ContainerObjectsKeepTheirVendorClass) {
  LogIn();
  CK_OBJECT_CLASS containerClass = kContainerClass;
  CK_BBOOL yes = CK_TRUE;
  CK_ULONG labelLength = sizeof kContainerLabel - 1;
  CK_ATTRIBUTE search[] = {{CKA_CLASS, &containerClass, sizeof containerClass},
                           {CKA_LABEL, const_cast<char*>(kContainerLabel), labelLength}};
  for (CK_OBJECT_HANDLE stale : Find(search, 2)) f_->C_DestroyObject(session_, stale);

  CK_ATTRIBUTE container[] = {{CKA_CLASS, &containerClass, sizeof containerClass},
                              {CKA_LABEL, const_cast<char*>(kContainerLabel), labelLength},
                              {CKA_TOKEN, &yes, 1},
                              {CKA_MODIFIABLE, &yes, 1}};
  CK_OBJECT_HANDLE created = 0;
  ASSERT_EQ(f_->C_CreateObject(session_, container, 4, &created), CKR_OK);

  std::vector<CK_OBJECT_HANDLE> found = Find(search, 2);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0], created);
  std::vector<CK_OBJECT_HANDLE> byClass = Find(search, 1);
  EXPECT_NE(std::find(byClass.begin(), byClass.end(), created), byClass.end());

  CK_OBJECT_CLASS readClass = 0;
  char label[255];
  CK_ATTRIBUTE read[] = {{CKA_CLASS, &readClass, sizeof readClass}, {CKA_LABEL, label, sizeof label},
                         {CKA_VALUE, nullptr, 0xFFFFFFFF}};
  ASSERT_EQ(f_->C_GetAttributeValue(session_, created, read, 3), CKR_OK);
  EXPECT_EQ(readClass, kContainerClass);
  EXPECT_EQ(read[0].ulValueLen, 4u);
  EXPECT_EQ(std::string(label, read[1].ulValueLen), kContainerLabel);
  EXPECT_EQ(read[2].ulValueLen, 0u);

  // Searches for data objects do not see it.
  CK_OBJECT_CLASS data = CKO_DATA;
  CK_ATTRIBUTE dataSearch[] = {{CKA_CLASS, &data, sizeof data},
                               {CKA_LABEL, const_cast<char*>(kContainerLabel), labelLength}};
  EXPECT_TRUE(Find(dataSearch, 2).empty());
  WriteArtefact("container.label", Bytes(kContainerLabel, kContainerLabel + labelLength));
}

}  // namespace
}  // namespace nivra::p11test
