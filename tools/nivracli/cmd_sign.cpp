// Signatures over a file: a raw CryptoAPI signature (PKCS#1 v1.5, written big-endian as other
// tools expect it) or a detached CMS signature made by crypt32 with the key's certificate; and
// their verification.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"
#include "commands.h"
#include "file_formats.h"
#include "signer_certificate.h"

namespace nivracli {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

struct HashChoice {
  ALG_ID alg;
  const char* oid;
};

HashChoice ChosenHash(const Args& args) {
  const std::string name = args.Get("hash", "sha1");
  if (name == "sha1") return {CALG_SHA1, szOID_OIWSEC_sha1};
  if (name == "md5") return {CALG_MD5, szOID_RSA_MD5};
  UsageError("--hash is sha1 or md5");
}

// A hash object of `ctx` over `data`, destroyed when it goes out of scope.
class Hash {
 public:
  Hash(const Context& ctx, ALG_ID alg, const Bytes& data) {
    if (!CryptCreateHash(ctx.get(), alg, 0, 0, &hash_)) FailLast("creating the hash");
    if (!CryptHashData(hash_, data.data(), static_cast<DWORD>(data.size()), 0)) FailLast("hashing the file");
  }
  ~Hash() { CryptDestroyHash(hash_); }
  Hash(const Hash&) = delete;
  Hash& operator=(const Hash&) = delete;
  HCRYPTHASH get() const { return hash_; }

 private:
  HCRYPTHASH hash_ = 0;
};

void WriteResult(const Args& args, const Bytes& bytes, const char* what) {
  WriteWholeFile(args.Need("out"), bytes);
  std::printf("%s written to %s (%u bytes)\n", what, args.Get("out").c_str(), static_cast<unsigned>(bytes.size()));
}

int SignRaw(const Args& args, const std::string& container, DWORD keySpec, const Bytes& data) {
  Context ctx = OpenContainer(args, container, 0, true);
  Hash hash(ctx, ChosenHash(args).alg, data);
  DWORD length = 0;
  if (!CryptSignHashW(hash.get(), keySpec, nullptr, 0, nullptr, &length)) FailLast("signing on the card");
  Bytes signature(length);
  if (!CryptSignHashW(hash.get(), keySpec, nullptr, 0, signature.data(), &length)) FailLast("signing on the card");
  signature.resize(length);
  WriteResult(args, Reversed(signature), "signature (PKCS#1 v1.5, big-endian)");
  return kExitOk;
}

int SignCms(const Args& args, const std::string& container, DWORD keySpec, const Bytes& data) {
  LogIn(args, ChosenCard(args));
  CertificateRef cert(CertificateOfContainerKey(args, container, keySpec));
  PCCERT_CONTEXT certs[] = {cert.get()};
  CRYPT_SIGN_MESSAGE_PARA para{};
  para.cbSize = sizeof(para);
  para.dwMsgEncodingType = kEncoding;
  para.pSigningCert = cert.get();
  para.HashAlgorithm.pszObjId = const_cast<char*>(ChosenHash(args).oid);
  para.cMsgCert = 1;
  para.rgpMsgCert = certs;
  const BYTE* parts[] = {data.data()};
  DWORD partLengths[] = {static_cast<DWORD>(data.size())};
  DWORD length = 0;
  if (!CryptSignMessage(&para, TRUE, 1, parts, partLengths, nullptr, &length)) {
    FailLast("CryptSignMessage (detached CMS signature)");
  }
  Bytes signature(length);
  if (!CryptSignMessage(&para, TRUE, 1, parts, partLengths, signature.data(), &length)) {
    FailLast("CryptSignMessage (detached CMS signature)");
  }
  signature.resize(length);
  WriteResult(args, signature, "detached CMS signature (DER)");
  return kExitOk;
}

int Sign(const Args& args) {
  const std::string container = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_SIGNATURE);
  const Bytes data = ReadWholeFile(args.Need("in"));
  return args.Has("cms") ? SignCms(args, container, keySpec, data) : SignRaw(args, container, keySpec, data);
}

int VerifyRaw(const Args& args, const std::string& container, const Bytes& data, const Bytes& signature) {
  const DWORD keySpec = args.KeySpec(AT_SIGNATURE);
  Context ctx = OpenContainer(args, container, CRYPT_SILENT, false);
  Key key;
  GetUserKey(ctx, keySpec, &key);
  Hash hash(ctx, ChosenHash(args).alg, data);
  const Bytes littleEndian = Reversed(signature);
  if (!CryptVerifySignatureW(hash.get(), littleEndian.data(), static_cast<DWORD>(littleEndian.size()),
                             key.get(), nullptr, 0)) {
    FailLast("the signature does not verify");
  }
  std::printf("signature verified with the %s key of container \"%s\"\n", KeySpecName(keySpec), container.c_str());
  return kExitOk;
}

int VerifyCms(const Bytes& data, const Bytes& signature) {
  CRYPT_VERIFY_MESSAGE_PARA para{};
  para.cbSize = sizeof(para);
  para.dwMsgAndCertEncodingType = kEncoding;
  const BYTE* parts[] = {data.data()};
  DWORD partLengths[] = {static_cast<DWORD>(data.size())};
  PCCERT_CONTEXT signer = nullptr;
  if (!CryptVerifyDetachedMessageSignature(&para, 0, signature.data(), static_cast<DWORD>(signature.size()),
                                           1, parts, partLengths, &signer)) {
    FailLast("the CMS signature does not verify");
  }
  char name[512] = "";
  CertNameToStrA(X509_ASN_ENCODING, &signer->pCertInfo->Subject, CERT_X500_NAME_STR, name, sizeof(name));
  CertFreeCertificateContext(signer);
  std::printf("CMS signature verified; signer: %s\n", name);
  return kExitOk;
}

int Verify(const Args& args) {
  const Bytes data = ReadWholeFile(args.Need("in"));
  const Bytes signature = ReadWholeFile(args.Need("sig"));
  if (args.Has("cms")) return VerifyCms(data, signature);
  return VerifyRaw(args, args.Word(0, "a container name"), data, signature);
}

}  // namespace

void AddSignatureCommands(std::vector<Command>* commands) {
  commands->push_back({"sign", "CONTAINER --in FILE --out SIG [--hash sha1|md5] [--key-spec S] [--cms]",
                       "sign a file on the card: raw PKCS#1 v1.5 signature (big-endian), or with "
                       "--cms a detached CMS signature through CryptSignMessage",
                       Sign});
  commands->push_back({"verify", "CONTAINER --in FILE --sig SIG [--hash H] [--key-spec S] | --cms --in FILE --sig SIG",
                       "verify a raw signature with the container's public key, or a detached "
                       "CMS signature with the certificate it carries",
                       Verify});
}

}  // namespace nivracli
