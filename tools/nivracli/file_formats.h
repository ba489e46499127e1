// Files an administrator hands to nivracli or gets from it: raw bytes, PEM armour, and RSA
// private keys in their usual file forms made into a CryptoAPI PRIVATEKEYBLOB.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

namespace nivracli {

using Bytes = std::vector<BYTE>;

// The whole file; a failure ends the action.
Bytes ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const Bytes& data);

// "-----BEGIN <label>-----", base64 in lines of 64, "-----END <label>-----".
std::string ToPem(const Bytes& der, const std::string& label);
// The DER bytes of the first PEM block with `label` in `text`; empty when there is none.
Bytes FromPem(const Bytes& text, const std::string& label);
// A certificate file, DER or PEM.
Bytes CertificateFromFile(const Bytes& file);

// An RSA private key file (PEM "RSA PRIVATE KEY" or "PRIVATE KEY", or the DER of either) as a
// PRIVATEKEYBLOB whose key algorithm is CALG_RSA_SIGN or CALG_RSA_KEYX by `keySpec`.
Bytes PrivateKeyBlobFromKeyFile(const Bytes& file, DWORD keySpec);

// Reverses a byte string (CryptoAPI's little-endian RSA values against everyone else's
// big-endian ones).
Bytes Reversed(Bytes bytes);

}  // namespace nivracli
