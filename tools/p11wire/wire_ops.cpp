#include "tools/p11wire/wire_ops.h"

namespace nivra::p11wire {
namespace {

// Indexed by operation number minus kWireFirstCallOp.
const char* const kCallNames[] = {
    "C_Initialize",      "C_Finalize",         "C_GetInfo",          "C_GetSlotList",
    "C_GetSlotInfo",     "C_GetTokenInfo",     "C_WaitForSlotEvent", "C_GetMechanismList",
    "C_GetMechanismInfo", "C_InitToken",       "C_InitPIN",          "C_SetPIN",
    "C_OpenSession",     "C_CloseSession",     "C_CloseAllSessions", "C_GetSessionInfo",
    "C_Login",           "C_Logout",           "C_CreateObject",     "C_DestroyObject",
    "C_GetAttributeValue", "C_SetAttributeValue", "C_FindObjectsInit", "C_FindObjects",
    "C_FindObjectsFinal", "C_GenerateKeyPair", "C_SignInit",         "C_Sign",
    "C_DecryptInit",     "C_Decrypt",          "C_EncryptInit",      "C_Encrypt",
    "C_GenerateRandom",
};
static_assert(sizeof(kCallNames) / sizeof(kCallNames[0]) == kWireLastCallOp - kWireFirstCallOp + 1,
              "one name per call operation");

}  // namespace

bool IsWireCallOp(uint16_t op) { return op >= kWireFirstCallOp && op <= kWireLastCallOp; }

const char* WireOpName(uint16_t op) {
  if (op == static_cast<uint16_t>(WireOp::kHello)) return "Hello";
  if (op == static_cast<uint16_t>(WireOp::kControl)) return "Control";
  return IsWireCallOp(op) ? kCallNames[op - kWireFirstCallOp] : nullptr;
}

bool WireCallOpFromName(const std::string& name, WireOp* op) {
  for (uint16_t n = kWireFirstCallOp; n <= kWireLastCallOp; ++n) {
    if (name == kCallNames[n - kWireFirstCallOp]) {
      *op = static_cast<WireOp>(n);
      return true;
    }
  }
  return false;
}

}  // namespace nivra::p11wire
