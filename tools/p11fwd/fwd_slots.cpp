// Slot and token entries.
#include "tools/p11fwd/fwd_convert.h"
#include "tools/p11fwd/fwd_link.h"

using namespace nivra::p11fwd;
using namespace nivra::p11wire;

CK_DEFINE_FUNCTION(CK_RV, C_GetSlotList)(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList,
                                         CK_ULONG_PTR pulCount) {
  return Guarded([&]() -> CK_RV {
    if (!pulCount) return CKR_ARGUMENTS_BAD;
    ListRequest request;
    request.tokenPresent = tokenPresent != CK_FALSE;
    request.wantList = pSlotList != nullptr;
    request.capacity = *pulCount;
    return ApplyList(Link().Call<WireOp::kGetSlotList>(request), pSlotList, *pulCount, pulCount);
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetSlotInfo)(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo) {
  return Guarded([&]() -> CK_RV {
    if (!pInfo) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kGetSlotInfo>({slotID});
    if (reply.rv == CKR_OK) CopySlotInfo(reply.info, pInfo);
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetTokenInfo)(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo) {
  return Guarded([&]() -> CK_RV {
    if (!pInfo) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kGetTokenInfo>({slotID});
    if (reply.rv == CKR_OK) CopyTokenInfo(reply.info, pInfo);
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_WaitForSlotEvent)(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot,
                                              CK_VOID_PTR pReserved) {
  return Guarded([&]() -> CK_RV {
    if (!pSlot || pReserved) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kWaitForSlotEvent>({flags});
    if (reply.rv == CKR_OK) *pSlot = reply.handle;
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetMechanismList)(CK_SLOT_ID slotID,
                                              CK_MECHANISM_TYPE_PTR pMechanismList,
                                              CK_ULONG_PTR pulCount) {
  return Guarded([&]() -> CK_RV {
    if (!pulCount) return CKR_ARGUMENTS_BAD;
    ListRequest request;
    request.slot = slotID;
    request.wantList = pMechanismList != nullptr;
    request.capacity = *pulCount;
    return ApplyList(Link().Call<WireOp::kGetMechanismList>(request), pMechanismList, *pulCount,
                     pulCount);
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetMechanismInfo)(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                                              CK_MECHANISM_INFO_PTR pInfo) {
  return Guarded([&]() -> CK_RV {
    if (!pInfo) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kGetMechanismInfo>({slotID, type});
    if (reply.rv == CKR_OK) {
      pInfo->ulMinKeySize = reply.info.minKeySize;
      pInfo->ulMaxKeySize = reply.info.maxKeySize;
      pInfo->flags = reply.info.flags;
    }
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_InitToken)(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen,
                                       CK_UTF8CHAR_PTR pLabel) {
  return Guarded([&]() -> CK_RV {
    InitTokenRequest request;
    request.slot = slotID;
    request.soPin = OptionalBytes(pPin, ulPinLen);
    request.label = OptionalBytes(pLabel, pLabel ? 32 : 0);
    return Link().Call<WireOp::kInitToken>(request).rv;
  });
}
