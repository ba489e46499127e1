// CMS enveloped messages: the recipient's certificate is found in the user's "MY" store and the
// card's exchange key is reached through the certificate's key link.
//
// CryptDecryptMessage does it all in one call. Wine's crypt32 (8.0) has no CryptDecryptMessage:
// its export is a stub that ends the program ("unimplemented function"), and its
// CMSG_CTRL_DECRYPT decrypts the content without the message's IV (the first block comes out
// wrong). Under Wine, and with --low-level, the steps of CryptDecryptMessage are taken one level
// lower, through CryptoAPI: the recipient's certificate found in "MY" by issuer and serial number,
// CryptAcquireCertificatePrivateKey, the encrypted key imported as a SIMPLEBLOB under the card's
// key pair (the card unwraps it), KP_IV from the message, CryptDecrypt of the content.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cms_envelope.h"
#include "cli_error.h"
#include "commands.h"
#include "file_formats.h"
#include "signer_certificate.h"

namespace nivracli {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

bool RunningUnderWine() {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

class MessageStore {
 public:
  MessageStore() {
    store_ = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY");
    if (store_ == nullptr) FailLast("opening the user's \"MY\" certificate store");
  }
  ~MessageStore() { CertCloseStore(store_, 0); }
  MessageStore(const MessageStore&) = delete;
  MessageStore& operator=(const MessageStore&) = delete;
  HCERTSTORE* get() { return &store_; }

 private:
  HCERTSTORE store_;
};

std::string SubjectOf(PCCERT_CONTEXT cert) {
  char name[512] = "";
  if (cert != nullptr) {
    CertNameToStrA(X509_ASN_ENCODING, &cert->pCertInfo->Subject, CERT_X500_NAME_STR, name, sizeof(name));
  }
  return name;
}

Bytes WithDecryptMessage(const Bytes& message, std::string* recipientName) {
  MessageStore my;
  CRYPT_DECRYPT_MESSAGE_PARA para{};
  para.cbSize = sizeof(para);
  para.dwMsgAndCertEncodingType = kEncoding;
  para.cCertStore = 1;
  para.rghCertStore = my.get();
  DWORD length = 0;
  if (!CryptDecryptMessage(&para, message.data(), static_cast<DWORD>(message.size()), nullptr, &length, nullptr)) {
    FailLast("CryptDecryptMessage");
  }
  Bytes plain(length);
  PCCERT_CONTEXT recipient = nullptr;
  if (!CryptDecryptMessage(&para, message.data(), static_cast<DWORD>(message.size()), plain.data(), &length,
                           &recipient)) {
    FailLast("CryptDecryptMessage");
  }
  plain.resize(length);
  *recipientName = SubjectOf(recipient);
  if (recipient != nullptr) CertFreeCertificateContext(recipient);
  return plain;
}

// The session key of `recipient`, unwrapped on the card: the encrypted key as a SIMPLEBLOB
// imported under the container's key pair, the message's IV set on it.
void ImportSessionKey(HCRYPTPROV prov, DWORD keySpec, const Envelope& envelope,
                      const EnvelopeRecipient& recipient, Key* session) {
  Key pair;
  if (!CryptGetUserKey(prov, keySpec, pair.out())) FailLast("the recipient's key pair on the card");
  Bytes blob(sizeof(BLOBHEADER) + sizeof(ALG_ID));
  auto* header = reinterpret_cast<BLOBHEADER*>(blob.data());
  header->bType = SIMPLEBLOB;
  header->bVersion = CUR_BLOB_VERSION;
  header->aiKeyAlg = envelope.contentAlgorithm;
  *reinterpret_cast<ALG_ID*>(blob.data() + sizeof(BLOBHEADER)) = CALG_RSA_KEYX;
  const Bytes key = Reversed(recipient.encryptedKey);
  blob.insert(blob.end(), key.begin(), key.end());
  if (!CryptImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), pair.get(), 0, session->out())) {
    FailLast("unwrapping the message key on the card (CryptImportKey SIMPLEBLOB)");
  }
  if (!CryptSetKeyParam(session->get(), KP_IV, envelope.iv.data(), 0)) FailLast("setting the message's IV");
}

Bytes WithProviderCalls(const Bytes& encoded, std::string* recipientName) {
  Envelope envelope;
  if (!ParseEnvelope(encoded, &envelope)) FailWith("the file is not a CMS enveloped message (DER)", kExitFailed);
  if (envelope.contentAlgorithm == 0) {
    FailWith("the message's content encryption is not 3DES or DES in CBC mode", kExitFailed);
  }
  MessageStore my;
  for (const EnvelopeRecipient& recipient : envelope.recipients) {
    CERT_INFO wanted{};
    wanted.Issuer = {static_cast<DWORD>(recipient.issuer.size()), const_cast<BYTE*>(recipient.issuer.data())};
    wanted.SerialNumber = {static_cast<DWORD>(recipient.serialNumber.size()),
                           const_cast<BYTE*>(recipient.serialNumber.data())};
    CertificateRef cert(
        CertFindCertificateInStore(*my.get(), kEncoding, 0, CERT_FIND_SUBJECT_CERT, &wanted, nullptr));
    if (cert.get() == nullptr) continue;
    HCRYPTPROV prov = 0;
    DWORD keySpec = 0;
    BOOL mustRelease = FALSE;
    if (!CryptAcquireCertificatePrivateKey(cert.get(), 0, nullptr, &prov, &keySpec, &mustRelease)) {
      FailLast("CryptAcquireCertificatePrivateKey for " + SubjectOf(cert.get()));
    }
    Context owned(mustRelease ? prov : 0);
    Key session;
    ImportSessionKey(prov, keySpec, envelope, recipient, &session);
    Bytes plain = envelope.encryptedContent;
    DWORD length = static_cast<DWORD>(plain.size());
    if (!CryptDecrypt(session.get(), 0, TRUE, 0, plain.data(), &length)) FailLast("decrypting the content");
    plain.resize(length);
    *recipientName = SubjectOf(cert.get());
    return plain;
  }
  FailWith("no recipient of the message has a certificate in the user's \"MY\" store "
           "(\"nivracli propagate\" puts the cards' certificates there)",
           kExitNoKey);
}

int Decrypt(const Args& args) {
  const Bytes message = ReadWholeFile(args.Need("in"));
  LogIn(args, ChosenCard(args));
  const bool lower = args.Has("low-level") || (RunningUnderWine() && !args.Has("decrypt-message"));
  if (lower && !args.Has("low-level")) {
    std::printf("Wine's crypt32 has no CryptDecryptMessage; taking its steps through CryptoAPI: "
                "CryptAcquireCertificatePrivateKey, CryptImportKey(SIMPLEBLOB), KP_IV, CryptDecrypt\n");
  }
  std::string recipient;
  const Bytes plain = lower ? WithProviderCalls(message, &recipient) : WithDecryptMessage(message, &recipient);
  WriteWholeFile(args.Need("out"), plain);
  std::printf("decrypted for %s: %u bytes written to %s\n", recipient.c_str(), static_cast<unsigned>(plain.size()),
              args.Get("out").c_str());
  return kExitOk;
}

}  // namespace

void AddMessageCommands(std::vector<Command>* commands) {
  commands->push_back({"decrypt", "--in FILE --out FILE [--low-level | --decrypt-message]",
                       "open a CMS enveloped file (DER) with the card key of the recipient's "
                       "certificate in the user's \"MY\" store: CryptDecryptMessage, or its steps "
                       "one level lower (--low-level; the default under Wine, whose crypt32 lacks it)",
                       Decrypt});
}

}  // namespace nivracli
