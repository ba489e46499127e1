#include "signer_certificate.h"

#include <cstdio>

#include "card_context.h"
#include "cli_error.h"

namespace nivracli {

namespace {
constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
}

PCCERT_CONTEXT CertificateOfContainerKey(const Args& args, const std::string& container, DWORD keySpec) {
  Bytes der;
  {
    Context ctx = OpenContainer(args, container, CRYPT_SILENT, false);
    Key key;
    GetUserKey(ctx, keySpec, &key);
    der = ReadCardCertificate(key.get());
  }
  if (der.empty()) {
    FailWith(std::string("the ") + KeySpecName(keySpec) + " key of container \"" + container +
                 "\" has no certificate (store one with import-cert)",
             kExitNoKey);
  }
  PCCERT_CONTEXT onCard = CertCreateCertificateContext(kEncoding, der.data(), static_cast<DWORD>(der.size()));
  if (onCard == nullptr) FailLast("the certificate on the card cannot be read");
  HCERTSTORE my = CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0,
                                CERT_SYSTEM_STORE_CURRENT_USER | CERT_STORE_OPEN_EXISTING_FLAG, L"MY");
  PCCERT_CONTEXT inStore =
      my != nullptr ? CertFindCertificateInStore(my, kEncoding, 0, CERT_FIND_EXISTING, onCard, nullptr) : nullptr;
  DWORD length = 0;
  if (inStore != nullptr &&
      CertGetCertificateContextProperty(inStore, CERT_KEY_PROV_INFO_PROP_ID, nullptr, &length)) {
    std::printf("using the certificate from the user's \"MY\" store\n");
    CertFreeCertificateContext(onCard);
    CertCloseStore(my, 0);
    return inStore;
  }
  if (inStore != nullptr) CertFreeCertificateContext(inStore);
  if (my != nullptr) CertCloseStore(my, 0);
  std::printf("the certificate is not in the user's store (\"nivracli propagate\" puts it there); "
              "using the card's copy\n");
  const std::string where = ContainerString(ChosenCard(args), container);
  const std::wstring wideContainer(where.begin(), where.end());
  const std::string provider = args.Provider();
  const std::wstring wideProvider(provider.begin(), provider.end());
  CRYPT_KEY_PROV_INFO info{};
  info.pwszContainerName = const_cast<wchar_t*>(wideContainer.c_str());
  info.pwszProvName = const_cast<wchar_t*>(wideProvider.c_str());
  info.dwProvType = PROV_RSA_FULL;
  info.dwKeySpec = keySpec;
  if (!CertSetCertificateContextProperty(onCard, CERT_KEY_PROV_INFO_PROP_ID, 0, &info)) {
    DWORD code = GetLastError();
    CertFreeCertificateContext(onCard);
    Fail("linking the certificate to its key", code);
  }
  return onCard;
}

}  // namespace nivracli
