// The card's certificates in the current user's "MY" store, where applications find them: each
// carries CERT_KEY_PROV_INFO_PROP_ID naming this provider, the container string that reaches
// the card (reader prefix and device name included) and the key spec, so crypt32 finds the key
// on the card. The entries this tool puts there carry a mark of their own; only marked entries
// are ever removed.
#pragma once
#include <windows.h>

#include <string>
#include <vector>

#include "card_context.h"

namespace nivracli {

struct PropagationResult {
  int added = 0;     // entries new in the store, or pointing at a new container
  int kept = 0;      // entries already there as they should be
  int removed = 0;   // marked entries whose container, key or card is gone
};

// Puts one card certificate into "MY" (or refreshes its entry) and removes marked entries for
// the same container and key spec that hold another certificate.
void PropagateCertificate(const Args& args, const std::string& card, const std::string& container,
                          DWORD keySpec, const Bytes& certificate, PropagationResult* result);

// Every certificate of every container of every reachable card into "MY"; then every marked
// entry that no longer matches a certificate on a reachable card is removed.
PropagationResult PropagateAll(const Args& args);

}  // namespace nivracli
