#pragma once
// Operation numbers of the forwarding link. The numbers are part of the wire format: never
// renumber, only append.
#include <cstdint>
#include <string>

namespace nivra::p11wire {

enum class WireOp : uint16_t {
  kHello = 0x01,    // first frame of a forwarding connection: protocol version and client id
  kControl = 0x02,  // a text command for the helper's test controls; needs no hello
  kInitialize = 0x10,
  kFinalize = 0x11,
  kGetInfo = 0x12,
  kGetSlotList = 0x13,
  kGetSlotInfo = 0x14,
  kGetTokenInfo = 0x15,
  kWaitForSlotEvent = 0x16,
  kGetMechanismList = 0x17,
  kGetMechanismInfo = 0x18,
  kInitToken = 0x19,
  kInitPIN = 0x1A,
  kSetPIN = 0x1B,
  kOpenSession = 0x1C,
  kCloseSession = 0x1D,
  kCloseAllSessions = 0x1E,
  kGetSessionInfo = 0x1F,
  kLogin = 0x20,
  kLogout = 0x21,
  kCreateObject = 0x22,
  kDestroyObject = 0x23,
  kGetAttributeValue = 0x24,
  kSetAttributeValue = 0x25,
  kFindObjectsInit = 0x26,
  kFindObjects = 0x27,
  kFindObjectsFinal = 0x28,
  kGenerateKeyPair = 0x29,
  kSignInit = 0x2A,
  kSign = 0x2B,
  kDecryptInit = 0x2C,
  kDecrypt = 0x2D,
  kEncryptInit = 0x2E,
  kEncrypt = 0x2F,
  kGenerateRandom = 0x30,
};

// The first and last operation numbers that forward a PKCS#11 call; every number in between is one.
inline constexpr uint16_t kWireFirstCallOp = 0x10;
inline constexpr uint16_t kWireLastCallOp = 0x30;

// True when `op` forwards a PKCS#11 call.
bool IsWireCallOp(uint16_t op);

// The PKCS#11 name of a call operation ("C_Sign"), "Hello" or "Control" for the link's own
// operations, null for an unknown number.
const char* WireOpName(uint16_t op);

// The call operation named `name` ("C_Sign"); false for any other text.
bool WireCallOpFromName(const std::string& name, WireOp* op);

}  // namespace nivra::p11wire
