// Frame protection on an established channel: the body of every frame is encrypted on its own
// under the session cipher (two-key Triple DES, CBC, zero IV, PKCS#7 padding); the header travels
// in clear with its body length set to the length of what follows. A frame with an empty body
// passes unchanged.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/cipher.h"
#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"

namespace nivra::frames {

// *out = frame[0..len) with its body encrypted. ParseFrame's results for an inconsistent frame;
// kTooLong when the encrypted body would exceed 65535 bytes; kCipherError when the cipher fails.
FrameStatus WrapFrame(crypto::CipherHandle cipher, const uint8_t* frame, size_t len, Bytes* out);

// *out = frame[0..len) with its body decrypted. ParseFrame's results for an inconsistent frame;
// kCipherError when the cipher fails (a body that is not whole blocks, or bad padding).
FrameStatus UnwrapFrame(crypto::CipherHandle cipher, const uint8_t* frame, size_t len,
                        Bytes* out);

}  // namespace nivra::frames
