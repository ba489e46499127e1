// The certificate of a container key pair: one X.509 certificate object on the token with the
// pair's key ID, written as CKA_CLASS CKO_CERTIFICATE, CKA_CERTIFICATE_TYPE CKC_X_509, CKA_LABEL
// a single zero byte, CKA_TOKEN true, CKA_ID, CKA_VALUE (the DER certificate), in this order;
// tokens that require a subject (CKR_TEMPLATE_INCOMPLETE) get CKA_SUBJECT appended, taken from
// the certificate itself.
#pragma once
#include <cstdint>

#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

// Writes the certificate of the pair keySpec (after logging in). The same certificate already on
// the token is not written again; a different one is replaced.
Status WriteCertificate(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                        const uint8_t* der, uint32_t derLength);

// Reads the certificate of the pair keySpec (no login needed). No certificate: NTE_NOT_FOUND. A
// null `out` reports the length; a capacity smaller than the certificate gives NTE_NO_MEMORY and
// leaves *outLen as it was.
Status ReadCertificate(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                       uint8_t* out, uint32_t* outLen);

}  // namespace nivra::pkcs11
