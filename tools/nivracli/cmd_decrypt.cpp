// CMS enveloped messages: crypt32 finds the recipient's certificate in the user's "MY" store and
// reaches the card's exchange key through the certificate's key link.
#include <windows.h>
#include <wincrypt.h>

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"
#include "commands.h"
#include "file_formats.h"

namespace nivracli {

namespace {

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

int Decrypt(const Args& args) {
  const Bytes message = ReadWholeFile(args.Need("in"));
  LogIn(args, ChosenCard(args));
  HCERTSTORE my = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"MY");
  if (my == nullptr) FailLast("opening the user's \"MY\" certificate store");
  CRYPT_DECRYPT_MESSAGE_PARA para{};
  para.cbSize = sizeof(para);
  para.dwMsgAndCertEncodingType = kEncoding;
  para.cCertStore = 1;
  para.rghCertStore = &my;
  DWORD length = 0;
  PCCERT_CONTEXT recipient = nullptr;
  BOOL ok = CryptDecryptMessage(&para, message.data(), static_cast<DWORD>(message.size()), nullptr, &length,
                                nullptr);
  Bytes plain(length);
  if (ok) {
    ok = CryptDecryptMessage(&para, message.data(), static_cast<DWORD>(message.size()), plain.data(), &length,
                             &recipient);
  }
  const DWORD code = GetLastError();
  CertCloseStore(my, 0);
  if (!ok) Fail("CryptDecryptMessage", code);
  plain.resize(length);
  char name[512] = "";
  if (recipient != nullptr) {
    CertNameToStrA(X509_ASN_ENCODING, &recipient->pCertInfo->Subject, CERT_X500_NAME_STR, name, sizeof(name));
    CertFreeCertificateContext(recipient);
  }
  WriteWholeFile(args.Need("out"), plain);
  std::printf("decrypted for %s: %u bytes written to %s\n", name, static_cast<unsigned>(plain.size()),
              args.Get("out").c_str());
  return kExitOk;
}

}  // namespace

void AddMessageCommands(std::vector<Command>* commands) {
  commands->push_back({"decrypt", "--in FILE --out FILE",
                       "open a CMS enveloped file (DER) with the card key of the recipient's "
                       "certificate in the user's \"MY\" store (CryptDecryptMessage)",
                       Decrypt});
}

}  // namespace nivracli
