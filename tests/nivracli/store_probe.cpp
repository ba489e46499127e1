// What an application sees in the current user's "MY" store, for the command-line tests: it
// finds a certificate by subject with CertFindCertificateInStore, prints its key link and where
// CryptAcquireCertificatePrivateKey leads; it can put a certificate there the way another
// program would.
//   store_probe find SUBJECT            exit 0 found (and the key acquired), 1 not found
//   store_probe add-foreign CERTFILE    adds a DER certificate without any key link
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<BYTE>;
constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

Bytes Read(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

HCERTSTORE OpenMy() { return CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY"); }

int Find(const char* subject) {
  HCERTSTORE my = OpenMy();
  PCCERT_CONTEXT cert = CertFindCertificateInStore(my, kEncoding, 0, CERT_FIND_SUBJECT_STR_A, subject, nullptr);
  if (cert == nullptr) {
    std::printf("not found\n");
    return 1;
  }
  DWORD length = 0;
  CertGetCertificateContextProperty(cert, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &length);
  Bytes info(length);
  if (length != 0 && CertGetCertificateContextProperty(cert, CERT_KEY_PROV_INFO_PROP_ID, info.data(), &length)) {
    const auto* key = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(info.data());
    std::printf("link provider=%ls container=%ls keySpec=%lu\n", key->pwszProvName, key->pwszContainerName,
                key->dwKeySpec);
  }
  HCRYPTPROV prov = 0;
  DWORD keySpec = 0;
  BOOL release = FALSE;
  if (!CryptAcquireCertificatePrivateKey(cert, CRYPT_ACQUIRE_SILENT_FLAG, nullptr, &prov, &keySpec, &release)) {
    std::printf("acquire failed 0x%08lX\n", GetLastError());
    return 2;
  }
  char name[260] = "", container[260] = "";
  DWORD nameLength = sizeof(name), containerLength = sizeof(container);
  CryptGetProvParam(prov, PP_NAME, reinterpret_cast<BYTE*>(name), &nameLength, 0);
  CryptGetProvParam(prov, PP_CONTAINER, reinterpret_cast<BYTE*>(container), &containerLength, 0);
  std::printf("acquired provider=%s container=%s keySpec=%lu\n", name, container, keySpec);
  if (release) CryptReleaseContext(prov, 0);
  CertFreeCertificateContext(cert);
  CertCloseStore(my, 0);
  return 0;
}

int AddForeign(const char* path) {
  const Bytes der = Read(path);
  HCERTSTORE my = OpenMy();
  const BOOL ok = CertAddEncodedCertificateToStore(my, X509_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
                                                   CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
  CertCloseStore(my, 0);
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "find" && argc == 3) return Find(argv[2]);
  if (command == "add-foreign" && argc == 3) return AddForeign(argv[2]);
  std::fprintf(stderr, "usage: store_probe find SUBJECT | add-foreign CERT\n");
  return 9;
}
