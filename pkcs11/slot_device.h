// The device record of a provider context bound to a token slot, and the back end's state of
// that context: the container object, the container enumeration, the key objects found so far
// and the one-entry cache of the last private-key result. The frame keeps it in ctx.device and
// copies it only while choosing a device (Clone copies the binding, not the state).
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "pkcs11/cryptoki.h"
#include "pkcs11/slot_table.h"
#include "provider/card_backend.h"
#include "provider/provider_context.h"

namespace nivra::pkcs11 {

// How a context is bound to its slot.
enum SlotBinding : uint32_t {
  kBindingModuleSlot = 1,
};

// Object handles of one of the container's key pairs; 0 = not found yet. Once found they are
// kept for the life of the context.
struct TokenKeyHandles {
  CK_OBJECT_HANDLE privateKey;
  CK_OBJECT_HANDLE publicKey;
};

// The last raw private-key result, so that a repeated request with the same input does not reach
// the token again.
constexpr size_t kResultCacheBytes = 2048;
struct PrivateResultCache {
  uint32_t keySpec;  // 0 = empty
  uint32_t mode;
  uint8_t input[kResultCacheBytes];  // the caller's input as given
  uint32_t inputLength;
  uint8_t result[kResultCacheBytes];  // the raw token result
  uint32_t resultLength;
};

class SlotDevice : public provider::CardDevice {
 public:
  explicit SlotDevice(P11Slot* slot) : slot(slot) {}
  ~SlotDevice() override;

  std::unique_ptr<provider::CardDevice> Clone() const override;
  std::string Name() const override;
  uint32_t SlotIdentifier() const override;
  bool Present() const override;
  provider::Status ProbeContainer(std::string* name) override;

  // The key handles for a key specification: AT_SIGNATURE has its own, every other value uses
  // the exchange pair's.
  TokenKeyHandles& Keys(uint32_t keySpec);

  P11Slot* slot;
  bool holdsSlotUser = false;  // the context counts in slot->userCount
  uint32_t binding = kBindingModuleSlot;
  CK_OBJECT_HANDLE container = 0;   // the container object; 0 = not looked up
  CK_SESSION_HANDLE enumSession = 0;  // running container enumeration; 0 = none
  size_t enumForm = 0;                // the container form it searches (index in kContainerForms)
  uint32_t remoteEnumIndex = 0;       // published slots: index of the last enumerated container
  TokenKeyHandles signatureKeys{};
  TokenKeyHandles exchangeKeys{};
  PrivateResultCache cache{};
};

// The context's slot device, or null when the context is not bound to a slot.
SlotDevice* SlotOf(provider::ProviderContext& ctx);

// Binds the context to `slot`: a new SlotDevice in ctx.device, owned by the context.
SlotDevice& BindContext(provider::ProviderContext& ctx, P11Slot& slot);

}  // namespace nivra::pkcs11
