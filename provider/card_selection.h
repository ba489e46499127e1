// The card selection step of an acquire that could be served by several cards and may show a
// user interface. The selection dialog registers itself here; without one, such an acquire
// searches the cards for the container as a silent one does.
#pragma once
#include <memory>
#include <string>

#include "provider/card_backend.h"

namespace nivra::provider {

struct CardSelectionRequest {
  std::string containerName;  // "DefaultContainer" when the caller named none
  uint32_t acquireFlags;      // mode: CRYPT_NEWKEYSET creates, CRYPT_DELETEKEYSET deletes
  CardDeviceList* serviceCards;
  CardDeviceList* bluetoothCards;
  CardDeviceList* slots;  // every slot of the table, with or without a token
};

// Returns 0 with the chosen kind and device, or the error the selection recorded
// (SCARD_W_CANCELLED_BY_USER when the user cancelled).
using CardSelector = Status (*)(ProviderContext& ctx, const CardSelectionRequest& request,
                                uint32_t* kind, std::unique_ptr<CardDevice>* device);

void RegisterCardSelector(CardSelector selector);
CardSelector FindCardSelector();

}  // namespace nivra::provider
