// The transport key pair of the card service channels: an RSA-2048 pair (e = 65537) made the
// first time a channel needs it and kept for the life of the process, so that no key is built
// into the module and a captured session cannot be opened with the DLL alone. The hello frame
// carries its public half; the session secret comes back encrypted to it.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/rsa_interface.h"
#include "provider/status_codes.h"

namespace nivra::service {

using provider::Status;

constexpr uint32_t kTransportKeyBits = 2048;
constexpr uint32_t kTransportKeyExponent = 65537;
// Miller-Rabin rounds with random bases that each prime passes beyond the library's own test.
constexpr int kExtraPrimeRounds = 4;
// Capacity of the CryptoAPI private-key blob made for the software provider.
constexpr size_t kPrivateBlobCapacity = 8192;

// Makes the pair on first use (thread-safe). 0, or NTE_FAIL when it cannot be made.
Status TransportKeyInit();
// The pair's handle and modulus bit length; valid after a successful TransportKeyInit.
crypto::RsaHandle TransportKey();
uint32_t TransportKeyBits();

// Miller-Rabin with `rounds` random bases in [2, n - 2]; false for a composite, an even n or n
// below 5, or when the generator fails.
bool PassesMillerRabin(const crypto::CBigNumber& n, int rounds);

// Converts a DER RSAPrivateKey (SEQUENCE of version, n, e, d, p, q, dP, dQ, qInv) into a
// CryptoAPI PRIVATEKEYBLOB (BLOBHEADER type 7, version 2, CALG_RSA_KEYX; "RSA2"; then n, p, q,
// dP, dQ, qInv, d little-endian) of 20 + 9h bytes, h being half the modulus byte count after its
// leading zeros. No length pointer: ERROR_INVALID_PARAMETER. No out: *length = the size, 0.
// Capacity below the size: *length = the size, ERROR_MORE_DATA. A wrong tag, an element that
// overruns, an odd modulus length or a component longer than its field: NTE_BAD_DATA.
Status DerToPrivateKeyBlob(const uint8_t* der, size_t derLen, uint8_t* out, uint32_t* length);

// Decrypts buffer[0..*length) (big-endian, PKCS#1 v1.5 type 2) with the transport key through
// the "Microsoft Strong Cryptographic Provider" and a temporary key set named by a fresh GUID,
// which is deleted afterwards. The plaintext replaces the ciphertext and *length becomes its
// length. Errors of the software provider (GetLastError), NTE_BAD_DATA for a ciphertext above
// 2048 bytes, DerToPrivateKeyBlob's errors.
Status SystemProviderDecrypt(uint8_t* buffer, uint32_t* length);

}  // namespace nivra::service
