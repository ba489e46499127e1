// A card back end for tests only, built into nivracsp_fake.dll in place of real cards. It serves
// the service-card (kind 2) and Bluetooth (kind 3) prefixes with a configurable number of devices,
// answers with fixed card limits and a fixed 2048-bit public key, and records what the frame asks
// of it so tests can check what reached the card (the card's answers themselves are proved
// against real cards and tokens). Tests steer it through the exports at the end.
#include <windows.h>

#include <cstring>
#include <string>

#include "provider/card_backend.h"
#include "provider/module_state.h"
#include "provider/provider_context.h"
#include "fake_card_control.h"

using namespace nivra::provider;

namespace {

constexpr uint32_t kFakeModulusBits = 2048;
constexpr uint32_t kFakeModulusBytes = kFakeModulusBits / 8;
constexpr uint32_t kFakeExponent = 65537;

struct FakeState {
  uint32_t deviceCount[4] = {};  // per kind
  std::string containerOn;       // device that holds the container (silent search)
  Status openResult = kOk;
  FakeCardRecord record = {};    // what reached the card
};

FakeState& State() {
  static FakeState state;
  return state;
}

struct FakeDevice : CardDevice {
  explicit FakeDevice(std::string deviceName) : name(std::move(deviceName)) {}
  std::unique_ptr<CardDevice> Clone() const override { return std::make_unique<FakeDevice>(*this); }
  std::string Name() const override { return name; }
  std::string name;
};

class FakeBackend : public CardBackend {
 public:
  FakeBackend(uint32_t kind, const char* prefix) : kind_(kind), prefix_(prefix) {}

  Status EnumDevices(ProviderContext&, CardDeviceList& out) override {
    for (uint32_t i = 0; i < State().deviceCount[kind_]; ++i) {
      out.push_back(std::make_unique<FakeDevice>(prefix_ + std::to_string(i)));
    }
    return kOk;
  }

  Status ConnectByName(ProviderContext& ctx, const std::string& name) override {
    for (uint32_t i = 0; i < State().deviceCount[kind_]; ++i) {
      if (name == prefix_ + std::to_string(i)) {
        ctx.device = std::make_unique<FakeDevice>(name);
        return kOk;
      }
    }
    return kNteBadKeyset;
  }

  Status LoadCaps(ProviderContext& ctx) override {
    ctx.caps = CardCaps{1, 1024, 512, 4096, 512, 4, 16, 1};
    return kOk;
  }

  Status OpenContainer(ProviderContext& ctx, uint32_t flags) override {
    Status status = OpenContextLock(ctx, "NivraCSP_Fake_" + ctx.device->Name());
    State().record.openFlags = flags;
    return status != kOk ? status : State().openResult;
  }

  Status FindContainer(ProviderContext& ctx, CardDeviceList& devices) override {
    for (auto& device : devices) {
      if (device->Name() == State().containerOn) {
        ctx.device = device->Clone();
        return kOk;
      }
    }
    return kNteBadKeyset;
  }

  void CloseSession(ProviderContext&) override {
    ++State().record.closeCount;
  }

  Status LoadKeyPair(ProviderContext& ctx, uint32_t keySpec) override {
    CardKeyPair& pair = ctx.KeyPair(keySpec);
    pair.modulusBits = kFakeModulusBits;
    pair.publicExponent = kFakeExponent;
    for (uint32_t i = 0; i < kFakeModulusBytes; ++i) pair.modulus[i] = static_cast<uint8_t>(0xC0 + i * 7 + keySpec);
    return kOk;
  }

  Status GenKeyPair(ProviderContext& ctx, uint32_t keySpec, uint32_t bits) override {
    State().record.genKeyBits = bits;
    return kOk;
  }

  // Records what reached the card and answers with a block of the modulus length.
  Status PrivateKeyOp(ProviderContext&, uint32_t keySpec, uint32_t mode, const uint8_t* in,
                      uint32_t inLen, uint8_t* out, uint32_t* outLen) override {
    FakeCardRecord& record = State().record;
    record.mode = mode;
    record.inputLength = inLen < sizeof(record.input) ? inLen : sizeof(record.input);
    std::memcpy(record.input, in, record.inputLength);
    if (*outLen < kFakeModulusBytes) return kErrMoreData;
    std::memset(out, 0x5A, kFakeModulusBytes);
    *outLen = kFakeModulusBytes;
    return kOk;
  }

  Status VerifyPin(ProviderContext&, const uint8_t* pin, uint32_t len) override {
    char* last = State().record.lastPin;
    const uint32_t kept = len < sizeof(State().record.lastPin) ? len : sizeof(State().record.lastPin) - 1;
    std::memcpy(last, pin, kept);
    last[kept] = 0;
    return std::strcmp(last, "0000") == 0 ? kScardWrongChv : kOk;
  }

 private:
  uint32_t kind_;
  std::string prefix_;
};

FakeBackend serviceCards(BackendServiceCard, "svc");
FakeBackend bluetoothCards(BackendBluetoothCard, "bt");
// In place of the built-in service-card and Bluetooth back ends.
CardBackendReplacement replaceServiceCards(BackendServiceCard, &serviceCards);
CardBackendReplacement replaceBluetoothCards(BackendBluetoothCard, &bluetoothCards);

}  // namespace

// Test controls.
extern "C" __declspec(dllexport) void FakeCardReset(uint32_t serviceCardCount,
                                                    uint32_t bluetoothCardCount,
                                                    const char* containerOn) {
  FakeState& s = State();
  s.deviceCount[BackendServiceCard] = serviceCardCount;
  s.deviceCount[BackendBluetoothCard] = bluetoothCardCount;
  s.containerOn = containerOn != nullptr ? containerOn : "";
  s.openResult = kOk;
  s.record = {};
}

extern "C" __declspec(dllexport) void FakeCardSetOpenResult(uint32_t status) {
  State().openResult = status;
}

extern "C" __declspec(dllexport) void FakeCardRecordGet(FakeCardRecord* out) {
  *out = State().record;
}

// The object-bias counter, read and set: a test rewinds it to give a second context the bias of a
// first, as the counter does on its own after it wraps.
extern "C" __declspec(dllexport) uint32_t FakeCardObjectBiasCounter() {
  return Module().objectBiasCounter.load();
}

extern "C" __declspec(dllexport) void FakeCardSetObjectBiasCounter(uint32_t value) {
  Module().objectBiasCounter.store(value);
}
