// Building and tearing down provider contexts.
#pragma once
#include "provider/container_string.h"
#include "provider/provider_context.h"

namespace nivra::provider {

// Chooses the card for a parsed container string (by name, by searching the devices of every
// back end, or through the card selection) and opens, creates or deletes the container with the
// acquire flags. Fills ctx.backendKind and ctx.device.
Status SelectDeviceAndOpenContainer(ProviderContext& ctx, const ContainerString& parsed,
                                    uint32_t acquireFlags);

// Tears a context down (under its lock): destroys its keys and hashes, closes the card session,
// uncounts it, releases the software provider and the lock, zeroes and frees the record. The
// context is no longer live (retired, or never registered), so no call can reach it.
void ReleaseContextRecord(ProviderContext* ctx);

}  // namespace nivra::provider
