// Key containers on the token. A container is one object of class 0x80000001 whose CKA_LABEL is
// the container name (its 8-bit characters, no NUL), with CKA_TOKEN and CKA_MODIFIABLE true; on a
// token that refuses that class, the marked data object of container_forms.h instead. Its
// two key pairs and their certificates are ordinary objects tied to it by CKA_ID: the key IDs of
// the container's key-ID record (its CKA_VALUE, when not empty), else the name followed by "_cspS"
// (AT_SIGNATURE) or "_cspX" (AT_KEYEXCHANGE and every other key specification).
//
// Key-ID record layout (CKA_VALUE): byte 0 signature ID length S, byte 1 exchange ID length X,
// bytes 2-3 reserved, then the signature ID at offset 4 and the exchange ID at offset 4 + S.
#pragma once
#include <cstddef>
#include <cstdint>

#include "pkcs11/cryptoki.h"
#include "pkcs11/p11_status.h"
#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

constexpr char kDefaultContainerName[] = "DefaultContainer";
constexpr size_t kKeyIdCapacity = 256;
constexpr size_t kContainerLabelCapacity = 255;  // the context's 256-byte name with its NUL
constexpr char kSignatureIdSuffix[] = "_cspS";
constexpr char kExchangeIdSuffix[] = "_cspX";
constexpr size_t kKeyIdSuffixLength = 5;

// Looks a container up on the slot in a search session of its own. A non-empty `name` must match
// exactly one container's label (none or several: NTE_BAD_KEYSET). An empty name takes the first
// container the module returns and, when labelCapacity is non-zero, writes its label into `name`
// (labelCapacity + 1 bytes writable). *handleOut (optional) receives the object, 0 on failure.
// Module failures are mapped. Remote records go to the service.
Status FindContainer(P11Slot& slot, char* name, size_t labelCapacity, CK_OBJECT_HANDLE* handleOut);

// The back end's part of an acquire: counts the context as a user of its slot, creates the
// card's lock "Global\\" + slot name (the context lock), and under it opens the slot session;
// then, unless the context is verify-only, creates (CRYPT_NEWKEYSET), opens, or deletes
// (CRYPT_DELETEKEYSET, after logging in) the container. An empty name opens the token's first
// container and learns its name; it creates or deletes "DefaultContainer".
Status OpenContainer(provider::ProviderContext& ctx, SlotDevice& device, uint32_t acquireFlags);

// Creates the context's container object on the slot session (after logging in): the vendor form,
// or the data form when the token refuses the vendor class. NTE_EXISTS when a container with that
// label exists. No key-ID record is written.
Status CreateContainer(provider::ProviderContext& ctx, SlotDevice& device);

// Removes the container's RSA keys and X.509 certificates under both key IDs, then the container
// object. The first failure ends the deletion and is returned mapped.
Status DeleteContainer(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE container, const char* name);

// One key ID inside a key-ID record.
struct KeyIdView {
  const uint8_t* bytes;
  uint32_t length;
};

// Splits a key-ID record into its signature and exchange IDs. False when the record is shorter
// than its header, or than the header's two lengths say.
bool SplitKeyIdRecord(const uint8_t* record, size_t length, KeyIdView* signature,
                      KeyIdView* exchange);

// The container's two key IDs. Either buffer may be null (then only its length is reported);
// lengths are capacity in, length out. A buffer smaller than its ID: NTE_FAIL.
Status GetContainerKeyIds(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE container, const char* name,
                          uint8_t* signatureId, uint32_t* signatureLength, uint8_t* exchangeId,
                          uint32_t* exchangeLength);

// The derived key ID of the context's container for keySpec ("_cspS" for AT_SIGNATURE, "_cspX"
// for every other value), never the key-ID record. No buffer: *length = needed, 0. Otherwise
// *length = needed and ERROR_MORE_DATA when the capacity given was smaller.
Status BuildKeyId(const provider::ProviderContext& ctx, uint32_t keySpec, uint8_t* buffer,
                  uint32_t* length);

struct KeyId {
  uint8_t bytes[kKeyIdCapacity];
  uint32_t length;
};

// The key ID of the context's container for keySpec as the token knows it (GetContainerKeyIds
// on the slot session, which is opened first if needed).
Status ContainerKeyId(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                      KeyId* id);

// Logs in (EnsureLogin), then ContainerKeyId: the start of every operation that changes the
// container's objects.
Status LoginAndKeyId(provider::ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     KeyId* id);

// Which objects with a key ID DestroyKeyObjectsById removes.
enum class KeyObjectSweep {
  kKeysAndCertificates,  // RSA public and private keys, X.509 certificates (container deletion)
  kKeysOnly,             // RSA public and private keys (a new pair replaces the old one)
  kCertificatesOnly,     // X.509 certificates (what a refused certificate creation left)
};

// Destroys the objects with CKA_ID = id that the sweep names; objects of any other class or type
// stay. Returns 0 or the first failure mapped.
Status DestroyKeyObjectsById(CK_SESSION_HANDLE session, const uint8_t* id, uint32_t idLength,
                             KeyObjectSweep sweep);

// The next container name into ctx.enumName; `first` restarts the enumeration in a session of the
// context's own. End of list: ERROR_NO_MORE_ITEMS (the session is closed); a call without `first`
// and no running enumeration: NTE_BAD_FLAGS.
Status EnumContainers(provider::ProviderContext& ctx, SlotDevice& device, bool first);

// Closes the context's enumeration session, if any.
void EndContainerEnumeration(SlotDevice& device);

// Binds a context that named no slot to the first slot whose token holds its container: the slot
// of the last acquisition by name first, then every slot in table order. NTE_BAD_KEYSET when no
// slot holds it or the module is not available.
Status ChooseSlotForContainer(provider::ProviderContext& ctx);

}  // namespace nivra::pkcs11
