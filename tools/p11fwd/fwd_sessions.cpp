// Session and user entries.
#include "tools/p11fwd/fwd_convert.h"
#include "tools/p11fwd/fwd_link.h"

using namespace nivra::p11fwd;
using namespace nivra::p11wire;

CK_DEFINE_FUNCTION(CK_RV, C_OpenSession)(CK_SLOT_ID slotID, CK_FLAGS flags,
                                         CK_VOID_PTR pApplication, CK_NOTIFY Notify,
                                         CK_SESSION_HANDLE_PTR phSession) {
  return Guarded([&]() -> CK_RV {
    // Notification callbacks are never made (PKCS#11 leaves them to the module's choice).
    if (!phSession) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kOpenSession>({slotID, flags});
    if (reply.rv == CKR_OK) *phSession = reply.handle;
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_CloseSession)(CK_SESSION_HANDLE hSession) {
  return Guarded([&] { return static_cast<CK_RV>(Link().Call<WireOp::kCloseSession>({hSession}).rv); });
}

CK_DEFINE_FUNCTION(CK_RV, C_CloseAllSessions)(CK_SLOT_ID slotID) {
  return Guarded([&] { return static_cast<CK_RV>(Link().Call<WireOp::kCloseAllSessions>({slotID}).rv); });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetSessionInfo)(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo) {
  return Guarded([&]() -> CK_RV {
    if (!pInfo) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kGetSessionInfo>({hSession});
    if (reply.rv == CKR_OK) CopySessionInfo(reply.info, pInfo);
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_Login)(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType,
                                   CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
  return Guarded([&]() -> CK_RV {
    PinRequest request;
    request.session = hSession;
    request.userType = userType;
    request.pin = OptionalBytes(pPin, ulPinLen);
    return Link().Call<WireOp::kLogin>(request).rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_Logout)(CK_SESSION_HANDLE hSession) {
  return Guarded([&] { return static_cast<CK_RV>(Link().Call<WireOp::kLogout>({hSession}).rv); });
}

CK_DEFINE_FUNCTION(CK_RV, C_InitPIN)(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin,
                                     CK_ULONG ulPinLen) {
  return Guarded([&]() -> CK_RV {
    PinRequest request;
    request.session = hSession;
    request.pin = OptionalBytes(pPin, ulPinLen);
    return Link().Call<WireOp::kInitPIN>(request).rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_SetPIN)(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin,
                                    CK_ULONG ulOldLen, CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) {
  return Guarded([&]() -> CK_RV {
    SetPinRequest request;
    request.session = hSession;
    request.oldPin = OptionalBytes(pOldPin, ulOldLen);
    request.newPin = OptionalBytes(pNewPin, ulNewLen);
    return Link().Call<WireOp::kSetPIN>(request).rv;
  });
}
