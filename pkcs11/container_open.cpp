// The back end's part of an acquire: opening, creating or deleting the context's container under
// the card's lock.
#include <windows.h>
#include <wincrypt.h>

#include <cstring>
#include <string>

#include "pkcs11/ckr_mapping.h"
#include "pkcs11/container_forms.h"
#include "pkcs11/module_loader.h"
#include "pkcs11/remote_slots.h"
#include "pkcs11/slot_session.h"
#include "pkcs11/token_containers.h"
#include "pkcs11/token_login.h"
#include "pkcs11/token_objects.h"
#include "platform/named_mutex.h"

namespace nivra::pkcs11 {

using provider::kOk;

namespace {

constexpr char kCardLockPrefix[] = "Global\\";
constexpr size_t kCardLockNameChars = 260;

// The card's lock, shared by every context of every process that uses the slot: the context's
// lock, named "Global\\" + slot name.
Status OpenContainerMutex(provider::ProviderContext& ctx, const SlotDevice& device) {
  if (device.slot->name[0] == '\0' || ctx.contextLock != nullptr) return kOk;
  std::string name = std::string(kCardLockPrefix) + device.slot->name;
  if (name.size() > kCardLockNameChars) name.resize(kCardLockNameChars);
  return provider::OpenContextLock(ctx, name);
}

void UseDefaultName(provider::ProviderContext& ctx) {
  std::memset(ctx.containerName, 0, sizeof(ctx.containerName));
  std::memcpy(ctx.containerName, kDefaultContainerName, sizeof(kDefaultContainerName));
}

}  // namespace

Status CreateContainer(provider::ProviderContext& ctx, SlotDevice& device) {
  P11Slot& slot = *device.slot;
  if (FindContainer(slot, ctx.containerName, 0, nullptr) == kOk) return kNteExists;
  Status status = EnsureLogin(ctx, device);
  if (status != kOk) return status;
  // A token that holds no vendor-defined objects gets the container's data form.
  CK_RV rv = CKR_OK;
  for (ContainerForm form : kContainerForms) {
    AttributeList object;
    ContainerTemplate(&object, form, ctx.containerName, std::strlen(ctx.containerName));
    rv = P11()->C_CreateObject(slot.session, object.data(), object.count(), &device.container);
    if (!RefusesVendorClass(rv)) break;
  }
  return MapCkrToError(rv);
}

Status OpenContainer(provider::ProviderContext& ctx, SlotDevice& device, uint32_t acquireFlags) {
  P11Slot& slot = *device.slot;
  device.holdsSlotUser = true;
  InterlockedIncrement(&slot.userCount);
  if (slot.remote) {
    RemoteSlotService* remote = RemoteSlots();
    return remote != nullptr ? remote->OpenContainer(ctx, acquireFlags) : provider::kNteFail;
  }
  Status status = OpenContainerMutex(ctx, device);
  if (status != kOk) return status;
  platform::NamedMutexLock cardLock(ctx.contextLock);

  status = EnsureSlotSession(slot);
  if (status != kOk) return status;
  if (ctx.verifyOnly) return kOk;

  const bool create = acquireFlags & CRYPT_NEWKEYSET;
  const bool remove = acquireFlags & CRYPT_DELETEKEYSET;
  if (ctx.containerName[0] == '\0' && (create || remove)) UseDefaultName(ctx);
  if (create) return CreateContainer(ctx, device);
  if (device.container == 0) {
    status = FindContainer(slot, ctx.containerName, kContainerLabelCapacity, &device.container);
    if (status != kOk) return status;
  }
  if (remove) {
    status = EnsureLogin(ctx, device);
    if (status != kOk) return status;
    return DeleteContainer(slot.session, device.container, ctx.containerName);
  }
  return kOk;
}

}  // namespace nivra::pkcs11
