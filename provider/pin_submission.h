// Submitting the card PIN through the PIN parameters of the provider and of container keys.
#pragma once
#include "provider/provider_context.h"

namespace nivra::provider {

// pbData null means an empty PIN, which clears the stored PIN without touching the card.
// A non-empty PIN must respect the card's length limits (NTE_BAD_LEN) and is verified by the
// card; on success it is stored in the context.
Status SubmitPin(ProviderContext& ctx, const BYTE* pbData);

// A verify-only context without a device name has no card to give a PIN to (NTE_BAD_TYPE).
bool PinParametersAllowed(const ProviderContext& ctx);

// Stores `pin` (length bytes) as the context's PIN.
void StorePin(ProviderContext& ctx, const char* pin, size_t length);

}  // namespace nivra::provider
