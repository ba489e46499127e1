// The provider as applications meet it: registered with regsvr32 and loaded by Wine's CryptoAPI
// loader (advapi32), which loads the DLL for each context and frees it at each release.
#include <windows.h>
#include <tlhelp32.h>

#include <string>

#include "provider_fixture.h"

namespace {

const wchar_t kProviderName[] = L"Nivra pkcs11 CSP";

std::wstring ModuleDirectory() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring dir = path;
  return dir.substr(0, dir.find_last_of(L"\\/") + 1);
}

// Runs a program of the build directory (or of Wine's system) and returns its exit code.
DWORD RunProgram(const std::wstring& commandLine) {
  STARTUPINFOW si{};
  si.cb = sizeof(si);
  PROCESS_INFORMATION pi{};
  std::wstring cmd = commandLine;
  if (!CreateProcessW(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr,
                      ModuleDirectory().c_str(), &si, &pi)) {
    return 0xFFFFFFFF;
  }
  DWORD wait = WaitForSingleObject(pi.hProcess, 60000);
  DWORD code = 0xFFFFFFFE;
  if (wait == WAIT_OBJECT_0) GetExitCodeProcess(pi.hProcess, &code);
  else TerminateProcess(pi.hProcess, 99);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  return code;
}

DWORD AcquireThroughLoader(DWORD flags) {
  HCRYPTPROV prov = 0;
  if (CryptAcquireContextW(&prov, nullptr, kProviderName, PROV_RSA_FULL, flags)) {
    CryptReleaseContext(prov, 0);
    return 0;
  }
  return GetLastError();
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

// Registered, the loader reaches this DLL (its own NTE_NOT_FOUND: no card); removed, the loader no
// longer knows the provider.
TEST_F(Loader, Regsvr32WritesTheProviderKeyAndRemovesIt) {
  EXPECT_EQ(AcquireThroughLoader(CRYPT_VERIFYCONTEXT), static_cast<DWORD>(NTE_NOT_FOUND));
  ASSERT_EQ(RunProgram(L"regsvr32.exe /s /u \"" + ModuleDirectory() + kProductDll + L"\""), 0u);
  EXPECT_EQ(AcquireThroughLoader(CRYPT_VERIFYCONTEXT), static_cast<DWORD>(NTE_KEYSET_NOT_DEF));
}

TEST_F(Loader, ThreeHundredLoadsAndFreesInOneProcess) {
  const size_t threadsBefore = ThreadsOfThisProcess();
  for (int i = 0; i < 300; ++i) {
    ASSERT_EQ(AcquireThroughLoader(0), static_cast<DWORD>(NTE_NOT_FOUND)) << i;
  }
  // The module stays pinned after its first load: one watcher thread, not one per load.
  EXPECT_LE(ThreadsOfThisProcess(), threadsBefore + 1);
}

}  // namespace
