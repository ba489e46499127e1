// The channel handshake. The module sends a hello frame (0x1011) carrying its transport public
// key; the service answers with a session-key frame (0x9011) carrying the 24-byte session secret
// encrypted to that key with PKCS#1 v1.5 block type 2:
//
//   hello:        key format (16-bit, 2), then the public key as DER RSAPublicKey { n, e }
//   session key:  key format (16-bit, 2), then k bytes (k = the module's modulus length),
//                 big-endian
//   secret:       16-byte two-key Triple DES session key, then an 8-byte check block: four zero
//                 bytes encrypted under the session key (CBC, zero IV, PKCS#7 padding)
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/cipher.h"
#include "crypto/rsa_interface.h"
#include "service/frames/frame_codes.h"
#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

constexpr uint16_t kKeyFormat = 2;
constexpr size_t kKeyFormatSize = 2;
constexpr size_t kSessionKeySize = 16;
constexpr size_t kCheckBlockSize = 8;
constexpr size_t kSessionSecretSize = kSessionKeySize + kCheckBlockSize;

// *der = the public half of key in export form 1 (DER RSAPublicKey). kKeyError on failure.
FrameStatus ExportPublicKeyDer(crypto::RsaHandle key, Bytes* der);

// *frame = the hello frame for the public half of key (export form 1). kKeyError when the key
// cannot be exported; kTooLong when the key does not fit a frame.
FrameStatus BuildHello(crypto::RsaHandle key, Bytes* frame);

// Parses a hello body: kTruncated when it holds no key bytes after the format; kBadField for a
// key format other than 2. *keyDer points into body.
FrameStatus ParseHelloBody(const uint8_t* body, size_t len, const uint8_t** keyDer,
                           size_t* keyLen);

// secret[0..24) = a new session key from the operating system's generator and its check block.
// kRandomFailed, kCipherError.
FrameStatus MakeSessionSecret(uint8_t* secret);

// *frame = the session-key frame (0x9011, status 0): secret[0..secretLen) encrypted to the
// DER public key (form 1) with block type 2 padding. kKeyError when the key does not load or the
// secret does not fit the modulus; kRandomFailed when padding cannot be drawn. Any secretLen is
// accepted so that a peer can be made to send a secret of the wrong size.
// The same frame carries the module's secret to a service card, under command 0x1002.
FrameStatus BuildSessionKeyFrame(const uint8_t* publicDer, size_t derLen, const uint8_t* secret,
                                 size_t secretLen, Bytes* frame,
                                 uint16_t command = kCmdSessionKey);

// Checks a received session-key frame (its command is not checked) for a key of modulusBytes
// bytes: kTruncated below a header; kPeerStatus for a non-zero status (read it from the header);
// kBadLength unless the frame is complete and its body is exactly k + 2 bytes; kBadField for a
// key format other than 2. *encrypted points to the k bytes inside frame.
FrameStatus ParseSessionKeyFrame(const uint8_t* frame, size_t len, size_t modulusBytes,
                                 const uint8_t** encrypted);

// The library's own decryption of the k-byte secret with the private key: raw private
// operation, then block type 2 unpadding; *secret receives the message. kKeyError when the
// private operation fails; kBadField when the padding is not a valid block type 2.
FrameStatus DecryptSessionSecret(crypto::RsaHandle key, const uint8_t* encrypted, size_t k,
                                 Bytes* secret);

// Checks a decrypted secret and makes the session cipher from it: kBadLength unless it is 24
// bytes; kCipherError when the cipher cannot be made or the decrypt update fails; kCheckFailed
// when the final step fails or any byte it gives is not zero. On success *cipher owns a reset
// cipher (CBC, PKCS#7, zero IV); on failure *cipher is 0.
FrameStatus OpenSessionSecret(const uint8_t* secret, size_t len, crypto::CipherHandle* cipher);

}  // namespace nivra::frames
