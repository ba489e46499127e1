// Object calls: creation, destruction, attributes and searches; with the vendor-class emulation
// on, vendor-class objects are kept as marked data objects (vendor_class.h).
#include <algorithm>

#include "tools/p11helper/abi_widths.h"
#include "tools/p11helper/dispatch_support.h"
#include "tools/p11helper/dispatcher.h"
#include "tools/p11helper/vendor_class.h"

namespace nivra::p11helper {
namespace {

using namespace p11wire;

// Handles fetched from the module per step of a search.
constexpr CK_ULONG kSearchBatch = 64;

// Results of C_GetAttributeValue that still describe every attribute of the template.
bool AnswersAttributes(CK_RV rv) {
  return rv == CKR_OK || rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
         rv == CKR_BUFFER_TOO_SMALL;
}

}  // namespace

HandleReply Dispatcher::CreateObject(ClientState& client, TemplateRequest request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<HandleReply>(rv);
  if (state_.vendorClassRefusal && NamesVendorClass(request.attributes))
    return StatusOnly<HandleReply>(*state_.vendorClassRefusal);
  if (state_.vendorClass) RewriteClassForStorage(&request.attributes, true);
  NativeTemplate native = NativeTemplate::FromValues(request.attributes);
  CK_OBJECT_HANDLE object = 0;
  CK_RV rv = module_->C_CreateObject(request.session, native.data(), native.size(), &object);
  if (rv != CKR_OK) return StatusOnly<HandleReply>(rv);
  if (!FitsWire(object)) {
    module_->C_DestroyObject(request.session, object);
    return StatusOnly<HandleReply>(CKR_GENERAL_ERROR);
  }
  HandleReply reply;
  reply.handle = static_cast<uint32_t>(object);
  return reply;
}

StatusReply Dispatcher::DestroyObject(ClientState& client, const ObjectRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  return StatusOnly<StatusReply>(module_->C_DestroyObject(request.session, request.object));
}

AttributesReply Dispatcher::GetAttributeValue(ClientState& client, const TemplateRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<AttributesReply>(rv);
  NativeTemplate native = NativeTemplate::ForQuery(request.attributes);
  AttributesReply reply;
  reply.rv = static_cast<uint32_t>(
      module_->C_GetAttributeValue(request.session, request.object, native.data(), native.size()));
  if (!AnswersAttributes(reply.rv)) return reply;
  reply.attributes = native.Answers(request.attributes, &reply.rv);
  if (state_.vendorClass && QueryTouchesClass(request.attributes)) {
    uint32_t vendorClass = StoredVendorClass(module_, request.session, request.object);
    if (vendorClass != 0) PresentVendorAnswers(vendorClass, &reply.attributes, &reply.rv);
  }
  return reply;
}

StatusReply Dispatcher::SetAttributeValue(ClientState& client, const TemplateRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  NativeTemplate native = NativeTemplate::FromValues(request.attributes);
  return StatusOnly<StatusReply>(
      module_->C_SetAttributeValue(request.session, request.object, native.data(), native.size()));
}

StatusReply Dispatcher::FindObjectsInit(ClientState& client, TemplateRequest request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  const ClassUse use =
      state_.vendorClass ? RewriteClassForStorage(&request.attributes, false) : ClassUse::kAny;
  NativeTemplate native = NativeTemplate::FromValues(request.attributes);
  CK_RV rv = module_->C_FindObjectsInit(request.session, native.data(), native.size());
  if (rv == CKR_OK && use == ClassUse::kData)
    state_.dataOnlySearches.insert(request.session);
  else if (rv == CKR_OK)
    state_.dataOnlySearches.erase(request.session);
  return StatusOnly<StatusReply>(rv);
}

ListReply Dispatcher::FindObjects(ClientState& client, const FindObjectsRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<ListReply>(rv);
  const bool dataOnly = state_.dataOnlySearches.count(request.session) != 0;
  ListReply reply;
  std::vector<CK_OBJECT_HANDLE> batch;
  while (reply.ids.size() < request.maxObjects) {
    CK_ULONG want = std::min<CK_ULONG>(kSearchBatch, request.maxObjects - reply.ids.size());
    batch.assign(want, 0);
    CK_ULONG got = 0;
    CK_RV rv = module_->C_FindObjects(request.session, batch.data(), want, &got);
    if (rv != CKR_OK) return StatusOnly<ListReply>(rv);
    for (CK_ULONG i = 0; i < got && i < want; ++i) {
      if (dataOnly && StoredVendorClass(module_, request.session, batch[i]) != 0) continue;
      reply.ids.push_back(NarrowUlong(batch[i]));
    }
    if (got < want) break;
  }
  reply.count = static_cast<uint32_t>(reply.ids.size());
  return reply;
}

StatusReply Dispatcher::FindObjectsFinal(ClientState& client, const SessionRequest& request) {
  if (CK_RV rv = CheckSession(client, request.session)) return StatusOnly<StatusReply>(rv);
  state_.dataOnlySearches.erase(request.session);
  return StatusOnly<StatusReply>(module_->C_FindObjectsFinal(request.session));
}

}  // namespace nivra::p11helper
