// pkcs11_token_probe: the native side's view for the Windows tests, which start it while the
// helper holds the token.
//
//   pkcs11_token_probe objects <fixture-dir>
//       Logs in to the fixture's SoftHSM2 token as the user and prints one line per object:
//       "object" followed by name=value pairs (byte strings in hex, numbers in decimal) for the
//       attributes the object has.
//   pkcs11_token_probe verify-sha1 <modulus> <exponent> <message> <signature>
//       OpenSSL's verdict on a PKCS#1 v1.5 SHA-1 signature (all arguments hex, big-endian):
//       "verified" or "rejected".
//   pkcs11_token_probe encrypt <pkcs1|oaep> <modulus> <exponent> <message>
//       The message encrypted by OpenSSL under the public key, hex.
// Output ends with a line "done"; errors are printed as "error: ...".
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tools/p11helper/native_module.h"

namespace {

using Bytes = std::vector<uint8_t>;

std::string Hex(const uint8_t* bytes, size_t length) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}

Bytes FromHex(const std::string& text) {
  Bytes bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::strtoul(text.substr(i, 2).c_str(), nullptr, 16)));
  }
  return bytes;
}

int Fail(const std::string& message) {
  std::printf("error: %s\ndone\n", message.c_str());
  return 1;
}

struct Shown {
  CK_ATTRIBUTE_TYPE type;
  const char* name;
  enum { kBytes, kNumber, kFlag } kind;
};

const Shown kShown[] = {
    {CKA_CLASS, "class", Shown::kNumber},
    {CKA_LABEL, "label", Shown::kBytes},
    {CKA_ID, "id", Shown::kBytes},
    {CKA_APPLICATION, "application", Shown::kBytes},
    {CKA_TOKEN, "token", Shown::kFlag},
    {CKA_PRIVATE, "private", Shown::kFlag},
    {CKA_MODIFIABLE, "modifiable", Shown::kFlag},
    {CKA_KEY_TYPE, "key_type", Shown::kNumber},
    {CKA_SENSITIVE, "sensitive", Shown::kFlag},
    {CKA_SIGN, "sign", Shown::kFlag},
    {CKA_DECRYPT, "decrypt", Shown::kFlag},
    {CKA_ENCRYPT, "encrypt", Shown::kFlag},
    {CKA_VERIFY, "verify", Shown::kFlag},
    {CKA_WRAP, "wrap", Shown::kFlag},
    {CKA_MODULUS_BITS, "modulus_bits", Shown::kNumber},
    {CKA_MODULUS, "modulus", Shown::kBytes},
    {CKA_PUBLIC_EXPONENT, "public_exponent", Shown::kBytes},
    {CKA_CERTIFICATE_TYPE, "certificate_type", Shown::kNumber},
    {CKA_VALUE, "value", Shown::kBytes},
    {CKA_SUBJECT, "subject", Shown::kBytes},
};

void PrintObject(CK_FUNCTION_LIST* f, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
  std::string line = "object";
  for (const Shown& shown : kShown) {
    CK_ATTRIBUTE a{shown.type, nullptr, 0};
    if (f->C_GetAttributeValue(session, object, &a, 1) != CKR_OK) continue;
    if (a.ulValueLen == CK_UNAVAILABLE_INFORMATION) continue;
    Bytes value(a.ulValueLen);
    a.pValue = value.data();
    if (!value.empty() && f->C_GetAttributeValue(session, object, &a, 1) != CKR_OK) continue;
    line += std::string(" ") + shown.name + "=";
    if (shown.kind == Shown::kBytes) {
      line += Hex(value.data(), value.size());
    } else if (shown.kind == Shown::kFlag) {
      line += value.size() == 1 && value[0] ? "1" : "0";
    } else {
      CK_ULONG number = 0;
      std::memcpy(&number, value.data(), value.size() < sizeof(number) ? value.size() : sizeof(number));
      line += std::to_string(number);
    }
  }
  std::printf("%s\n", line.c_str());
}

int ListObjects(const std::string& fixture) {
  setenv("SOFTHSM2_CONF", (fixture + "/softhsm2.conf").c_str(), 1);
  nivra::p11helper::NativeModule softhsm;
  std::string error;
  if (!softhsm.Load(nivra::p11helper::kDefaultModulePath, &error)) return Fail(error);
  CK_FUNCTION_LIST* f = softhsm.functions();
  CK_SLOT_ID slots[16];
  CK_ULONG count = 16;
  if (f->C_GetSlotList(CK_TRUE, slots, &count) != CKR_OK || count == 0) return Fail("no token");
  CK_SESSION_HANDLE session = 0;
  if (f->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session) != CKR_OK) {
    return Fail("no session");
  }
  CK_UTF8CHAR pin[] = "1234";
  if (f->C_Login(session, CKU_USER, pin, 4) != CKR_OK) return Fail("login refused");
  if (f->C_FindObjectsInit(session, nullptr, 0) != CKR_OK) return Fail("search refused");
  std::vector<CK_OBJECT_HANDLE> objects(1024);
  CK_ULONG found = 0;
  f->C_FindObjects(session, objects.data(), static_cast<CK_ULONG>(objects.size()), &found);
  f->C_FindObjectsFinal(session);
  for (CK_ULONG i = 0; i < found; ++i) PrintObject(f, session, objects[i]);
  f->C_Logout(session);
  f->C_CloseSession(session);
  std::printf("done\n");
  return 0;
}

EVP_PKEY* PublicKey(const Bytes& modulus, const Bytes& exponent) {
  BIGNUM* n = BN_bin2bn(modulus.data(), static_cast<int>(modulus.size()), nullptr);
  BIGNUM* e = BN_bin2bn(exponent.data(), static_cast<int>(exponent.size()), nullptr);
  OSSL_PARAM_BLD* build = OSSL_PARAM_BLD_new();
  OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_N, n);
  OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_E, e);
  OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(build);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_fromdata_init(ctx) <= 0 ||
      EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params) <= 0) {
    key = nullptr;
  }
  EVP_PKEY_CTX_free(ctx);
  OSSL_PARAM_free(params);
  OSSL_PARAM_BLD_free(build);
  BN_free(n);
  BN_free(e);
  return key;
}

int VerifySha1(char** argv) {
  EVP_PKEY* key = PublicKey(FromHex(argv[2]), FromHex(argv[3]));
  if (key == nullptr) return Fail("bad public key");
  const Bytes message = FromHex(argv[4]);
  const Bytes signature = FromHex(argv[5]);
  EVP_MD_CTX* md = EVP_MD_CTX_new();
  const bool verified =
      EVP_DigestVerifyInit(md, nullptr, EVP_sha1(), nullptr, key) == 1 &&
      EVP_DigestVerify(md, signature.data(), signature.size(), message.data(), message.size()) == 1;
  EVP_MD_CTX_free(md);
  EVP_PKEY_free(key);
  std::printf("%s\ndone\n", verified ? "verified" : "rejected");
  return 0;
}

int Encrypt(char** argv) {
  const bool oaep = std::strcmp(argv[2], "oaep") == 0;
  EVP_PKEY* key = PublicKey(FromHex(argv[3]), FromHex(argv[4]));
  if (key == nullptr) return Fail("bad public key");
  const Bytes message = FromHex(argv[5]);
  EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
  size_t length = 0;
  Bytes out;
  bool ok = EVP_PKEY_encrypt_init(ctx) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(ctx, oaep ? RSA_PKCS1_OAEP_PADDING : RSA_PKCS1_PADDING) == 1 &&
            EVP_PKEY_encrypt(ctx, nullptr, &length, message.data(), message.size()) == 1;
  if (ok) {
    out.resize(length);
    ok = EVP_PKEY_encrypt(ctx, out.data(), &length, message.data(), message.size()) == 1;
  }
  EVP_PKEY_CTX_free(ctx);
  EVP_PKEY_free(key);
  if (!ok) return Fail("encryption refused");
  std::printf("%s\ndone\n", Hex(out.data(), length).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "objects") == 0) return ListObjects(argv[2]);
  if (argc == 6 && std::strcmp(argv[1], "verify-sha1") == 0) return VerifySha1(argv);
  if (argc == 6 && std::strcmp(argv[1], "encrypt") == 0) return Encrypt(argv);
  return Fail("usage: objects <dir> | verify-sha1 n e message signature | encrypt pkcs1|oaep n e message");
}
