// The encrypted session of one card service channel: the hello that carries the transport
// public key, the check of the service's session-key frame, and the wrapping of every later frame
// under the session cipher. A channel starts with no session; only an established session wraps.
#pragma once
#include <cstddef>
#include <cstdint>

#include "crypto/cipher.h"
#include "provider/status_codes.h"
#include "service/request_buffers.h"

namespace nivra::service {

using provider::Status;

enum SessionState : uint32_t {
  kSessionNone = 0,
  kSessionEncrypted = 2,
};

// Builds the hello frame (command 0x1011, key format 2, the transport public key) in a block
// kept in list; *frame and *length describe it. NTE_FAIL when the transport key cannot be made
// or exported; NTE_NO_MEMORY.
Status SessionHelloBuild(uint8_t** frame, size_t* length, RequestBuffers* list);

// Checks the service's session-key frame and opens the session. A non-zero status in the frame
// is returned as it stands. A key format other than 2, a body other than k + 2 bytes, a secret
// that does not unpad, is not 24 bytes, or whose check block is not zero bytes: NTE_BAD_DATA.
// The secret is decrypted by the software provider and, when that fails for any reason, by the
// library's own private operation. NTE_FAIL when the key or the cipher fails. On success *state
// is kSessionEncrypted and *cipher the session cipher (owned by the caller's channel).
Status SessionHelloFinish(const uint8_t* frame, size_t length, uint32_t* state,
                          crypto::CipherHandle* cipher);

// The frame to send for a plain frame: the frame itself when the state is not kSessionEncrypted
// or the body is empty, else a listed block with the body encrypted. NTE_FAIL when the cipher
// fails or the frame is inconsistent.
Status SessionWrap(uint32_t state, crypto::CipherHandle cipher, const uint8_t* frame,
                   size_t length, const uint8_t** out, size_t* outLength, RequestBuffers* list);

// The mirror of SessionWrap for a received frame.
Status SessionUnwrap(uint32_t state, crypto::CipherHandle cipher, const uint8_t* frame,
                     size_t length, const uint8_t** out, size_t* outLength, RequestBuffers* list);

}  // namespace nivra::service
