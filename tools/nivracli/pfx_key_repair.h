// The private key that Wine's PKCS#12 import hands over, made whole again.
#pragma once
#include <windows.h>
#include <wincrypt.h>

#include <vector>

namespace nivracli {

// Wine's PFXImportCertStore (8.0) builds the key's PRIVATEKEYBLOB component by component and,
// at the first component shorter than its nominal length (a CRT exponent, the coefficient or the
// private exponent with a leading zero byte: about one key in fifty), stops copying but reports
// success, so the rest of the blob is uninitialised memory; it also records the public exponent
// as 65537 whatever the key's is. The modulus and the two primes come first and are whole. This
// computes the public exponent (from the certificate), the private exponent, the CRT exponents
// and the coefficient again from the primes, and checks that the primes give the certificate's
// modulus. False when the blob or the certificate cannot be read or the primes do not fit.
bool RepairPfxPrivateKeyBlob(std::vector<BYTE>* blob, PCCERT_CONTEXT certificate);

}  // namespace nivracli
