// Key pairs: generate one on the card, export its public key, import a private key.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "card_wait.h"
#include "cli_error.h"
#include "commands.h"
#include "file_formats.h"
#include "pfx_key_repair.h"
#include "user_store.h"

namespace nivracli {

namespace {


int GenerateKey(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_SIGNATURE);
  const DWORD bits = static_cast<DWORD>(std::stoul(args.Get("bits", "2048")));
  Context ctx = OpenContainer(args, name, 0, true);
  Key key;
  {
    CardWait wait("generating a " + std::to_string(bits) + "-bit " + KeySpecName(keySpec) +
                  " key pair on the card (a slow card takes a minute or more)");
    if (!CryptGenKey(ctx.get(), keySpec, bits << 16, key.out())) {
      FailLast(std::string("generating the ") + KeySpecName(keySpec) + " key pair");
    }
  }
  std::printf("%s key pair of %lu bits generated in container \"%s\"\n", KeySpecName(keySpec), bits,
              name.c_str());
  return kExitOk;
}

int ExportKey(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_SIGNATURE);
  const std::string format = args.Get("format", "pem");
  Context ctx = OpenContainer(args, name, CRYPT_SILENT, false);
  Key key;
  GetUserKey(ctx, keySpec, &key);
  Bytes out;
  if (format == "blob") {
    DWORD length = 0;
    if (!CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, nullptr, &length)) FailLast("exporting the public key");
    out.resize(length);
    if (!CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, out.data(), &length)) FailLast("exporting the public key");
    out.resize(length);
  } else if (format == "pem") {
    DWORD length = 0;
    if (!CryptExportPublicKeyInfo(ctx.get(), keySpec, X509_ASN_ENCODING, nullptr, &length)) {
      FailLast("exporting the public key");
    }
    Bytes info(length);
    auto* publicKey = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(info.data());
    if (!CryptExportPublicKeyInfo(ctx.get(), keySpec, X509_ASN_ENCODING, publicKey, &length)) {
      FailLast("exporting the public key");
    }
    BYTE* der = nullptr;
    DWORD derLength = 0;
    if (!CryptEncodeObjectEx(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, publicKey, CRYPT_ENCODE_ALLOC_FLAG,
                             nullptr, &der, &derLength)) {
      FailLast("encoding the public key");
    }
    const std::string pem = ToPem(Bytes(der, der + derLength), "PUBLIC KEY");
    LocalFree(der);
    out.assign(pem.begin(), pem.end());
  } else {
    UsageError("--format is pem or blob");
  }
  if (args.Has("out")) {
    WriteWholeFile(args.Get("out"), out);
    std::printf("%s public key written to %s (%s)\n", KeySpecName(keySpec), args.Get("out").c_str(),
                format == "pem" ? "PEM SubjectPublicKeyInfo" : "PUBLICKEYBLOB");
  } else {
    std::fwrite(out.data(), 1, out.size(), stdout);
  }
  return kExitOk;
}

// The private key (and certificate) of a PKCS#12 file, through a temporary key set of the
// software provider that is deleted again at once.
Bytes PrivateKeyBlobFromPfx(const Bytes& file, const std::string& password, DWORD keySpec,
                            Bytes* certificate) {
  CRYPT_DATA_BLOB pfx{static_cast<DWORD>(file.size()), const_cast<BYTE*>(file.data())};
  const std::wstring widePassword(password.begin(), password.end());
  HCERTSTORE store = PFXImportCertStore(&pfx, widePassword.c_str(), CRYPT_EXPORTABLE | CRYPT_USER_KEYSET);
  if (store == nullptr) FailLast("opening the PKCS#12 file (wrong --password?)");
  Bytes blob;
  PCCERT_CONTEXT cert = nullptr;
  while ((cert = CertEnumCertificatesInStore(store, cert)) != nullptr) {
    DWORD length = 0;
    if (!CertGetCertificateContextProperty(cert, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &length)) continue;
    Bytes infoBytes(length);
    CertGetCertificateContextProperty(cert, CERT_KEY_PROV_INFO_PROP_ID, infoBytes.data(), &length);
    const auto* info = reinterpret_cast<const CRYPT_KEY_PROV_INFO*>(infoBytes.data());
    HCRYPTPROV prov = 0;
    if (!CryptAcquireContextW(&prov, info->pwszContainerName, info->pwszProvName, info->dwProvType,
                              info->dwFlags)) {
      continue;
    }
    // Wine's PFXImportCertStore records key keySpec 3 while it installs an exchange key.
    HCRYPTKEY key = 0;
    if (CryptGetUserKey(prov, info->dwKeySpec, &key) || CryptGetUserKey(prov, AT_KEYEXCHANGE, &key) ||
        CryptGetUserKey(prov, AT_SIGNATURE, &key)) {
      DWORD blobLength = 0;
      if (CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, nullptr, &blobLength)) {
        blob.resize(blobLength);
        if (!CryptExportKey(key, 0, PRIVATEKEYBLOB, 0, blob.data(), &blobLength)) blob.clear();
        blob.resize(blob.empty() ? 0 : blobLength);
      }
      CryptDestroyKey(key);
    }
    CryptReleaseContext(prov, 0);
    HCRYPTPROV gone = 0;
    CryptAcquireContextW(&gone, info->pwszContainerName, info->pwszProvName, info->dwProvType,
                         info->dwFlags | CRYPT_DELETEKEYSET);
    if (!blob.empty() && !RepairPfxPrivateKeyBlob(&blob, cert)) {
      SecureZeroMemory(blob.data(), blob.size());
      blob.clear();
    }
    if (!blob.empty()) {
      certificate->assign(cert->pbCertEncoded, cert->pbCertEncoded + cert->cbCertEncoded);
      CertFreeCertificateContext(cert);
      break;
    }
  }
  CertCloseStore(store, 0);
  if (blob.empty()) FailWith("the PKCS#12 file holds no exportable RSA private key", kExitFailed);
  reinterpret_cast<BLOBHEADER*>(blob.data())->aiKeyAlg = keySpec == AT_SIGNATURE ? CALG_RSA_SIGN : CALG_RSA_KEYX;
  return blob;
}

int ImportKey(const Args& args) {
  const std::string name = args.Word(0, "a container name");
  const DWORD keySpec = args.KeySpec(AT_KEYEXCHANGE);
  const Bytes file = ReadWholeFile(args.Need("in"));
  CRYPT_DATA_BLOB asPfx{static_cast<DWORD>(file.size()), const_cast<BYTE*>(file.data())};
  Bytes certificate;
  Bytes blob = PFXIsPFXBlob(&asPfx) ? PrivateKeyBlobFromPfx(file, args.Get("password"), keySpec, &certificate)
                                    : PrivateKeyBlobFromKeyFile(file, keySpec);
  Context ctx = OpenContainer(args, name, 0, true);
  Key key;
  {
    CardWait wait(std::string("storing the ") + KeySpecName(keySpec) + " private key on the card");
    if (!CryptImportKey(ctx.get(), blob.data(), static_cast<DWORD>(blob.size()), 0, 0, key.out())) {
      SecureZeroMemory(blob.data(), blob.size());
      FailLast("storing the private key on the card");
    }
  }
  SecureZeroMemory(blob.data(), blob.size());
  std::printf("%s private key imported into container \"%s\"\n", KeySpecName(keySpec), name.c_str());
  if (!certificate.empty()) {
    Key pair;
    GetUserKey(ctx, keySpec, &pair);
    if (!CryptSetKeyParam(pair.get(), KP_CERTIFICATE, certificate.data(), 0)) {
      FailLast("storing the PKCS#12 file's certificate on the card");
    }
    PropagationResult r;
    PropagateCertificate(args, ChosenCard(args), name, keySpec, certificate, &r);
    std::printf("the file's certificate stored with the key and put into the user's \"MY\" store\n");
  }
  return kExitOk;
}

}  // namespace

void AddKeyCommands(std::vector<Command>* commands) {
  commands->push_back({"genkey", "CONTAINER [--key-spec signature|exchange] [--bits 1024|1536|2048]",
                       "generate a key pair on the card (default: signature, 2048 bits)", GenerateKey});
  commands->push_back({"export-key", "CONTAINER [--key-spec S] [--format pem|blob] [--out FILE]",
                       "export a public key as PEM (SubjectPublicKeyInfo) or PUBLICKEYBLOB", ExportKey});
  commands->push_back({"import-key", "CONTAINER --in FILE [--key-spec S] [--password P]",
                       "import an RSA private key (PEM/DER PKCS#1 or PKCS#8, or PKCS#12 with its "
                       "certificate) into a container (default key keySpec: exchange)",
                       ImportKey});
}

}  // namespace nivracli
