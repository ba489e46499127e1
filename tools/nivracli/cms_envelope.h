// The parts of a CMS enveloped message (RFC 5652 EnvelopedData in a ContentInfo, DER) that a
// recipient needs to open it with CryptoAPI: each key-transport recipient's issuer, serial number
// and encrypted key, the content-encryption algorithm with its IV, and the encrypted content.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <vector>

namespace nivracli {

using Bytes = std::vector<BYTE>;

struct EnvelopeRecipient {
  Bytes issuer;        // the encoded Name
  Bytes serialNumber;  // little-endian, as CERT_INFO holds it
  Bytes encryptedKey;  // big-endian, as the message holds it
};

struct Envelope {
  std::vector<EnvelopeRecipient> recipients;  // key-transport recipients by issuer and serial
  ALG_ID contentAlgorithm = 0;                // CALG_3DES or CALG_DES (CBC)
  Bytes iv;
  Bytes encryptedContent;
};

// False when `der` is not an enveloped message of this shape; a content algorithm other than
// 3DES or DES in CBC mode leaves `contentAlgorithm` 0.
bool ParseEnvelope(const Bytes& der, Envelope* out);

}  // namespace nivracli
