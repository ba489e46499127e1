#include "service/bluetooth_device.h"

#include <cstdio>

#include "pkcs11/p11_status.h"
#include "platform/named_mutex.h"
#include "service/card_command.h"
#include "service/device_auth.h"
#include "service/encrypted_channel.h"
#include "provider/verified_pin_cache.h"

namespace nivra::service {

namespace {

constexpr char kLockPrefix[] = "NivraCSP_BTH_";
constexpr size_t kLockNameChars = 260;

}  // namespace

BthDevice::BthDevice(const frames::DeviceRecord& entry) : entry_(entry) {}

BthDevice::~BthDevice() {
  Close();
  if (channelMutex_ != nullptr) CloseHandle(channelMutex_);
}

std::unique_ptr<provider::CardDevice> BthDevice::Clone() const {
  auto copy = std::make_unique<BthDevice>(entry_);
  copy->owner = owner;
  return copy;
}

std::string BthDevice::LockName() const {
  std::string name = std::string(kLockPrefix) + entry_.name;
  if (name.size() > kLockNameChars) name.resize(kLockNameChars);
  return name;
}

void BthDevice::Close() {
  std::lock_guard<std::mutex> use(use_);
  ChannelClose({&socket_, &sessionState_, &cipher_});
}

Status BthDevice::Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                           RequestBuffers& list) {
  const uint16_t command = frames::ReadHeader(request).command;
  frames::Bytes deviceFrame;
  switch (frames::BuildDeviceFrame(entry_.name, request, len, &deviceFrame)) {
    case frames::FrameStatus::kOk: break;
    case frames::FrameStatus::kTooLong: return provider::kNteBadLen;
    default: return provider::kNteBadData;
  }
  std::lock_guard<std::mutex> use(use_);
  const ChannelFields channel{&socket_, &sessionState_, &cipher_};
  Status status = ChannelOpen(channel);
  if (status != provider::kOk) return status;
  if (channelMutex_ == nullptr) {
    wchar_t name[80];
    swprintf(name, sizeof(name) / sizeof(name[0]), L"BthSocketMutex_%d_%lld",
             static_cast<int>(GetCurrentProcessId()), static_cast<long long>(socket_));
    channelMutex_ = platform::OpenOrCreateSharedMutex(name);
  }
  platform::NamedMutexLock held(channelMutex_);
  return ChannelExchange(channel, deviceFrame, command, AnswerTimeout(command), response, list);
}

Status BthDevice::Authenticate(ProviderContext& ctx, bool lapsed) {
  if (lapsed) {
    return ctx.silent ? provider::kNteSilentContext : pkcs11::kScardCardNotAuthenticated;
  }
  return BthEnsureAuth(ctx, *this, kConfirmForKeyUse);
}

Status BthDevice::Relogin(ProviderContext& ctx) {
  frames::ConfirmationState state;
  Status status = AskLoginState(*this, &state);
  if (status != provider::kOk) return status;
  if (state.authenticated || CardVerifyCachedPin(ctx, *this)) return provider::kOk;
  if (ctx.silent) return provider::kNteSilentContext;
  status = WaitForConfirmation(*this, kConfirmForLogin);
  if (status == provider::kOk) {
    authenticated_ = true;
    provider::MarkPinVerified(entry_.name.c_str());
  }
  return status;
}

Status BthEnsureAuth(ProviderContext&, BthDevice& device, uint32_t reason) {
  if (device.authenticated_) return provider::kOk;
  if (provider::IsPinVerifiedRecently(device.entry_.name.c_str())) {
    device.authenticated_ = true;
    return provider::kOk;
  }
  Status status = WaitForConfirmation(device, reason);
  if (status != provider::kOk) return status;
  device.authenticated_ = true;
  provider::MarkPinVerified(device.entry_.name.c_str());
  return provider::kOk;
}

}  // namespace nivra::service
