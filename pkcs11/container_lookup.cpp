// Finding a container object by its label, or the token's first container.
#include <cstring>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/container_forms.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_objects.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

// A label must name exactly one container, so the search asks for two.
constexpr CK_ULONG kNamedSearchCapacity = 2;

}  // namespace

Status FindContainer(P11Slot& slot, char* name, size_t labelCapacity, CK_OBJECT_HANDLE* handleOut) {
  if (slot.remote) {
    RemoteSlotService* remote = RemoteSlots();
    return remote != nullptr ? remote->FindContainer(slot, name, labelCapacity, handleOut)
                             : provider::kNteFail;
  }
  if (handleOut != nullptr) *handleOut = 0;
  if (P11() == nullptr) return provider::kNteFail;
  OwnSession search;
  CK_RV rv = search.Open(slot.slotId);
  if (rv != CKR_OK) return MapCkrToError(rv);

  const size_t nameLength = std::strlen(name);
  CK_OBJECT_HANDLE found[kNamedSearchCapacity] = {};
  CK_ULONG count = 0;
  rv = FindContainerObjects(search.handle(), name, nameLength, found,
                            nameLength != 0 ? kNamedSearchCapacity : 1, &count);
  if (rv != CKR_OK) return MapCkrToError(rv);
  if (count != 1) return provider::kNteBadKeyset;
  if (nameLength == 0 && labelCapacity != 0) {
    size_t labelLength = 0;
    rv = ReadLabel(search.handle(), found[0], name, labelCapacity, &labelLength);
    if (rv != CKR_OK) return MapCkrToError(rv);
  }
  if (handleOut != nullptr) *handleOut = found[0];
  return kOk;
}

}  // namespace nivra::pkcs11
