// nivracli: drives the Nivra pkcs11 CSP only through public CryptoAPI, the way an application
// does, and says in words what it got.
//
//   nivracli [--provider NAME] [--verify] [--silent] [--new] [--delete]
//            [--pin PIN] [--genkey] [--sign TEXT] [CONTAINER]
//
// Acquires a context on CONTAINER (for example "\\.\<slot name>\<container>"), prints the
// provider's name, type, version and container and lists the containers on the card. With
// --pin, the provider's PIN dialog is answered with PIN when it appears; --genkey makes a new signature key
// pair on the card; --sign hashes TEXT with SHA-1, signs it with the container's signature key,
// and checks the signature independently with the Windows software provider. Exit status 0
// when everything asked for worked.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "status_names.h"

namespace {

const char kDefaultProvider[] = "Nivra pkcs11 CSP";

struct Options {
  std::string provider = kDefaultProvider;
  DWORD flags = 0;
  const char* container = nullptr;
  const char* pin = nullptr;
  const char* signText = nullptr;
  bool genKey = false;
};

bool Fail(const char* what) {
  std::printf("%s failed: %s\n", what, DescribeStatus(GetLastError()).c_str());
  return false;
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

void PrintHex(const char* label, const BYTE* data, DWORD length) {
  std::printf("  %-10s", label);
  for (DWORD i = 0; i < length && i < 24; ++i) std::printf("%02x", data[i]);
  std::printf("%s (%lu bytes)\n", length > 24 ? "..." : "", length);
}

// With --pin, a PIN dialog that the provider opens (for instance when a new container needs a
// login) is answered the way a user would: the PIN typed into the dialog's field, OK pressed.
// The dialog is recognised by its PIN field (control 5000) and label (control 5002).
constexpr int kPinField = 5000;
constexpr int kPinLabel = 5002;

struct PinAnswer {
  const char* pin;
  HANDLE stop;
};

BOOL CALLBACK AnswerIfPinDialog(HWND window, LPARAM param) {
  DWORD pid = 0;
  GetWindowThreadProcessId(window, &pid);
  if (pid != GetCurrentProcessId() || !IsWindowVisible(window)) return TRUE;
  if (GetDlgItem(window, kPinField) == nullptr || GetDlgItem(window, kPinLabel) == nullptr) return TRUE;
  SetDlgItemTextA(window, kPinField, reinterpret_cast<const char*>(param));
  PostMessageW(window, WM_COMMAND, IDOK, 0);
  std::printf("PIN dialog answered\n");
  return FALSE;
}

DWORD WINAPI PinAnswerThread(LPVOID param) {
  auto* answer = static_cast<PinAnswer*>(param);
  while (WaitForSingleObject(answer->stop, 100) == WAIT_TIMEOUT) {
    EnumWindows(AnswerIfPinDialog, reinterpret_cast<LPARAM>(answer->pin));
  }
  return 0;
}

bool GenerateSignatureKey(HCRYPTPROV prov) {
  HCRYPTKEY key = 0;
  if (!CryptGenKey(prov, AT_SIGNATURE, 2048u << 16, &key)) return Fail("CryptGenKey(AT_SIGNATURE, 2048 bits)");
  std::printf("signature key pair generated on the card (2048 bits)\n");
  CryptDestroyKey(key);
  return true;
}

// Signs `text` on the card and verifies the signature with the software provider holding only
// the exported public key: an independent check of the whole path.
bool SignAndCheck(HCRYPTPROV prov, const char* text) {
  HCRYPTHASH hash = 0;
  if (!CryptCreateHash(prov, CALG_SHA1, 0, 0, &hash)) return Fail("CryptCreateHash");
  CryptHashData(hash, reinterpret_cast<const BYTE*>(text), static_cast<DWORD>(std::strlen(text)), 0);
  DWORD sigLength = 0;
  if (!CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, nullptr, &sigLength)) return Fail("CryptSignHash (size)");
  std::vector<BYTE> signature(sigLength);
  if (!CryptSignHashW(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &sigLength)) return Fail("CryptSignHash");
  std::printf("signed \"%s\" with the card's signature key\n", text);
  PrintHex("signature", signature.data(), sigLength);

  HCRYPTKEY pair = 0;
  if (!CryptGetUserKey(prov, AT_SIGNATURE, &pair)) return Fail("CryptGetUserKey");
  DWORD blobLength = 0;
  CryptExportKey(pair, 0, PUBLICKEYBLOB, 0, nullptr, &blobLength);
  std::vector<BYTE> blob(blobLength);
  if (!CryptExportKey(pair, 0, PUBLICKEYBLOB, 0, blob.data(), &blobLength)) return Fail("CryptExportKey(PUBLICKEYBLOB)");

  HCRYPTPROV soft = 0;
  if (!CryptAcquireContextW(&soft, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
    return Fail("CryptAcquireContext(Microsoft Strong Cryptographic Provider)");
  }
  HCRYPTKEY publicKey = 0;
  HCRYPTHASH softHash = 0;
  bool ok = CryptImportKey(soft, blob.data(), blobLength, 0, 0, &publicKey) &&
            CryptCreateHash(soft, CALG_SHA1, 0, 0, &softHash) &&
            CryptHashData(softHash, reinterpret_cast<const BYTE*>(text), static_cast<DWORD>(std::strlen(text)), 0);
  if (ok && CryptVerifySignatureW(softHash, signature.data(), sigLength, publicKey, nullptr, 0)) {
    std::printf("signature verified by the Microsoft Strong Cryptographic Provider\n");
  } else {
    ok = Fail("independent verification");
  }
  CryptDestroyHash(softHash);
  CryptDestroyKey(publicKey);
  CryptReleaseContext(soft, 0);
  CryptDestroyKey(pair);
  CryptDestroyHash(hash);
  return ok;
}

bool ParseArguments(int argc, char** argv, Options* o) {
  for (int i = 1; i < argc; ++i) {
    const char* a = argv[i];
    if (!std::strcmp(a, "--provider") && i + 1 < argc) {
      o->provider = argv[++i];
    } else if (!std::strcmp(a, "--pin") && i + 1 < argc) {
      o->pin = argv[++i];
    } else if (!std::strcmp(a, "--sign") && i + 1 < argc) {
      o->signText = argv[++i];
    } else if (!std::strcmp(a, "--genkey")) {
      o->genKey = true;
    } else if (!std::strcmp(a, "--verify")) {
      o->flags |= CRYPT_VERIFYCONTEXT;
    } else if (!std::strcmp(a, "--silent")) {
      o->flags |= CRYPT_SILENT;
    } else if (!std::strcmp(a, "--new")) {
      o->flags |= CRYPT_NEWKEYSET;
    } else if (!std::strcmp(a, "--delete")) {
      o->flags |= CRYPT_DELETEKEYSET;
    } else if (a[0] == '-' && a[1] == '-') {
      return false;
    } else {
      o->container = a;
    }
  }
  return true;
}

int Work(HCRYPTPROV prov, const Options& o);

}  // namespace

int main(int argc, char** argv) {
  Options o;
  if (!ParseArguments(argc, argv, &o)) {
    std::fprintf(stderr,
                 "usage: nivracli [--provider NAME] [--verify] [--silent] [--new] [--delete]\n"
                 "                [--pin PIN] [--genkey] [--sign TEXT] [CONTAINER]\n");
    return 2;
  }
  std::printf("CryptAcquireContext(\"%s\", provider \"%s\", flags 0x%08lX)\n",
              o.container != nullptr ? o.container : "(default)", o.provider.c_str(), o.flags);
  PinAnswer answer{o.pin, CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  HANDLE answering = o.pin != nullptr ? CreateThread(nullptr, 0, PinAnswerThread, &answer, 0, nullptr) : nullptr;
  HCRYPTPROV prov = 0;
  const bool acquired = CryptAcquireContextA(&prov, o.container, o.provider.c_str(), PROV_RSA_FULL, o.flags);
  if (!acquired) Fail("CryptAcquireContext");
  const int status = acquired ? Work(prov, o) : 1;
  SetEvent(answer.stop);
  if (answering != nullptr) WaitForSingleObject(answering, INFINITE);
  return status;
}

namespace {

int Work(HCRYPTPROV prov, const Options& o) {
  if (o.flags & CRYPT_DELETEKEYSET) {
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

  bool ok = true;
  if (o.genKey) ok = GenerateSignatureKey(prov);
  if (ok && o.signText != nullptr) ok = SignAndCheck(prov, o.signText);
  if (!CryptReleaseContext(prov, 0)) ok = Fail("CryptReleaseContext");
  else std::printf("context released\n");
  return ok ? 0 : 1;
}

}  // namespace
