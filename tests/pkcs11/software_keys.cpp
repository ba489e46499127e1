#include "software_keys.h"

#include <gtest/gtest.h>
#include <windows.h>
#include <wincrypt.h>

namespace nivra::p11test {

std::vector<uint8_t> SoftwarePrivateKeyBlob() {
  std::vector<uint8_t> blob;
  HCRYPTPROV soft = 0;
  if (!CryptAcquireContextW(&soft, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
    ADD_FAILURE() << "no software provider: " << GetLastError();
    return blob;
  }
  HCRYPTKEY key = 0;
  DWORD length = 0;
  if (CryptGenKey(soft, AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE, &key) &&
      CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, nullptr, &length)) {
    blob.resize(length);
    if (!CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, blob.data(), &length)) blob.clear();
  }
  if (blob.empty()) ADD_FAILURE() << "no private key blob: " << GetLastError();
  if (key != 0) CryptDestroyKey(key);
  CryptReleaseContext(soft, 0);
  return blob;
}

}  // namespace nivra::p11test
