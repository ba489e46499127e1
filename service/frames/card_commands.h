// Bodies of the card commands that travel inside slot frames (0x2001 ... 0x2102), both
// directions. All integers are 32-bit little-endian; texts (container names, PINs) travel as
// 8-bit text followed by one NUL. Each command has one request layout and one response layout:
//
//   command  request                               response (status 0)
//   0x2001   name                                  handle (4)
//   0x2002   index                                 value (4), name; 6 to 260 bytes
//   0x2003   name                                  handle (4), name; exactly 4 + length + 1
//   0x2004   handle                                empty
//   0x2011   empty                                 state (4)
//   0x2012   PIN                                   result (4)
//   0x2013   reason                                state (4), see confirmation_state.h
//   0x2014   empty                                 state (4)
//   0x2015   old PIN, new PIN                      result (4)
//   0x2016   administrator PIN, new PIN            result (4)
//   0x2021   handle, key spec, bits, exponent      public-key block
//   0x2022   handle, key spec                      public-key block
//   0x2023   handle, key spec, key blob            empty
//   0x2024   handle, key spec, block               block of the request block's length
//   0x2025   handle, key spec, block               block of the request block's length
//   0x2031   handle, key spec, certificate         empty
//   0x2032   handle, key spec                      certificate (at least one byte)
//   0x2041   empty                                 limits, see card_limits.h (12 or more)
//   0x2101   administrator PIN, new PIN            empty
//   0x2102   empty                                 empty
//
// A response with a non-zero status has an empty body.
#pragma once
#include <cstddef>
#include <cstdint>
#include <string>

#include "service/frames/card_limits.h"
#include "service/frames/frame_header.h"
#include "service/frames/frame_status.h"
#include "service/frames/public_key_block.h"

namespace nivra::frames {

// Shortest and longest body of an enumeration answer.
constexpr size_t kEnumAnswerMin = 6;
constexpr size_t kEnumAnswerMax = 260;

// The fields of one request; a command uses only those of its layout.
struct CardRequest {
  uint32_t handle = 0;    // container handle
  uint32_t index = 0;     // enumeration index (0x2002)
  uint32_t keySpec = 0;
  uint32_t bits = 0;      // key generation: modulus bits
  uint32_t exponent = 0;  // key generation: public exponent
  uint32_t reason = 0;    // why a confirmation is asked for (0x2013)
  std::string text;       // name, PIN, old PIN or administrator PIN
  std::string text2;      // the new PIN of the two-PIN commands
  Bytes data;             // key blob, RSA block or certificate
};

// The fields of one successful response; a command uses only those of its layout.
struct CardResponse {
  uint32_t value = 0;  // handle, login state, PIN result, or the enumeration's leading value
  std::string name;    // container name of 0x2002 and 0x2003
  PublicKeyBlock publicKey;
  Bytes data;          // RSA block or certificate
  CardLimits limits;   // 0x2041
};

// True for the commands of the table above.
bool IsCardCommand(uint16_t command);

// *frame = the request frame of command (status 0). kBadCommand for a command outside the table;
// kBadField for a text with an embedded NUL, or an empty data field where one is required;
// kTooLong for a body above 65535 bytes.
FrameStatus BuildCardRequest(uint16_t command, const CardRequest& request, Bytes* frame);

// Parses the request body of command into *request. kBadCommand outside the table; kBadLength
// for a fixed-size body of another size, or a data field that is missing; kBadField for a text
// that is not terminated by its NUL at the end of its field (or has a NUL inside it).
FrameStatus ParseCardRequest(uint16_t command, const uint8_t* body, size_t len,
                             CardRequest* request);

// *frame = the response frame of the request command (response bit set). A non-zero status gives
// an empty body whatever response holds. Errors as BuildCardRequest; kBadField also for a
// public-key block that WritePublicKeyBlock refuses, or a name with an embedded NUL.
FrameStatus BuildCardResponse(uint16_t requestCommand, uint32_t status,
                              const CardResponse& response, Bytes* frame);

// Parses a successful response body of the request command. blockLength is the length of the
// request's RSA block (used by 0x2024 and 0x2025 only). kBadCommand outside the table; kBadLength
// for any body whose length breaks its layout (including an enumeration answer outside 6..260, an
// open answer whose name does not end exactly at the body's end, an empty block or certificate);
// ReadPublicKeyBlock's results for public-key blocks.
FrameStatus ParseCardResponse(uint16_t requestCommand, const uint8_t* body, size_t len,
                              size_t blockLength, CardResponse* response);

}  // namespace nivra::frames
