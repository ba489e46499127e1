// The card operations of a context bound to a published slot: what the token-slot back end's
// operations become when the slot belongs to the local card service.
#pragma once
#include <cstdint>

#include "pkcs11/slot_device.h"
#include "provider/provider_context.h"

namespace nivra::service {

using pkcs11::SlotDevice;
using provider::KeyObject;
using provider::ProviderContext;
using provider::Status;

// Opens, creates (CRYPT_NEWKEYSET: an existing container gives NTE_EXISTS) or deletes
// (CRYPT_DELETEKEYSET) the context's container under the card lock "NivraCSP_P11_<slot>". A
// verify-only context sends nothing. An empty name is "DefaultContainer" for a create or delete;
// for an open, the service names the container it opened and the context takes that name.
Status SlotOpenContainer(ProviderContext& ctx, SlotDevice& device, uint32_t flags);

// The next container name into ctx.enumName (index 0 on restart); the end of the list is the
// service's ERROR_NO_MORE_ITEMS.
Status SlotEnumContainers(ProviderContext& ctx, SlotDevice& device, bool restart);

// The public key of keySpec (0x2022) or a newly generated pair (0x2021, e = 65537) into the
// context's key-pair fields. A new pair empties the result cache.
Status SlotReadPublicKey(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec);
Status SlotGenKeyPair(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec, uint32_t bits);

// Private-key operation (0x2024): signature mode pads the DigestInfo with block type 1, the
// others take one little-endian block of the modulus length; encryption and OAEP modes unpad the
// result, the others return it reversed. The last request and its card result are kept: the same
// request again is answered without the card.
Status SlotPrivateKeyOp(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                        uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                        uint32_t* outLen);

// Public-key operation (0x2025): encryption and OAEP modes pad, the others take one block;
// signature mode checks block type 1 and returns the DigestInfo, the others the reversed block.
Status SlotPublicKeyOp(ProviderContext& ctx, SlotDevice& device, const KeyObject& key,
                       uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                       uint32_t* outLen);

Status SlotImportKeyPair(ProviderContext& ctx, SlotDevice& device, const KeyObject& key,
                         const uint8_t* blob, uint32_t len);
Status SlotWriteCert(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec,
                     const uint8_t* der, uint32_t len);
// A buffer smaller than the certificate gives NTE_NO_MEMORY and the length needed; a null
// buffer only the length.
Status SlotReadCert(ProviderContext& ctx, SlotDevice& device, uint32_t keySpec, uint8_t* out,
                    uint32_t* len);

// PIN administration: kind 1 change (0x2015), 2 unblock (0x2016), 3 initialise (0x2101).
enum PinCommandKind : uint32_t { kPinChange = 1, kPinUnblock = 2, kPinInitialise = 3 };
Status SlotPinCommand(ProviderContext& ctx, SlotDevice& device, uint32_t kind,
                      const char* first, const char* second);
Status SlotInitTokenPlain(ProviderContext& ctx, SlotDevice& device);

}  // namespace nivra::service
