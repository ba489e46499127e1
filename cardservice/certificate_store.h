// The X.509 certificate of a key pair: one certificate object with the pair's CKA_ID.
#pragma once
#include <p11-kit/pkcs11.h>

#include <string>
#include <vector>

#include "cardservice/container_store.h"

namespace nivra::cardservice {

// Stores `certificate` for key ID `id`: nothing is written when the token already holds exactly
// these bytes; otherwise the old object is destroyed and a new one made with the provider's six
// attributes plus CKA_PRIVATE false (readable before login) and, when the certificate's DER
// can be walked, its subject (PKCS#11 requires one; strict tokens refuse the object without).
CK_RV WriteCertificate(TokenView token, const std::string& id,
                       const std::vector<uint8_t>& certificate);

// The certificate for key ID `id`; CKR_OK with *found false when there is none.
CK_RV ReadCertificate(TokenView token, const std::string& id, std::vector<uint8_t>* certificate,
                      bool* found);

// The DER subject name of a certificate (tbsCertificate's sixth element, or fifth without the
// explicit version); false when the bytes are not shaped so.
bool CertificateSubject(const std::vector<uint8_t>& certificate, std::vector<uint8_t>* subject);

}  // namespace nivra::cardservice
