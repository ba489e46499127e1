// A card on a Bluetooth device that the card service reaches: the device entry from the device
// list, its own encrypted channel to the service (commands travel in device frames 0x5101), and
// authentication by a confirmation on the device, remembered for 30 seconds across the process.
#pragma once
#include <winsock2.h>
#include <windows.h>

#include <memory>
#include <mutex>
#include <string>

#include "crypto/cipher.h"
#include "service/device_backend.h"
#include "service/frames/device_records.h"

namespace nivra::service {

class BthDevice;
Status BthEnsureAuth(ProviderContext& ctx, BthDevice& device, uint32_t reason);

class BthDevice : public ServiceDevice {
 public:
  explicit BthDevice(const frames::DeviceRecord& entry);
  ~BthDevice() override;

  // A copy of the entry with a channel of its own (not yet connected) and no authentication.
  std::unique_ptr<provider::CardDevice> Clone() const override;
  std::string Name() const override { return entry_.name; }

  // BthTransact: the command in a device frame on the device's channel, under the channel mutex
  // "BthSocketMutex_<process>_<socket>". Transport failures close the channel: SCARD_E_TIMEOUT
  // for a time-out, ERROR_DEVICE_NOT_CONNECTED otherwise; the next request reconnects.
  Status Transact(const uint8_t* request, size_t len, frames::FrameView* response,
                  RequestBuffers& list) override;
  // BthEnsureAuth; when the card still answers that it is not authenticated, a silent context
  // gets NTE_SILENT_CONTEXT and any other SCARD_W_CARD_NOT_AUTHENTICATED.
  Status Authenticate(ProviderContext& ctx, bool lapsed) override;
  std::string LockName() const override;
  bool AnsiContainerNames() const override { return true; }
  Status Relogin(ProviderContext& ctx) override;
  void Close() override;

  // The context counts as authenticated on this device (a confirmation or a mode token).
  void MarkAuthenticated() { authenticated_ = true; }
  const frames::DeviceRecord& Entry() const { return entry_; }

 private:
  friend Status BthEnsureAuth(ProviderContext& ctx, BthDevice& device, uint32_t reason);

  frames::DeviceRecord entry_;
  bool authenticated_ = false;
  std::mutex use_;  // this process's use of the channel
  SOCKET socket_ = INVALID_SOCKET;
  uint32_t sessionState_ = 0;
  crypto::CipherHandle cipher_ = 0;
  HANDLE channelMutex_ = nullptr;
};

// BthEnsureAuth: nothing when the context is authenticated on the device; the device confirmed
// less than 30 s ago (in any context of the process) marks the context at once; otherwise the
// confirmation on the device (device_auth.h), whose success is remembered for the process.
Status BthEnsureAuth(ProviderContext& ctx, BthDevice& device, uint32_t reason);

}  // namespace nivra::service
