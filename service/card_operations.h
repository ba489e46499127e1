// The card operations of a context bound to a card of the card service, on any road
// (remote_card.h): published slots, Bluetooth devices and service cards.
#pragma once
#include <cstdint>

#include "provider/provider_context.h"
#include "service/remote_card.h"

namespace nivra::service {

using provider::KeyObject;
using provider::ProviderContext;
using provider::Status;

// Opens, creates (CRYPT_NEWKEYSET: an existing container gives NTE_EXISTS) or deletes
// (CRYPT_DELETEKEYSET) the context's container under the card's lock (RemoteCard::LockName). A
// verify-only context sends nothing. An empty name is "DefaultContainer" for a create or delete;
// for an open, the service names the container it opened and the context takes that name.
Status RemoteOpenContainer(ProviderContext& ctx, RemoteCard& card, uint32_t flags);

// Opens the context's container by its name (0x2003) and keeps its handle; for an empty name the
// card names the container it opened and the context takes that name.
Status RemoteOpenByName(ProviderContext& ctx, RemoteCard& card);

// The next container name into ctx.enumName (index 0 on restart), in the ANSI code page when the
// road asks for it; the end of the list is the service's ERROR_NO_MORE_ITEMS.
Status RemoteEnumContainers(ProviderContext& ctx, RemoteCard& card, bool restart);

// The public key of keySpec (0x2022) or a newly generated pair (0x2021, e = 65537) into the
// context's key-pair fields. A new pair empties the result cache.
Status RemoteReadPublicKey(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec);
Status RemoteGenKeyPair(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec, uint32_t bits);

// Private-key operation (0x2024): signature mode pads the DigestInfo with block type 1, the
// others take one little-endian block of the modulus length; encryption and OAEP modes unpad the
// result, the others return it reversed. The last request and its card result are kept: the same
// request again is answered without the card.
Status RemotePrivateKeyOp(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec,
                        uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                        uint32_t* outLen);

// Public-key operation (0x2025): encryption and OAEP modes pad, the others take one block;
// signature mode checks block type 1 and returns the DigestInfo, the others the reversed block.
Status RemotePublicKeyOp(ProviderContext& ctx, RemoteCard& card, const KeyObject& key,
                       uint32_t mode, const uint8_t* in, uint32_t inLen, uint8_t* out,
                       uint32_t* outLen);

Status RemoteImportKeyPair(ProviderContext& ctx, RemoteCard& card, const KeyObject& key,
                         const uint8_t* blob, uint32_t len);
Status RemoteWriteCert(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec,
                     const uint8_t* der, uint32_t len);
// A buffer smaller than the certificate gives NTE_NO_MEMORY and the length needed; a null
// buffer only the length.
Status RemoteReadCert(ProviderContext& ctx, RemoteCard& card, uint32_t keySpec, uint8_t* out,
                    uint32_t* len);

// PIN administration: kind 1 change (0x2015), 2 unblock (0x2016), 3 initialise (0x2101).
enum PinCommandKind : uint32_t { kPinChange = 1, kPinUnblock = 2, kPinInitialise = 3 };
Status RemotePinCommand(ProviderContext& ctx, RemoteCard& card, uint32_t kind,
                      const char* first, const char* second);
Status RemoteInitTokenPlain(ProviderContext& ctx, RemoteCard& card);

}  // namespace nivra::service
