// Object entries: creation, destruction, attributes and searches.
#include "tools/p11fwd/fwd_convert.h"
#include "tools/p11fwd/fwd_link.h"

using namespace nivra::p11fwd;
using namespace nivra::p11wire;

namespace {

// A request carrying the caller's template of values.
TemplateRequest ValuesRequest(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object,
                              const CK_ATTRIBUTE* attributes, CK_ULONG count) {
  TemplateRequest request;
  request.session = session;
  request.object = object;
  request.attributes = TemplateValues(attributes, count);
  return request;
}

// Results of C_GetAttributeValue after which every ulValueLen of the template has been set.
bool AnswersAttributes(CK_RV rv) {
  return rv == CKR_OK || rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
         rv == CKR_BUFFER_TOO_SMALL;
}

}  // namespace

CK_DEFINE_FUNCTION(CK_RV, C_CreateObject)(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                                          CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject) {
  return Guarded([&]() -> CK_RV {
    if (!phObject || !ValidBuffer(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kCreateObject>(ValuesRequest(hSession, 0, pTemplate, ulCount));
    if (reply.rv == CKR_OK) *phObject = reply.handle;
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_DestroyObject)(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
  return Guarded([&] {
    return static_cast<CK_RV>(Link().Call<WireOp::kDestroyObject>({hSession, hObject}).rv);
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_GetAttributeValue)(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                               CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  return Guarded([&]() -> CK_RV {
    if (!ValidBuffer(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    TemplateRequest request;
    request.session = hSession;
    request.object = hObject;
    request.attributes = TemplateQuery(pTemplate, ulCount);
    auto reply = Link().Call<WireOp::kGetAttributeValue>(request);
    if (AnswersAttributes(reply.rv) && !ApplyAnswers(reply.attributes, pTemplate, ulCount))
      return CKR_DEVICE_ERROR;
    return reply.rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_SetAttributeValue)(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                                               CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
  return Guarded([&]() -> CK_RV {
    if (!ValidBuffer(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    return Link().Call<WireOp::kSetAttributeValue>(ValuesRequest(hSession, hObject, pTemplate, ulCount)).rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_FindObjectsInit)(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                                             CK_ULONG ulCount) {
  return Guarded([&]() -> CK_RV {
    if (!ValidBuffer(pTemplate, ulCount)) return CKR_ARGUMENTS_BAD;
    return Link().Call<WireOp::kFindObjectsInit>(ValuesRequest(hSession, 0, pTemplate, ulCount)).rv;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_FindObjects)(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                                         CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) {
  return Guarded([&]() -> CK_RV {
    if (!phObject || !pulObjectCount) return CKR_ARGUMENTS_BAD;
    auto reply = Link().Call<WireOp::kFindObjects>({hSession, ulMaxObjectCount});
    if (reply.rv != CKR_OK) return reply.rv;
    if (reply.ids.size() > ulMaxObjectCount) return CKR_DEVICE_ERROR;
    for (size_t i = 0; i < reply.ids.size(); ++i) phObject[i] = reply.ids[i];
    *pulObjectCount = static_cast<CK_ULONG>(reply.ids.size());
    return CKR_OK;
  });
}

CK_DEFINE_FUNCTION(CK_RV, C_FindObjectsFinal)(CK_SESSION_HANDLE hSession) {
  return Guarded([&] {
    return static_cast<CK_RV>(Link().Call<WireOp::kFindObjectsFinal>({hSession}).rv);
  });
}
