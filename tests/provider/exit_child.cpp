// Loads a provider DLL, optionally leaves a context (and a hash) open, and exits at once while
// the provider's watcher thread is running. Exit code 0 when it got as far as exiting.
//   provider_exit_child product|fake
#include <windows.h>
#include <wincrypt.h>

#include <cstring>

int main(int argc, char** argv) {
  const bool fake = argc > 1 && std::strcmp(argv[1], "fake") == 0;
  HMODULE dll = LoadLibraryW(fake ? L"nivracsp_fake.dll" : L"nivracsp.dll");
  if (dll == nullptr) return 10;
  using Acquire = BOOL(WINAPI*)(HCRYPTPROV*, LPSTR, DWORD, void*);
  using CreateHash = BOOL(WINAPI*)(HCRYPTPROV, ALG_ID, HCRYPTKEY, DWORD, HCRYPTHASH*);
  auto acquire = reinterpret_cast<Acquire>(reinterpret_cast<void*>(GetProcAddress(dll, "CPAcquireContext")));
  auto createHash = reinterpret_cast<CreateHash>(reinterpret_cast<void*>(GetProcAddress(dll, "CPCreateHash")));
  if (acquire == nullptr || createHash == nullptr) return 11;
  HCRYPTPROV prov = 0;
  if (fake) {
    using Reset = void (*)(unsigned, unsigned, const char*);
    auto reset = reinterpret_cast<Reset>(reinterpret_cast<void*>(GetProcAddress(dll, "FakeCardReset")));
    if (reset == nullptr) return 12;
    reset(1, 0, "svc0");
    char container[] = "\\\\?\\svc0\\c1";
    if (!acquire(&prov, container, 0, nullptr)) return 13;
    HCRYPTHASH hash = 0;
    if (!createHash(prov, CALG_SHA1, 0, 0, &hash)) return 14;
  } else {
    acquire(&prov, nullptr, CRYPT_VERIFYCONTEXT, nullptr);  // no device: fails, DLL stays loaded
  }
  Sleep(150);  // the watcher thread is in its first sleep now
  return 0;
}
