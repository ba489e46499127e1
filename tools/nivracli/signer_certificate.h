// The certificate through which crypt32 reaches a container key: the user's "MY" store entry
// when the certificate has been put there, else the card's own copy linked to the key.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <string>

#include "cli_args.h"

namespace nivracli {

// A certificate context, freed when it goes out of scope.
class CertificateRef {
 public:
  explicit CertificateRef(PCCERT_CONTEXT cert) : cert_(cert) {}
  ~CertificateRef() {
    if (cert_ != nullptr) CertFreeCertificateContext(cert_);
  }
  CertificateRef(const CertificateRef&) = delete;
  CertificateRef& operator=(const CertificateRef&) = delete;
  PCCERT_CONTEXT get() const { return cert_; }

 private:
  PCCERT_CONTEXT cert_;
};

// The certificate of `container`'s key `keySpec`, with its key link; says which copy is used.
PCCERT_CONTEXT CertificateOfContainerKey(const Args& args, const std::string& container, DWORD keySpec);

}  // namespace nivracli
