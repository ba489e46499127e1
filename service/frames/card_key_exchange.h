// The key exchange on a service card's own port. Here the module chooses the session key:
//
//   module -> card  0x1001  key offer: the card name in a 40-byte field
//   card -> module  0x9001  card key: the card's RSA public key, DER RSAPublicKey (form 1)
//   module -> card  0x1002  session key: key format 2, then the 24-byte session secret
//                           encrypted to the card's key (BuildSessionKeyFrame, command 0x1002)
//   card -> module  0x9002  acknowledgement: status 0 opens the session
//
// A card that refuses answers its status with an empty body.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "crypto/rsa_interface.h"
#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

// kBadField for a name that does not fit its 40-byte field.
FrameStatus BuildKeyOffer(const std::string& card, Bytes* frame);
// kBadLength unless the body is exactly the name field; ReadNameField's results.
FrameStatus ParseKeyOfferBody(const uint8_t* body, size_t len, std::string* card);

// The card-key answer: the public half of key (status 0), or status with an empty body.
// kKeyError when the key cannot be exported.
FrameStatus BuildCardKeyFrame(crypto::RsaHandle key, uint32_t status, Bytes* frame);
// Checks a whole received card-key frame in this order: kTruncated / kBadLength for a frame
// that is not whole (ParseFrame), kBadCommand for a command other than 0x9001, kPeerStatus for
// a non-zero status, kTruncated for an empty key. *keyDer points into frame.
FrameStatus ParseCardKeyFrame(const uint8_t* frame, size_t len, const uint8_t** keyDer,
                              size_t* keyLen);

// The card's side of the session-key frame: kBadCommand for a command other than 0x1002, then
// ParseSessionKeyFrame's results for the card's modulus length.
FrameStatus ParseCardSessionKeyFrame(const uint8_t* frame, size_t len, size_t modulusBytes,
                                     const uint8_t** encrypted);

Bytes BuildCardSessionAck(uint32_t status);
// ParseFrame's results, then kBadCommand for a command other than 0x9002, then kPeerStatus.
FrameStatus ParseCardSessionAck(const uint8_t* frame, size_t len);

}  // namespace nivra::frames
