// The one interface between the provider frame and the card back ends. The frame never knows
// how a card is reached: it picks the back end by the context's `backendKind` and calls the
// `Card*` operations below, which return 0 or a CryptoAPI / smart-card status that the frame
// passes to SetLastError unchanged. Back ends live in their own folders and register themselves
// at start-up with RegisterCardBackend; a kind with no registered back end answers every
// operation with the dispatch errors (NTE_BAD_DATA, NTE_BAD_TYPE for CardLoadCaps) and offers
// no devices.
#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "provider/status_codes.h"

namespace nivra::provider {

struct ProviderContext;
struct KeyObject;

enum BackendKind : uint32_t {
  BackendNone = 0,
  BackendTokenSlot = 1,      // "\\.\" : a slot of the PKCS#11 module or of the local card service
  BackendServiceCard = 2,    // "\\?\" : a card of the local card service's service-card family
  BackendBluetoothCard = 3,  // "\\B\" : a Bluetooth card reached through the local card service
};

// Modes of the private- and public-key operations (the padding the back end applies).
enum CardKeyOpMode : uint32_t {
  CardModeRaw = 0,
  CardModeSignature = 1,   // PKCS#1 v1.5 block type 1
  CardModeEncryption = 2,  // PKCS#1 v1.5 block type 2
  CardModeOaep = 18,
};

// Card limits; counts as loaded when `defaultBits` is non-zero.
struct CardCaps {
  uint16_t loaded;
  uint16_t defaultBits;
  uint16_t minBits;
  uint16_t maxBits;
  uint16_t incrementBits;
  uint8_t minPinLength;
  uint8_t maxPinLength;
  uint8_t pinFlags;  // bit 0: an empty PIN may be submitted
};

// A device that a back end can serve. The frame copies it whole, reads its name (for the
// per-card lock and the last-selected device) and hands it back; everything else belongs to the
// back end that made it.
class CardDevice {
 public:
  virtual ~CardDevice() = default;
  virtual std::unique_ptr<CardDevice> Clone() const = 0;
  virtual std::string Name() const = 0;
  // Kind 1: the slot's 32-bit identifier (answered by provider parameter 0x80000001).
  virtual uint32_t SlotIdentifier() const { return 0; }
  // Whether the card is there now. Kind 1 reads the live slot record, which the slot monitor
  // keeps current, without the slot-table mutex; the card selection dialog polls it. The devices
  // and cards of the card service's lists keep this default: they are there because the service
  // listed them a moment ago, and the dialog does not follow them while it is open.
  virtual bool Present() const { return true; }
  // Whether the card holds the container `*name` (empty: any container, whose label is then
  // written to *name): 0 when it does, NTE_BAD_KEYSET when it does not, another status when the
  // card could not be asked. A card reached through a connection of its own asks on it and keeps
  // it open, so that the record can be handed to a context without connecting again.
  virtual Status ProbeContainer(std::string* name) { return kNteBadKeyset; }

  ProviderContext* owner = nullptr;  // back-pointer to the context holding this copy
  uint32_t selectionValue = 0;       // kind 1: the value the card selection dialog delivered
};
using CardDeviceList = std::vector<std::unique_ptr<CardDevice>>;

// A card back end. Every operation takes the context, whose `device` names the selected card.
// Defaults answer NTE_NOT_SUPPORTED so a back end implements what its cards can do.
class CardBackend {
 public:
  virtual ~CardBackend() = default;

  // Runs at every acquire under the module mutex; must be idempotent. Returns whether the back
  // end can serve devices now (kind 1: the PKCS#11 module is loaded and initialised).
  virtual bool ModuleStartup() { return true; }

  // The mutex the frame holds while it walks the back end's devices for a container search
  // (kind 1: the slot-table mutex); null when the back end needs none.
  virtual HANDLE DeviceTableMutex() { return nullptr; }
  // Appends the devices that could serve a container (kind 1: slots showing a token, refreshed).
  virtual Status EnumDevices(ProviderContext& ctx, CardDeviceList& out) { return kOk; }
  // Appends one device per entry the card selection dialog lists, present or not (kind 1: every
  // record of the slot table). Called with DeviceTableMutex held. Kinds whose dialog rows are
  // the enumerated devices keep the default.
  virtual Status SelectionDevices(CardDeviceList& out) { return kOk; }
  // Connects to the named device and stores it in ctx.device.
  virtual Status ConnectByName(ProviderContext& ctx, const std::string& name) = 0;
  // Kinds 2 and 3 ask the card; kind 1 is filled by the frame with fixed values.
  virtual Status LoadCaps(ProviderContext& ctx) { return kNteNotSupported; }
  // Opens, creates (CRYPT_NEWKEYSET) or deletes (CRYPT_DELETEKEYSET) the context's container
  // and creates the context's lock (OpenContextLock).
  virtual Status OpenContainer(ProviderContext& ctx, uint32_t acquireFlags) = 0;
  // Finds the context's container on one of `devices` (kind 1: on one of its own slots) and
  // makes that device the context's device.
  virtual Status FindContainer(ProviderContext& ctx, CardDeviceList& devices) {
    return kNteNotFound;
  }
  virtual void CloseSession(ProviderContext& ctx) {}
  // Writes the next container name into ctx.enumName.
  virtual Status EnumContainers(ProviderContext& ctx, bool restart) { return kNteNotSupported; }
  // Loads the public part of the pair for keySpec into the context's key-pair fields.
  virtual Status LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) { return kNteNotSupported; }
  virtual Status GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) {
    return kNteNotSupported;
  }
  // Input big-endian as the frame builds it; output in CryptoAPI's little-endian order.
  virtual Status PrivateKeyOp(ProviderContext& ctx, uint32_t keySpec, uint32_t mode,
                              const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    return kNteNotSupported;
  }
  virtual Status PublicKeyOp(ProviderContext& ctx, const KeyObject& key, uint32_t mode,
                             const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    return kNteNotSupported;
  }
  virtual Status WriteCert(ProviderContext& ctx, uint32_t keySpec, const uint8_t* der,
                           uint32_t len) {
    return kNteNotSupported;
  }
  // ERROR_MORE_DATA protocol on *len.
  virtual Status ReadCert(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) {
    return kNteNotSupported;
  }
  virtual Status VerifyPin(ProviderContext& ctx, const uint8_t* pin, uint32_t len) {
    return kNteNotSupported;
  }
  virtual Status Relogin(ProviderContext& ctx) { return kNteNotSupported; }
  virtual Status ChangePin(ProviderContext& ctx, const char* oldPin, const char* newPin) {
    return kNteNotSupported;
  }
  virtual Status UnblockPin(ProviderContext& ctx, const char* adminPin, const char* newPin) {
    return kNteNotSupported;
  }
  // adminPin == kNoPin: initialise without any PIN (userPin is then null).
  virtual Status InitToken(ProviderContext& ctx, const char* adminPin, const char* userPin) {
    return kNteNotSupported;
  }
  virtual Status ImportKeyPair(ProviderContext& ctx, const KeyObject& key, const uint8_t* blob,
                               uint32_t len) {
    return kNteNotSupported;
  }
  virtual Status GetCardId(ProviderContext& ctx, uint8_t out[16]) { return kNteNotSupported; }
  virtual Status PromptPin(ProviderContext& ctx, uint32_t keySpec, uint8_t* out, uint32_t* len) {
    return kNteNotSupported;
  }
  // Kind 3: a device command without data (provider parameter 22206).
  virtual Status DeviceCommand(ProviderContext& ctx) { return kNteNotSupported; }
  // Kind 3: the 16-byte mode token of provider parameter 22209; NTE_BAD_TYPE when it is not
  // valid.
  virtual Status ApplyModeToken(ProviderContext& ctx, const uint8_t* token) { return kNteBadType; }
};

// The "no PIN at all" marker of CardInitToken: a pointer with all bits set.
inline const char* const kNoPin = reinterpret_cast<const char*>(~uintptr_t{0});

// Registers the back end that serves `kind` (1 to 3). Called from static initialisers of the
// back ends; a later registration for the same kind replaces the earlier one.
void RegisterCardBackend(uint32_t kind, CardBackend* backend);
// Registers a stand-in that serves `kind` in place of the back end built in, whatever the order
// of the static initialisers (builds of the provider that replace a back end, such as test
// builds with simulated cards).
void ReplaceCardBackend(uint32_t kind, CardBackend* backend);
// The back end of a kind (its stand-in when one is registered), or null (unknown kind, or none
// built in).
CardBackend* FindCardBackend(uint32_t kind);

// Helper for static registration: `static CardBackendRegistration reg(BackendTokenSlot, &impl);`
struct CardBackendRegistration {
  CardBackendRegistration(uint32_t kind, CardBackend* backend) {
    RegisterCardBackend(kind, backend);
  }
};
// The same for a stand-in (ReplaceCardBackend).
struct CardBackendReplacement {
  CardBackendReplacement(uint32_t kind, CardBackend* backend) { ReplaceCardBackend(kind, backend); }
};

// Creates the context's per-card lock (a named mutex shared by every process) when the context
// has none and `name` is not empty. Back ends call it from OpenContainer with the name of their
// family ("Global\\" + slot, "NivraCSP_" + card, ...). Fails with NTE_SYS_ERR.
Status OpenContextLock(ProviderContext& ctx, const std::string& name);

}  // namespace nivra::provider
