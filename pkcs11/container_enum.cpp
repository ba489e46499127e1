// PP_ENUMCONTAINERS on a token slot: a search over the container objects in a session of the
// context's own, one name per call, the vendor form first, then the data form. The last search
// is never finished with C_FindObjectsFinal: closing the session ends it.
#include <cstring>
#include <iterator>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/container_forms.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

Status EndWith(SlotDevice& device, Status status) {
  EndContainerEnumeration(device);
  return status;
}

// Starts the search for one container form in the enumeration's session.
CK_RV SearchForm(CK_SESSION_HANDLE session, size_t form) {
  AttributeList query;
  AddContainerForm(&query, kContainerForms[form]);
  return P11()->C_FindObjectsInit(session, query.data(), query.count());
}

Status StartEnumeration(SlotDevice& device) {
  EndContainerEnumeration(device);
  OwnSession session;
  CK_RV rv = session.Open(device.slot->slotId);
  if (rv != CKR_OK) return MapCkrToError(rv);
  rv = SearchForm(session.handle(), 0);
  if (rv != CKR_OK) return MapCkrToError(rv);
  device.enumSession = session.Release();
  device.enumForm = 0;
  return kOk;
}

// The next container object of the enumeration, taking the forms in turn; *count 0 at the end.
CK_RV NextContainer(SlotDevice& device, CK_OBJECT_HANDLE* object, CK_ULONG* count) {
  for (;;) {
    CK_RV rv = P11()->C_FindObjects(device.enumSession, object, 1, count);
    if (rv != CKR_OK || *count != 0) return rv;
    if (device.enumForm + 1 >= std::size(kContainerForms)) return CKR_OK;
    // One search at a time per session: the finished form's search ends before the next starts.
    P11()->C_FindObjectsFinal(device.enumSession);
    rv = SearchForm(device.enumSession, ++device.enumForm);
    if (rv != CKR_OK) return rv;
  }
}

}  // namespace

void EndContainerEnumeration(SlotDevice& device) {
  if (device.enumSession != 0 && P11() != nullptr) P11()->C_CloseSession(device.enumSession);
  device.enumSession = 0;
}

Status EnumContainers(provider::ProviderContext& ctx, SlotDevice& device, bool first) {
  if (device.slot->remote) {
    RemoteSlotService* remote = RemoteSlots();
    return remote != nullptr ? remote->EnumContainers(ctx, first) : provider::kNteFail;
  }
  if (P11() == nullptr) return provider::kNteFail;
  if (first) {
    Status status = StartEnumeration(device);
    if (status != kOk) return status;
  }
  if (device.enumSession == 0) return provider::kNteBadFlags;

  CK_OBJECT_HANDLE object = 0;
  CK_ULONG count = 0;
  CK_RV rv = NextContainer(device, &object, &count);
  if (rv != CKR_OK) return EndWith(device, MapCkrToError(rv));
  if (count == 0) return EndWith(device, kErrNoMoreItems);
  size_t length = 0;
  static_assert(sizeof(ctx.enumName) > kContainerLabelCapacity, "room for the NUL");
  rv = ReadLabel(device.enumSession, object, ctx.enumName, kContainerLabelCapacity, &length);
  if (rv != CKR_OK) {
    ctx.enumName[0] = '\0';
    return EndWith(device, MapCkrToError(rv));
  }
  return kOk;
}

}  // namespace nivra::pkcs11
