// nivracli: drives the Nivra pkcs11 CSP only through public CryptoAPI, the way an application
// does, and says in words what it got.
//
//   nivracli [--provider NAME] [--verify] [--silent] [--new] [--delete] [CONTAINER]
//
// Acquires a context on CONTAINER (for example "\\.\<slot name>\<container>"), prints the
// provider's name, type, version and container, lists the containers on the card, and releases
// the context. Exit status 0 when the context was acquired.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "status_names.h"

namespace {

const char kDefaultProvider[] = "Nivra pkcs11 CSP";

void PrintFailure(const char* what) {
  std::printf("%s failed: %s\n", what, DescribeStatus(GetLastError()).c_str());
}

void PrintStringParam(HCRYPTPROV prov, DWORD param, const char* label) {
  char buffer[512];
  DWORD length = sizeof(buffer);
  if (CryptGetProvParam(prov, param, reinterpret_cast<BYTE*>(buffer), &length, 0)) {
    std::printf("  %-10s %s\n", label, buffer);
  } else {
    std::printf("  %-10s (%s)\n", label, DescribeStatus(GetLastError()).c_str());
  }
}

void PrintDwordParam(HCRYPTPROV prov, DWORD param, const char* label) {
  DWORD value = 0;
  DWORD length = sizeof(value);
  if (CryptGetProvParam(prov, param, reinterpret_cast<BYTE*>(&value), &length, 0)) {
    std::printf("  %-10s 0x%lX\n", label, value);
  } else {
    std::printf("  %-10s (%s)\n", label, DescribeStatus(GetLastError()).c_str());
  }
}

void ListContainers(HCRYPTPROV prov) {
  char name[256];
  DWORD flags = CRYPT_FIRST;
  int count = 0;
  for (;;) {
    DWORD length = sizeof(name);
    if (!CryptGetProvParam(prov, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &length, flags)) {
      DWORD error = GetLastError();
      if (error != ERROR_NO_MORE_ITEMS) std::printf("  containers: %s\n", DescribeStatus(error).c_str());
      break;
    }
    std::printf("  container  %s\n", name);
    flags = 0;
    ++count;
  }
  std::printf("  %d container(s) listed\n", count);
}

}  // namespace

int main(int argc, char** argv) {
  std::string provider = kDefaultProvider;
  DWORD flags = 0;
  const char* container = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--provider") && i + 1 < argc) {
      provider = argv[++i];
    } else if (!std::strcmp(argv[i], "--verify")) {
      flags |= CRYPT_VERIFYCONTEXT;
    } else if (!std::strcmp(argv[i], "--silent")) {
      flags |= CRYPT_SILENT;
    } else if (!std::strcmp(argv[i], "--new")) {
      flags |= CRYPT_NEWKEYSET;
    } else if (!std::strcmp(argv[i], "--delete")) {
      flags |= CRYPT_DELETEKEYSET;
    } else if (argv[i][0] == '-' && argv[i][1] == '-') {
      std::fprintf(stderr, "usage: nivracli [--provider NAME] [--verify] [--silent] [--new] [--delete] [CONTAINER]\n");
      return 2;
    } else {
      container = argv[i];
    }
  }

  std::printf("CryptAcquireContext(\"%s\", provider \"%s\", flags 0x%08lX)\n",
              container != nullptr ? container : "(default)", provider.c_str(), flags);
  HCRYPTPROV prov = 0;
  if (!CryptAcquireContextA(&prov, container, provider.c_str(), PROV_RSA_FULL, flags)) {
    PrintFailure("CryptAcquireContext");
    return 1;
  }
  if (flags & CRYPT_DELETEKEYSET) {
    std::printf("container deleted\n");
    return 0;
  }
  std::printf("context acquired\n");
  PrintStringParam(prov, PP_NAME, "provider");
  PrintDwordParam(prov, PP_PROVTYPE, "type");
  PrintDwordParam(prov, PP_VERSION, "version");
  PrintDwordParam(prov, PP_IMPTYPE, "impl");
  PrintStringParam(prov, PP_CONTAINER, "container");
  ListContainers(prov);
  if (!CryptReleaseContext(prov, 0)) {
    PrintFailure("CryptReleaseContext");
    return 1;
  }
  std::printf("context released\n");
  return 0;
}
