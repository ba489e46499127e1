// Native checks of what the Windows tests did through nivrap11fwd.dll: the signature they got
// from the token verifies with OpenSSL, and the container object they created is stored in
// SoftHSM2 as a marked data object. Runs after the Windows tests, in the fixture directory named
// by NIVRA_P11FWD_FIXTURE, while the helper still holds the token.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/p11fwd/openssl_rsa_check.h"
#include "tools/p11helper/native_module.h"

namespace nivra::p11test {
namespace {

using Bytes = std::vector<uint8_t>;

std::string FixtureDirectory() {
  const char* dir = std::getenv("NIVRA_P11FWD_FIXTURE");
  return dir ? dir : "";
}

Bytes ReadArtefact(const std::string& name) {
  std::ifstream in(FixtureDirectory() + "/" + name, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

TEST(ForwardedResults, SignatureFromWineVerifiesWithOpenSsl) {
  Bytes modulus = ReadArtefact("modulus.bin");
  Bytes exponent = ReadArtefact("exponent.bin");
  Bytes block = ReadArtefact("block.bin");
  Bytes signature = ReadArtefact("signature.bin");
  ASSERT_EQ(modulus.size(), 256u) << "no results in " << FixtureDirectory();
  ASSERT_EQ(signature.size(), 256u);
  EXPECT_TRUE(OpenSslVerifiesSha256(modulus, exponent, {'a', 'b', 'c'}, signature));
  EXPECT_EQ(OpenSslRawPublic(modulus, exponent, signature), block);
}

TEST(ForwardedResults, ContainerFromWineIsAMarkedDataObjectInSoftHsm) {
  Bytes label = ReadArtefact("container.label");
  ASSERT_FALSE(label.empty()) << "no results in " << FixtureDirectory();
  setenv("SOFTHSM2_CONF", (FixtureDirectory() + "/softhsm2.conf").c_str(), 1);
  p11helper::NativeModule softhsm;
  std::string error;
  ASSERT_TRUE(softhsm.Load(p11helper::kDefaultModulePath, &error)) << error;
  CK_FUNCTION_LIST* f = softhsm.functions();
  CK_SLOT_ID slots[8];
  CK_ULONG count = 8;
  ASSERT_EQ(f->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  ASSERT_GE(count, 1u);
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(f->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);

  CK_ATTRIBUTE byLabel = {CKA_LABEL, label.data(), label.size()};
  ASSERT_EQ(f->C_FindObjectsInit(session, &byLabel, 1), CKR_OK);
  CK_OBJECT_HANDLE found[4];
  CK_ULONG n = 0;
  ASSERT_EQ(f->C_FindObjects(session, found, 4, &n), CKR_OK);
  f->C_FindObjectsFinal(session);
  ASSERT_EQ(n, 1u);

  CK_OBJECT_CLASS cls = 0;
  char application[64] = {};
  CK_ATTRIBUTE stored[] = {{CKA_CLASS, &cls, sizeof cls},
                           {CKA_APPLICATION, application, sizeof application}};
  ASSERT_EQ(f->C_GetAttributeValue(session, found[0], stored, 2), CKR_OK);
  EXPECT_EQ(cls, CKO_DATA);
  EXPECT_EQ(std::string(application, stored[1].ulValueLen), "nivra-vendor-class-80000001");

  // SoftHSM2 itself holds nothing of the vendor class.
  CK_OBJECT_CLASS vendor = 0x80000001;
  CK_ATTRIBUTE byVendorClass = {CKA_CLASS, &vendor, sizeof vendor};
  if (f->C_FindObjectsInit(session, &byVendorClass, 1) == CKR_OK) {
    EXPECT_EQ(f->C_FindObjects(session, found, 4, &n), CKR_OK);
    EXPECT_EQ(n, 0u);
    f->C_FindObjectsFinal(session);
  }
  f->C_CloseSession(session);
}

}  // namespace
}  // namespace nivra::p11test
