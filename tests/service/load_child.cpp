// One client process of the published-slot load test: four threads, each with a context of its
// own on the same container, sign distinct SHA-1 hashes through CryptSignHash for the given
// number of seconds and check every signature with the pair's public key in Wine's software
// provider. Prints "signed <n> verified <m>" (or "error ...").
//   service_load_child <container string> <PIN> <seconds>
#include <windows.h>
#include <wincrypt.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "machine_hive.h"

namespace {

constexpr int kThreads = 4;
constexpr char kProviderName[] = "Nivra pkcs11 CSP";

std::atomic<long> g_signed{0}, g_verified{0}, g_failed{0};

void Run(const std::string& container, const std::string& pin, ULONGLONG until, int thread) {
  HCRYPTPROV prov = 0, soft = 0;
  HCRYPTKEY key = 0, verifier = 0;
  if (!CryptAcquireContextA(&prov, container.c_str(), kProviderName, PROV_RSA_FULL, CRYPT_SILENT) ||
      !CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin.c_str()), 0) ||
      !CryptGetUserKey(prov, AT_SIGNATURE, &key) ||
      !CryptAcquireContextA(&soft, nullptr, MS_STRONG_PROV_A, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
    std::printf("error setup 0x%08lx\n", GetLastError());
    ++g_failed;
    return;
  }
  BYTE blob[1024];
  DWORD blobLength = sizeof(blob);
  if (!CryptExportKey(key, 0, PUBLICKEYBLOB, 0, blob, &blobLength) ||
      !CryptImportKey(soft, blob, blobLength, 0, 0, &verifier)) {
    ++g_failed;
    return;
  }
  for (long i = 0; GetTickCount64() < until; ++i) {
    const std::string message = "load " + std::to_string(GetCurrentProcessId()) + " " +
                                std::to_string(thread) + " " + std::to_string(i);
    HCRYPTHASH hash = 0, check = 0;
    BYTE signature[512];
    DWORD length = sizeof(signature);
    CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash);
    CryptHashData(hash, reinterpret_cast<const BYTE*>(message.data()),
                  static_cast<DWORD>(message.size()), 0);
    const BOOL ok = CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature, &length);
    CryptDestroyHash(hash);
    if (!ok) {
      std::printf("error sign 0x%08lx\n", GetLastError());
      ++g_failed;
      continue;
    }
    ++g_signed;
    CryptCreateHash(soft, CALG_SHA1, 0, 0, &check);
    CryptHashData(check, reinterpret_cast<const BYTE*>(message.data()),
                  static_cast<DWORD>(message.size()), 0);
    if (CryptVerifySignatureW(check, signature, length, verifier, nullptr, 0)) ++g_verified;
    CryptDestroyHash(check);
  }
  CryptDestroyKey(verifier);
  CryptDestroyKey(key);
  CryptReleaseContext(soft, 0);
  CryptReleaseContext(prov, 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  // The provider's test build and the forwarding module, in a machine hive of this process's own.
  nivra::p11test::PrivateMachineHive hive;
  hive.SetModulePath(nivra::p11test::ProgramDirectory() + L"nivrap11fwd.dll");
  hive.RegisterProvider(L"Nivra pkcs11 CSP",
                        nivra::p11test::ProgramDirectory() + L"nivracsp_svctest.dll");
  hive.Activate();
  const ULONGLONG until = GetTickCount64() + 1000ULL * std::strtoul(argv[3], nullptr, 10);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(Run, argv[1], argv[2], until, t);
  for (std::thread& t : threads) t.join();
  std::printf("signed %ld verified %ld failed %ld\n", g_signed.load(), g_verified.load(),
              g_failed.load());
  std::fflush(stdout);
  hive.Deactivate();
  return g_failed.load() == 0 ? 0 : 1;
}
