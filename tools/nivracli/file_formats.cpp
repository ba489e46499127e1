#include "file_formats.h"

#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "cli_error.h"
#include "der_reader.h"

namespace nivracli {

namespace {

// The RSAPrivateKey inside a PKCS#8 PrivateKeyInfo (version, algorithm, octet string), or the
// input itself when it is not one.
Bytes UnwrapPkcs8(const Bytes& der) {
  DerElement outer, version, algorithm, key;
  if (!ReadDerElement(der, 0, der.size(), &outer) || outer.tag != kDerSequence) return der;
  if (!ReadDerElement(der, outer.begin, outer.end, &version) || version.tag != kDerInteger) return der;
  if (!ReadDerElement(der, version.end, outer.end, &algorithm) || algorithm.tag != kDerSequence) return der;
  if (!ReadDerElement(der, algorithm.end, outer.end, &key) || key.tag != kDerOctetString) return der;
  return DerContents(der, key);
}

}  // namespace

Bytes ReadWholeFile(const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) FailWith("cannot read \"" + path + "\"", kExitFailed);
  Bytes data;
  BYTE chunk[4096];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof(chunk), f)) > 0) data.insert(data.end(), chunk, chunk + n);
  std::fclose(f);
  return data;
}

void WriteWholeFile(const std::string& path, const Bytes& data) {
  FILE* f = std::fopen(path.c_str(), "wb");
  const bool ok = f != nullptr && std::fwrite(data.data(), 1, data.size(), f) == data.size();
  if (f != nullptr && std::fclose(f) != 0) FailWith("cannot write \"" + path + "\"", kExitFailed);
  if (!ok) FailWith("cannot write \"" + path + "\"", kExitFailed);
}

std::string ToPem(const Bytes& der, const std::string& label) {
  DWORD length = 0;
  const DWORD flags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCR;
  if (!CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), flags, nullptr, &length)) {
    FailLast("PEM encoding");
  }
  std::string base64(length, '\0');
  if (!CryptBinaryToStringA(der.data(), static_cast<DWORD>(der.size()), flags, &base64[0], &length)) {
    FailLast("PEM encoding");
  }
  base64.resize(length);
  return "-----BEGIN " + label + "-----\n" + base64 + "-----END " + label + "-----\n";
}

Bytes FromPem(const Bytes& text, const std::string& label) {
  const std::string all(text.begin(), text.end());
  const std::string begin = "-----BEGIN " + label + "-----";
  const std::string end = "-----END " + label + "-----";
  const size_t b = all.find(begin);
  if (b == std::string::npos) return Bytes();
  const size_t e = all.find(end, b);
  if (e == std::string::npos) return Bytes();
  const std::string body = all.substr(b + begin.size(), e - b - begin.size());
  DWORD length = 0;
  if (!CryptStringToBinaryA(body.c_str(), static_cast<DWORD>(body.size()), CRYPT_STRING_BASE64,
                            nullptr, &length, nullptr, nullptr)) {
    return Bytes();
  }
  Bytes der(length);
  if (!CryptStringToBinaryA(body.c_str(), static_cast<DWORD>(body.size()), CRYPT_STRING_BASE64,
                            der.data(), &length, nullptr, nullptr)) {
    return Bytes();
  }
  der.resize(length);
  return der;
}

Bytes CertificateFromFile(const Bytes& file) {
  Bytes der = FromPem(file, "CERTIFICATE");
  return der.empty() ? file : der;
}

Bytes PrivateKeyBlobFromKeyFile(const Bytes& file, DWORD keySpec) {
  Bytes der = FromPem(file, "RSA PRIVATE KEY");
  if (der.empty()) der = FromPem(file, "PRIVATE KEY");
  if (der.empty()) der = file;
  der = UnwrapPkcs8(der);
  BYTE* blob = nullptr;
  DWORD length = 0;
  if (!CryptDecodeObjectEx(X509_ASN_ENCODING, PKCS_RSA_PRIVATE_KEY, der.data(),
                           static_cast<DWORD>(der.size()), CRYPT_DECODE_ALLOC_FLAG, nullptr, &blob,
                           &length)) {
    FailLast("the key file holds no RSA private key");
  }
  Bytes result(blob, blob + length);
  LocalFree(blob);
  reinterpret_cast<BLOBHEADER*>(result.data())->aiKeyAlg =
      keySpec == AT_SIGNATURE ? CALG_RSA_SIGN : CALG_RSA_KEYX;
  return result;
}

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

}  // namespace nivracli
