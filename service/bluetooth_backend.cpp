// Back-end kind 3: cards on Bluetooth devices that the card service lists (0x4101) and reaches.
#include <windows.h>

#include <cstring>
#include <memory>

#include "provider/module_state.h"
#include "service/bluetooth_device.h"
#include "service/device_lists.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_codes.h"
#include "service/frames/mode_token.h"
#include "service/service_settings.h"
#include "provider/verified_pin_cache.h"

namespace nivra::service {

namespace {

using provider::kOk;

// The device command of provider parameter 22206: command 0x4006 on a connection of its own,
// carrying the device name and a zero value; the answer's content is not used.
constexpr size_t kNoticeNameBytes = 32;
constexpr size_t kNoticeValueBytes = 8;

Status SendDeviceNotice(const std::string& device) {
  uint8_t body[kNoticeNameBytes + kNoticeValueBytes] = {};
  std::memcpy(body, device.data(), device.size() < kNoticeNameBytes ? device.size()
                                                                     : kNoticeNameBytes);
  frames::Bytes frame;
  frames::BuildFrame(frames::kCmdDeviceNotice, 0, body, sizeof(body), &frame);
  frames::Bytes answer;
  bool connectFailed = false;
  return OneRequest(frame, Settings().connectTimeoutMs, &answer, &connectFailed);
}

BthDevice* BthOf(ProviderContext& ctx) { return dynamic_cast<BthDevice*>(ctx.device.get()); }

class BluetoothBackend : public ServiceDeviceBackend {
 public:
  // BthEnumDevices: a list that cannot be had offers no devices.
  Status EnumDevices(ProviderContext&, provider::CardDeviceList& out) override {
    std::vector<frames::DeviceRecord> records;
    bool connectFailed = false;
    if (FetchDeviceList(Settings().connectTimeoutMs, &records, &connectFailed) != kOk) {
      return kOk;
    }
    for (const frames::DeviceRecord& record : records) {
      out.push_back(std::make_unique<BthDevice>(record));
    }
    return kOk;
  }

  // BthConnectByName: a service that does not answer within the presence test gives NTE_FAIL;
  // a name that is not listed NTE_NOT_FOUND.
  Status ConnectByName(ProviderContext& ctx, const std::string& name) override {
    std::vector<frames::DeviceRecord> records;
    bool connectFailed = false;
    Status status = FetchDeviceList(Settings().presenceTimeoutMs, &records, &connectFailed);
    if (connectFailed) return provider::kNteFail;
    if (status != kOk) return status;
    for (const frames::DeviceRecord& record : records) {
      if (record.name != name) continue;
      ctx.device = std::make_unique<BthDevice>(record);
      ctx.device->owner = &ctx;
      return kOk;
    }
    return provider::kNteNotFound;
  }

  Status DeviceCommand(ProviderContext& ctx) override {
    BthDevice* device = BthOf(ctx);
    return device != nullptr ? SendDeviceNotice(device->Name()) : provider::kNteFail;
  }

  Status ApplyModeToken(ProviderContext& ctx, const uint8_t* token) override {
    BthDevice* device = BthOf(ctx);
    bool flag = false;
    if (device == nullptr || !frames::ReadModeToken(token, GetTickCount64(), &flag)) {
      return provider::kNteBadType;
    }
    if (flag) {
      provider::MarkPinVerified(device->Name().c_str());
      device->MarkAuthenticated();
    } else {
      provider::ForgetPinVerified(device->Name().c_str());
    }
    return kOk;
  }

 protected:
  uint32_t Kind() const override { return provider::BackendBluetoothCard; }
  char* LastDeviceName() const override { return provider::Module().lastSelectedBluetoothCard; }
};

BluetoothBackend g_bluetooth;
provider::CardBackendRegistration g_registration(provider::BackendBluetoothCard, &g_bluetooth);

}  // namespace

}  // namespace nivra::service
