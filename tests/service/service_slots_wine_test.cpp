// The provider through CryptoAPI on a slot that the real card service publishes: the card
// service (native) and the forwarding helper serve one SoftHSM2 token, so what the provider does
// through the service is checked natively, by OpenSSL and through the module's own view. The
// provider is the test build whose service port comes from the fixture.
#include <gtest/gtest.h>
#include <winsock2.h>
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "machine_hive.h"
#include "pin_dialog_answer.h"
#include "service_person.h"
#include "token_fixture.h"

namespace nivra::p11test {
namespace {

std::string ServiceDir() { return NIVRA_SERVICE_FIXTURE_UNIX; }

using servicetest::ReadAll;

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

class ServiceSlots : public TokenTest {
 protected:
  std::wstring ProviderDll() const override { return L"nivracsp_svctest.dll"; }
  void SetUp() override {
    ASSERT_TRUE(servicetest::UseServiceFixture(ServiceDir()))
        << "no card service port (the CTest fixture starts it)";
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    StartProvider();
  }

  // Runs the restart script (stop or start) and waits until it has finished.
  void Service(const std::string& action) {
    const std::string done = ServiceDir() + "/" + action + ".done";
    DeleteFileA(("Z:" + done).c_str());
    // Wine starts native programs but hands back no exit code: the script leaves a file.
    std::string command = "/bin/sh -c \"/bin/bash '" + std::string(NIVRA_SERVICE_RESTART) + "' " +
                          action + " '" + NIVRA_CARD_SERVICE + "' '" + ServiceDir() + "' '" +
                          NIVRA_FIXTURE_UNIX + "/softhsm2.conf'\"";
    STARTUPINFOA startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    ASSERT_TRUE(CreateProcessA(nullptr, &command[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process));
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    const ULONGLONG deadline = GetTickCount64() + 30000;
    while (GetFileAttributesA(("Z:" + done).c_str()) == INVALID_FILE_ATTRIBUTES) {
      ASSERT_LT(GetTickCount64(), deadline) << "the service did not " << action;
      Sleep(20);
    }
  }

  size_t Handshakes() {
    const std::string log = ReadAll("Z:" + ServiceDir() + "/service.log");
    size_t count = 0;
    const std::string sessionKeySent = "> 0x9011 ";
    for (size_t at = log.find(sessionKeySent); at != std::string::npos;
         at = log.find(sessionKeySent, at + 1)) {
      ++count;
    }
    return count;
  }

  // A container created on the published slot through CryptoAPI, the PIN typed in the dialog.
  HCRYPTPROV CreateWithPinDialog(const std::string& name) {
    HCRYPTPROV prov = 0;
    const std::string container = OnToken(name);
    EXPECT_EQ(AnswerPinDialog(
                  [&] {
                    return CryptAcquireContextA(&prov, container.c_str(), "Nivra pkcs11 CSP",
                                                PROV_RSA_FULL, CRYPT_NEWKEYSET)
                               ? 0
                               : GetLastError();
                  },
                  L"1234"),
              0u);
    if (prov != 0) cryptContexts.push_back(prov);
    return prov;
  }

  Bytes Sign(HCRYPTPROV prov, const Bytes& message) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash));
    EXPECT_TRUE(CryptHashData(hash, message.data(), static_cast<DWORD>(message.size()), 0));
    DWORD length = 0;
    Bytes signature;
    if (CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, nullptr, &length)) {
      signature.resize(length);
      if (!CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length)) {
        signature.clear();
      }
    }
    lastError = signature.empty() ? GetLastError() : 0;
    CryptDestroyHash(hash);
    return Reversed(signature);
  }

  // Modulus and exponent (big-endian) of a pair, from its PUBLICKEYBLOB.
  void PublicKey(HCRYPTKEY key, Bytes* modulus, Bytes* exponent) {
    DWORD length = 0;
    ASSERT_TRUE(CryptExportKey(key, 0, PUBLICKEYBLOB, 0, nullptr, &length));
    Bytes blob(length);
    ASSERT_TRUE(CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob.data(), &length));
    const auto* rsa = reinterpret_cast<const RSAPUBKEY*>(blob.data() + sizeof(BLOBHEADER));
    const uint8_t* n = blob.data() + sizeof(BLOBHEADER) + sizeof(RSAPUBKEY);
    *modulus = Reversed(Bytes(n, n + rsa->bitlen / 8));
    *exponent = {static_cast<uint8_t>(rsa->pubexp >> 16), static_cast<uint8_t>(rsa->pubexp >> 8),
                 static_cast<uint8_t>(rsa->pubexp)};
  }

  DWORD lastError = 0;
};

// Certificates, listing containers and opening a deleted one travel by the card operations that
// every road shares: the device and card roads prove them (device_cards_wine_test.cpp).
TEST_F(ServiceSlots, ContainerKeysThroughThePublishedSlot) {
  const std::string name = CaseName();
  HCRYPTPROV cleanup = 0;
  CryptAcquireContextA(&cleanup, OnToken(name).c_str(), "Nivra pkcs11 CSP", PROV_RSA_FULL,
                       CRYPT_DELETEKEYSET | CRYPT_SILENT);
  const size_t handshakesBefore = Handshakes();
  HCRYPTPROV prov = CreateWithPinDialog(name);
  ASSERT_NE(prov, 0u);
  EXPECT_GT(Handshakes(), handshakesBefore) << "the slot is reached through the card service";
  // The trace shows commands in clear and bodies only encrypted: never the PIN with its NUL.
  const std::string log = ReadAll("Z:" + ServiceDir() + "/service.log");
  EXPECT_NE(log.find("< 0x7011 "), std::string::npos);
  EXPECT_EQ(log.find(Hex(TextBytes(std::string("1234", 5)))), std::string::npos);
  EXPECT_EQ(NativeObjectsWith("label", Hex(TextBytes(name))).size(), 1u)
      << "the container is on the token in the provider's format";

  HCRYPTKEY signing = 0, exchange = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 2048u << 16, &signing)) << std::hex << GetLastError();
  Bytes modulus, exponent;
  PublicKey(signing, &modulus, &exponent);
  const Bytes message = TextBytes("signed through the card service");
  const Bytes signature = Sign(prov, message);
  ASSERT_EQ(signature.size(), 256u) << std::hex << lastError;
  EXPECT_TRUE(NativeVerifiesSha1(modulus, exponent, message, signature));

  ASSERT_TRUE(CryptGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &exchange)) << std::hex << GetLastError();
  PublicKey(exchange, &modulus, &exponent);
  const Bytes secret = TextBytes("decrypted by the token");
  for (const char* padding : {"pkcs1", "oaep"}) {
    Bytes data = Reversed(NativeEncrypt(padding, modulus, exponent, secret));
    ASSERT_EQ(data.size(), 128u) << padding;
    DWORD length = static_cast<DWORD>(data.size());
    const DWORD flags = std::string(padding) == "oaep" ? CRYPT_OAEP : 0;
    ASSERT_TRUE(CryptDecrypt(exchange, 0, TRUE, flags, data.data(), &length))
        << padding << " " << std::hex << GetLastError();
    EXPECT_EQ(Bytes(data.begin(), data.begin() + length), secret) << padding;
  }

  CryptDestroyKey(signing);
  CryptDestroyKey(exchange);

  HCRYPTPROV gone = 0;
  EXPECT_TRUE(CryptAcquireContextA(&gone, OnToken(name).c_str(), "Nivra pkcs11 CSP", PROV_RSA_FULL,
                                   CRYPT_DELETEKEYSET))
      << std::hex << GetLastError();
  EXPECT_TRUE(NativeObjectsWith("label", Hex(TextBytes(name))).empty());
}

TEST_F(ServiceSlots, ServiceThatGoesAwayAndComesBackGetsANewHandshake) {
  HCRYPTPROV prov = CreateWithPinDialog(CaseName());
  ASSERT_NE(prov, 0u);
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();
  CryptDestroyKey(key);
  ASSERT_EQ(Sign(prov, TextBytes("before")).size(), 128u);

  Service("stop");
  EXPECT_TRUE(Sign(prov, TextBytes("while stopped")).empty());
  EXPECT_EQ(lastError, static_cast<DWORD>(WSAECONNREFUSED));
  Service("start");
  const size_t handshakesBefore = Handshakes();
  // The new channel logs in again with the PIN the context cached from the dialog.
  EXPECT_EQ(Sign(prov, TextBytes("after")).size(), 128u) << std::hex << lastError;
  EXPECT_EQ(Handshakes(), handshakesBefore + 1);
  // The service judges a wrong PIN: result 0, which the provider reports as SCARD_E_INVALID_CHV.
  const char wrongPin[] = "9999";
  EXPECT_FALSE(CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(wrongPin), 0));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(SCARD_E_INVALID_CHV));
}

// Resident memory of the card service, in KiB (its /proc status, read through Wine's Z: drive).
long ServiceRssKib() {
  std::ifstream status("Z:/proc/" + servicetest::FixtureFile(ServiceDir(), "service.pid") + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return -1;
}

// One client process of the load case: this program started again with --load-client. Four
// threads, each with a context of its own on the same container, sign distinct SHA-1 hashes until
// the time is up and check every signature with the pair's public key (the provider's own
// verification, which its tests hold against Wine's). Prints "signed <n> verified <m> failed <k>".
int LoadClient(const std::string& container, const std::string& pin, int seconds) {
  PrivateMachineHive hive;
  hive.SetModulePath(ProgramDirectory() + L"nivrap11fwd.dll");
  hive.RegisterProvider(L"Nivra pkcs11 CSP", ProgramDirectory() + L"nivracsp_svctest.dll");
  hive.Activate();
  std::atomic<long> signedCount{0}, verified{0}, failed{0};
  const ULONGLONG until = GetTickCount64() + 1000ULL * seconds;
  auto run = [&](int thread) {
    HCRYPTPROV prov = 0;
    HCRYPTKEY key = 0;
    if (!CryptAcquireContextA(&prov, container.c_str(), "Nivra pkcs11 CSP", PROV_RSA_FULL,
                              CRYPT_SILENT) ||
        !CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0) ||
        !CryptGetUserKey(prov, AT_SIGNATURE, &key)) {
      std::printf("error setup 0x%08lx\n", GetLastError());
      ++failed;
      return;
    }
    for (long i = 0; GetTickCount64() < until; ++i) {
      const Bytes message = TextBytes("load " + std::to_string(GetCurrentProcessId()) + " " +
                                      std::to_string(thread) + " " + std::to_string(i));
      HCRYPTHASH hash[2] = {};
      for (HCRYPTHASH& h : hash) {
        CryptCreateHash(prov, CALG_SHA1, 0, 0, &h);
        CryptHashData(h, message.data(), static_cast<DWORD>(message.size()), 0);
      }
      BYTE signature[512];
      DWORD length = sizeof(signature);
      if (CryptSignHashW(hash[0], AT_SIGNATURE, nullptr, 0, signature, &length)) {
        ++signedCount;
        if (CryptVerifySignatureW(hash[1], signature, length, key, nullptr, 0)) ++verified;
      } else {
        std::printf("error sign 0x%08lx\n", GetLastError());
        ++failed;
      }
      for (HCRYPTHASH h : hash) CryptDestroyHash(h);
    }
    CryptDestroyKey(key);
    CryptReleaseContext(prov, 0);
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) threads.emplace_back(run, t);
  for (std::thread& t : threads) t.join();
  std::printf("signed %ld verified %ld failed %ld\n", signedCount.load(), verified.load(),
              failed.load());
  std::fflush(stdout);
  hive.Deactivate();
  return failed.load() == 0 ? 0 : 1;
}

FILE* StartLoadClient(const std::string& container, int seconds) {
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, MAX_PATH);
  // cmd /c drops the outermost quotes of the whole line.
  return _popen(("\"\"" + std::string(self) + "\" --load-client \"" + container + "\" 1234 " +
                 std::to_string(seconds) + "\"").c_str(), "r");
}

std::string Finish(FILE* client) {
  std::string output;
  char buffer[512];
  for (size_t got; client && (got = fread(buffer, 1, sizeof buffer, client)) > 0;) {
    output.append(buffer, got);
  }
  if (client) _pclose(client);
  return output;
}

TEST_F(ServiceSlots, FourProcessesOfFourThreadsSignThroughOnePublishedSlot) {
  constexpr int kClients = 4;
  constexpr int kSeconds = 60;
  constexpr DWORD kWarmUpMs = 10000;
  constexpr long kRssGrowthKib = 4096;
  HCRYPTPROV prov = CreateWithPinDialog(CaseName());
  ASSERT_NE(prov, 0u);
  HCRYPTKEY key = 0;
  ASSERT_TRUE(CryptGenKey(prov, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();
  CryptDestroyKey(key);

  std::vector<FILE*> clients;
  for (int i = 0; i < kClients; ++i) clients.push_back(StartLoadClient(OnToken(CaseName()), kSeconds));
  Sleep(kWarmUpMs);
  const long warm = ServiceRssKib();
  ASSERT_GT(warm, 0);
  for (FILE* client : clients) {
    const std::string output = Finish(client);
    long signedCount = -1, verified = -1, failed = -1;
    ASSERT_EQ(std::sscanf(output.c_str(), "signed %ld verified %ld failed %ld", &signedCount,
                          &verified, &failed),
              3)
        << output;
    EXPECT_GT(signedCount, 0);
    EXPECT_EQ(verified, signedCount) << "every signature verifies";
    EXPECT_EQ(failed, 0) << output;
  }
  EXPECT_LT(ServiceRssKib() - warm, kRssGrowthKib) << "the service's memory stays flat";
}

}  // namespace
}  // namespace nivra::p11test

int main(int argc, char** argv) {
  if (argc == 5 && std::string(argv[1]) == "--load-client") {
    return nivra::p11test::LoadClient(argv[2], argv[3], std::atoi(argv[4]));
  }
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
