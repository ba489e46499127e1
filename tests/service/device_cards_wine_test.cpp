// The provider through CryptoAPI on a Bluetooth device ("\\B\...") and a service card ("\\?\...")
// that the real card service presents, on SoftHSM2 tokens of their own; a person's answers to the
// confirmations are given on the service's control port by a thread of the test. Wine's own
// software provider checks the signatures and encrypts the data that the card decrypts. The
// provider is the test build whose ports come from the fixture and whose confirmation wait is
// a few seconds.
#include <gtest/gtest.h>
#include <winsock2.h>
#include <windows.h>
#include <wincrypt.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "machine_hive.h"
#include "service_person.h"
#include "service/frames/mode_token.h"

namespace nivra::p11test {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr wchar_t kProviderName[] = L"Nivra pkcs11 CSP";
constexpr char kProviderNameA[] = "Nivra pkcs11 CSP";
constexpr DWORD kModeTokenParam = 22209;
constexpr DWORD kDeviceCommandParam = 22206;

constexpr char kFixture[] = NIVRA_DEVICES_FIXTURE_UNIX;

using servicetest::Person;

class DeviceCards : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(servicetest::UseServiceFixture(kFixture))
        << "no card service port (the CTest fixture starts it)";
    hive.RegisterProvider(kProviderName, ProgramDirectory() + L"nivracsp_svctest.dll");
    hive.Activate();
  }
  void TearDown() override {
    for (HCRYPTPROV prov : contexts) CryptReleaseContext(prov, 0);
    hive.Deactivate();
  }

  // CryptoAPI's acquire of this provider; last error (0 on success).
  DWORD Acquire(const std::string& container, DWORD flags, HCRYPTPROV* prov = nullptr) {
    HCRYPTPROV handle = 0;
    const BOOL ok = CryptAcquireContextA(&handle, container.c_str(), kProviderNameA,
                                         PROV_RSA_FULL, flags);
    const DWORD error = ok ? 0 : GetLastError();
    if (ok && handle != 0) contexts.push_back(handle);
    if (prov != nullptr) *prov = handle;
    return error;
  }

  PrivateMachineHive hive;
  std::vector<HCRYPTPROV> contexts;
  DWORD lastTokenError = 0;
};

class Roads : public DeviceCards, public ::testing::WithParamInterface<const char*> {};

// Create, generate, sign, store and read a certificate, enumerate and delete on one road; the
// person confirms. Wine's own software provider checks the signature with the exported public
// key. Decryption (v1.5 and OAEP, by OpenSSL) is proven on the published slot: the card
// operations are the same on every road.
TEST_P(Roads, ContainerKeySignatureAndCertificate) {
  const std::string device = GetParam();
  const std::string reader = device.rfind("phone", 0) == 0 ? "\\\\B\\" : "\\\\?\\";
  const std::string name = "road-" + device;
  const std::string container = reader + device + "\\" + name;
  Person person(kFixture, "confirm", device);
  Acquire(container, CRYPT_DELETEKEYSET);  // what an earlier run left
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire(container, CRYPT_NEWKEYSET, &prov), 0u);
  EXPECT_EQ(Acquire(container, CRYPT_NEWKEYSET), static_cast<DWORD>(NTE_EXISTS));
  // The limits as the card announces them (phone-a: 16384 bits, kept as 8192; desk-a: 4096).
  PROV_ENUMALGS_EX row{};
  DWORD length = sizeof(row);
  for (DWORD flags = CRYPT_FIRST;
       CryptGetProvParam(prov, PP_ENUMALGS_EX, reinterpret_cast<BYTE*>(&row), &length, flags) &&
       row.aiAlgid != CALG_RSA_SIGN;
       flags = 0, length = sizeof(row)) {
  }
  EXPECT_EQ(row.aiAlgid, static_cast<ALG_ID>(CALG_RSA_SIGN));
  EXPECT_EQ(row.dwMaxLen, device == "phone-a" ? 8192u : 4096u);
  HCRYPTKEY sign = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024 << 16, &sign)) << std::hex << GetLastError();

  const Bytes message = {'r', 'o', 'a', 'd'};
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash));
  ASSERT_TRUE(CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0));
  Bytes signature(128);
  DWORD signatureLength = static_cast<DWORD>(signature.size());
  ASSERT_TRUE(CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &signatureLength))
      << std::hex << GetLastError();
  CryptDestroyHash(hash);
  HCRYPTPROV soft = 0;
  ASSERT_TRUE(CryptAcquireContextW(&soft, nullptr, MS_ENHANCED_PROV_W, PROV_RSA_FULL,
                                   CRYPT_VERIFYCONTEXT));
  ASSERT_TRUE(CryptExportKey(sign, 0, PUBLICKEYBLOB, 0, nullptr, &length));
  Bytes blob(length);
  ASSERT_TRUE(CryptExportKey(sign, 0, PUBLICKEYBLOB, 0, blob.data(), &length));
  HCRYPTKEY softSign = 0;
  ASSERT_TRUE(CryptImportKey(soft, blob.data(), length, 0, 0, &softSign));
  ASSERT_TRUE(CryptCreateHash(soft, CALG_SHA1, 0, 0, &hash));
  ASSERT_TRUE(CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0));
  EXPECT_TRUE(CryptVerifySignatureW(hash, signature.data(), signatureLength, softSign, nullptr, 0))
      << "Wine's provider refuses the card's signature";
  CryptDestroyHash(hash);
  CryptDestroyKey(softSign);
  CryptReleaseContext(soft, 0);

  std::ifstream in("Z:/usr/lib/python3/dist-packages/cryptography_vectors/x509/san_edipartyname.der",
                   std::ios::binary);
  const Bytes cert((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_FALSE(cert.empty());
  ASSERT_TRUE(CryptSetKeyParam(sign, KP_CERTIFICATE, const_cast<BYTE*>(cert.data()), 0))
      << std::hex << GetLastError();
  length = 0;
  ASSERT_TRUE(CryptGetKeyParam(sign, KP_CERTIFICATE, nullptr, &length, 0));
  Bytes back(length);
  ASSERT_TRUE(CryptGetKeyParam(sign, KP_CERTIFICATE, back.data(), &length, 0));
  EXPECT_EQ(back, cert);
  CryptDestroyKey(sign);

  bool listed = false;
  char entry[256];
  DWORD flags = CRYPT_FIRST;
  for (length = sizeof(entry);
       CryptGetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(entry), &length, flags);
       length = sizeof(entry), flags = 0) {
    listed = listed || name == entry;
  }
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
  EXPECT_TRUE(listed);
  EXPECT_GE(person.Answered(), 1);
  EXPECT_EQ(Acquire(container, CRYPT_DELETEKEYSET), 0u);
  EXPECT_EQ(Acquire(container, 0), static_cast<DWORD>(NTE_BAD_KEYSET));
}

INSTANTIATE_TEST_SUITE_P(DeviceAndCard, Roads, ::testing::Values("phone-a", "desk-a"));

TEST_F(DeviceCards, ConfirmationRefusedOrNeverGivenFailsTheCommand) {
  struct Case { const char* device; const char* action; DWORD expected; };
  for (const Case& c : {Case{"phone-r", "refuse", static_cast<DWORD>(SCARD_E_INVALID_CHV)},
                        Case{"phone-n", "", static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED)}}) {
    std::unique_ptr<Person> person;
    if (c.action[0] != '\0') person = std::make_unique<Person>(kFixture, c.action, c.device);
    EXPECT_EQ(Acquire(std::string("\\\\B\\") + c.device + "\\c", CRYPT_NEWKEYSET), c.expected)
        << c.device;
    if (person) {
      EXPECT_GE(person->Answered(), 1) << c.device;
    }
  }
}

// Confirmations that the device was asked for so far, as the service's log shows them.
size_t ConfirmationsAsked(const std::string& device) {
  const std::string log = servicetest::ReadAll("Z:" + std::string(kFixture) + "/service.log");
  const std::string asked = "device " + device + " card command 0x2013";
  size_t count = 0;
  for (size_t at = log.find(asked); at != std::string::npos; at = log.find(asked, at + 1)) ++count;
  return count;
}

// A mode token with the flag set stands for a confirmation: the next command goes to the device
// without asking, and the device's own state decides (once a wrong PIN has locked it: a silent
// context gets NTE_SILENT_CONTEXT, any other SCARD_W_CARD_NOT_AUTHENTICATED). A token with the
// flag clear makes the next context ask again. Tampered and misplaced tokens are refused.
TEST_F(DeviceCards, ModeTokenStandsForAConfirmation) {
  const std::string container = "\\\\B\\phone-m\\m";
  {
    Person person(kFixture, "confirm", "phone-m");
    Acquire(container, CRYPT_DELETEKEYSET);
    ASSERT_EQ(Acquire(container, CRYPT_NEWKEYSET), 0u);
  }
  auto withToken = [&](DWORD flags, bool flag, size_t touch = 0) {
    HCRYPTPROV prov = 0;
    EXPECT_EQ(Acquire(container, flags, &prov), 0u);
    uint8_t token[frames::kModeTokenSize];
    EXPECT_TRUE(frames::IssueModeToken(GetTickCount64(), flag, token));
    if (touch != 0) token[touch] ^= 0x40;
    lastTokenError = CryptSetProvParam(prov, kModeTokenParam, token, 0) ? 0 : GetLastError();
    return prov;
  };
  auto genKey = [&](HCRYPTPROV prov) {
    HCRYPTKEY key = 0;
    if (!CryptGenKey(prov, AT_SIGNATURE, 1024 << 16, &key)) return GetLastError();
    CryptDestroyKey(key);
    return DWORD{0};
  };
  // Every rule of the token's validity is the codec's (ModeToken); one refusal reaches the caller.
  withToken(0, false, 6);
  EXPECT_EQ(lastTokenError, static_cast<DWORD>(NTE_BAD_TYPE)) << "a tampered token";
  size_t asked = ConfirmationsAsked("phone-m");
  EXPECT_EQ(genKey(withToken(0, false)), 0u);
  EXPECT_EQ(lastTokenError, 0u);
  EXPECT_EQ(ConfirmationsAsked("phone-m"), asked + 1) << "a forgotten device is asked again";
  asked = ConfirmationsAsked("phone-m");
  EXPECT_EQ(genKey(withToken(0, true)), 0u);
  EXPECT_EQ(ConfirmationsAsked("phone-m"), asked) << "the token stands for the confirmation";

  HCRYPTPROV locking = withToken(0, true);
  const char wrongPin[] = "9999";
  EXPECT_FALSE(CryptSetProvParam(locking, PP_SIGNATURE_PIN,
                                 reinterpret_cast<const BYTE*>(wrongPin), 0));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(SCARD_E_INVALID_CHV));
  EXPECT_EQ(genKey(withToken(CRYPT_SILENT, true)), static_cast<DWORD>(NTE_SILENT_CONTEXT));
  EXPECT_EQ(genKey(withToken(0, true)), static_cast<DWORD>(SCARD_W_CARD_NOT_AUTHENTICATED));
  EXPECT_EQ(ConfirmationsAsked("phone-m"), asked);

  HCRYPTPROV card = 0;
  uint8_t token[frames::kModeTokenSize];
  ASSERT_TRUE(frames::IssueModeToken(GetTickCount64(), true, token));
  ASSERT_EQ(Acquire("\\\\?\\desk-a", CRYPT_VERIFYCONTEXT, &card), 0u);
  EXPECT_FALSE(CryptSetProvParam(card, kModeTokenParam, token, 0));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_TYPE));
}

// Without a reader prefix: a silent acquire finds the container on a Bluetooth device before the
// service cards (the container's token backs both); a verify-only acquire takes the first service
// card. Parameter 22206 tells the kinds apart (service cards do not support it).
TEST_F(DeviceCards, SearchWithoutReaderPrefixTakesDevicesThenCards) {
  {
    Person person(kFixture, "confirm", "phone-s");
    Acquire("\\\\B\\phone-s\\both", CRYPT_DELETEKEYSET);
    ASSERT_EQ(Acquire("\\\\B\\phone-s\\both", CRYPT_NEWKEYSET), 0u);
  }
  auto kindSupports22206 = [](HCRYPTPROV prov) {
    return CryptSetProvParam(prov, kDeviceCommandParam, nullptr, 0) ||
           GetLastError() != static_cast<DWORD>(NTE_NOT_SUPPORTED);
  };
  HCRYPTPROV silent = 0;
  ASSERT_EQ(Acquire("both", CRYPT_SILENT, &silent), 0u);
  EXPECT_TRUE(kindSupports22206(silent)) << "found on the Bluetooth device";
  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire("", CRYPT_VERIFYCONTEXT, &verify), 0u);
  EXPECT_FALSE(kindSupports22206(verify)) << "the first service card";
  EXPECT_EQ(Acquire("\\\\B\\phone-s\\both", CRYPT_DELETEKEYSET), 0u);
}

}  // namespace
}  // namespace nivra::p11test
