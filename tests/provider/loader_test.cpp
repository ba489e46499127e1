// The provider as applications meet it: registered with regsvr32 and loaded by Wine's CryptoAPI
// loader (advapi32), which loads the DLL for each context and frees it at each release.
#include <windows.h>
#include <tlhelp32.h>

#include <string>
#include <vector>

#include "provider_fixture.h"

namespace {

const wchar_t kProviderName[] = L"Nivra pkcs11 CSP";
const wchar_t kRegistryBase[] = L"SOFTWARE\\Microsoft\\Cryptography\\Defaults\\Provider\\";

std::wstring ModuleDirectory() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring dir = path;
  return dir.substr(0, dir.find_last_of(L"\\/") + 1);
}

// Runs a program of the build directory (or of Wine's system) and returns its exit code.
DWORD RunProgram(const std::wstring& commandLine, DWORD timeoutMs = 60000) {
  STARTUPINFOW si{};
  si.cb = sizeof(si);
  PROCESS_INFORMATION pi{};
  std::wstring cmd = commandLine;
  if (!CreateProcessW(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr,
                      ModuleDirectory().c_str(), &si, &pi)) {
    return 0xFFFFFFFF;
  }
  DWORD wait = WaitForSingleObject(pi.hProcess, timeoutMs);
  DWORD code = 0xFFFFFFFE;
  if (wait == WAIT_OBJECT_0) GetExitCodeProcess(pi.hProcess, &code);
  else TerminateProcess(pi.hProcess, 99);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  return code;
}

bool ReadRegistration(const wchar_t* name, std::wstring* imagePath, DWORD* type, DWORD* sigInFile) {
  const std::wstring key = std::wstring(kRegistryBase) + name;
  wchar_t path[MAX_PATH] = {};
  DWORD size = sizeof(path), dwordSize = sizeof(DWORD);
  const bool found = RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Image Path", RRF_RT_REG_SZ, nullptr, path, &size) == ERROR_SUCCESS;
  RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"Type", RRF_RT_REG_DWORD, nullptr, type, &dwordSize);
  RegGetValueW(HKEY_LOCAL_MACHINE, key.c_str(), L"SigInFile", RRF_RT_REG_DWORD, nullptr, sigInFile, &dwordSize);
  *imagePath = path;
  return found;
}

DWORD AcquireThroughLoader(const wchar_t* container, const wchar_t* provider, DWORD flags,
                           HCRYPTPROV* out = nullptr) {
  HCRYPTPROV prov = 0;
  SetLastError(0);
  BOOL ok = CryptAcquireContextW(&prov, container, provider, PROV_RSA_FULL, flags);
  DWORD error = ok ? 0 : GetLastError();
  if (ok && out != nullptr) *out = prov;
  else if (ok) CryptReleaseContext(prov, 0);
  return error;
}

size_t ThreadsOfThisProcess() {
  HANDLE snap = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  size_t count = 0;
  for (BOOL ok = Thread32First(snap, &entry); ok; ok = Thread32Next(snap, &entry)) {
    if (entry.th32OwnerProcessID == GetCurrentProcessId()) ++count;
  }
  CloseHandle(snap);
  return count;
}

class Loader : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::wstring dll = ModuleDirectory() + kProductDll;
    ASSERT_EQ(RunProgram(L"regsvr32.exe /s \"" + dll + L"\""), 0u) << "regsvr32 must register the provider";
  }
};

TEST_F(Loader, Regsvr32WritesTheProviderKeyAndRemovesIt) {
  std::wstring path;
  DWORD type = 0, sig = 7;
  ASSERT_TRUE(ReadRegistration(kProviderName, &path, &type, &sig));
  EXPECT_EQ(path, ModuleDirectory() + kProductDll);
  EXPECT_EQ(type, 1u);
  EXPECT_EQ(sig, 0u);
  ASSERT_EQ(RunProgram(L"regsvr32.exe /s /u \"" + ModuleDirectory() + kProductDll + L"\""), 0u);
  EXPECT_FALSE(ReadRegistration(kProviderName, &path, &type, &sig));
  EXPECT_NE(AcquireThroughLoader(nullptr, kProviderName, CRYPT_VERIFYCONTEXT), 0u);
}

TEST_F(Loader, ThreeHundredLoadsAndFreesInOneProcess) {
  const size_t threadsBefore = ThreadsOfThisProcess();
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(AcquireThroughLoader(nullptr, kProviderName, 0), static_cast<DWORD>(NTE_NOT_FOUND)) << i;
  }
  // The module stays pinned after its first load: one watcher thread, not one per load.
  EXPECT_LE(ThreadsOfThisProcess(), threadsBefore + 1);
}

TEST(ProcessExit, ExitingWhileTheWatcherRunsNeitherCrashesNorHangs) {
  for (const wchar_t* variant : {L"product", L"fake"}) {
    const DWORD started = GetTickCount();
    EXPECT_EQ(RunProgram(std::wstring(L"provider_exit_child.exe ") + variant, 20000), 0u) << variant;
    EXPECT_LT(GetTickCount() - started, 15000u) << variant;
  }
}

}  // namespace
