// Library entries: initialisation, information and the function list.
#include "tools/p11fwd/fwd_convert.h"
#include "tools/p11fwd/fwd_function_list.h"
#include "tools/p11fwd/fwd_link.h"

using namespace nivra::p11fwd;
using nivra::p11wire::WireOp;

CK_DEFINE_FUNCTION(CK_RV, C_Initialize)(CK_VOID_PTR pInitArgs) {
  return Guarded([&]() -> CK_RV {
    nivra::p11wire::InitializeRequest request;
    if (pInitArgs) {
      // The module locks with the operating system's primitives whatever the caller offers;
      // the arguments are checked for consistency and passed on for the helper to report.
      auto* args = static_cast<CK_C_INITIALIZE_ARGS*>(pInitArgs);
      if (args->pReserved) return CKR_ARGUMENTS_BAD;
      int given = !!args->CreateMutex + !!args->DestroyMutex + !!args->LockMutex + !!args->UnlockMutex;
      if (given != 0 && given != 4) return CKR_ARGUMENTS_BAD;
      request.hasArguments = true;
      request.flags = static_cast<uint32_t>(args->flags);
      request.mutexFunctions = given == 4;
    }
    return Link().Call<WireOp::kInitialize>(request).rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_Finalize)(CK_VOID_PTR pReserved) {
  return Guarded([&]() -> CK_RV {
    if (pReserved) return CKR_ARGUMENTS_BAD;
    CK_RV rv = Link().Call<WireOp::kFinalize>({}).rv;
    CloseIdleConnections();
    return rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetInfo)(CK_INFO_PTR pInfo) {
  return Guarded([&]() -> CK_RV {
    if (!pInfo) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kGetInfo>({});
    if (reply.rv == CKR_OK) CopyInfo(reply.info, pInfo);
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetFunctionList)(CK_FUNCTION_LIST_PTR_PTR ppFunctionList) {
  if (!ppFunctionList) return CKR_ARGUMENTS_BAD;
  *ppFunctionList = ForwardingFunctionList();
  return CKR_OK;
}
