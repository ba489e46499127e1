// Back-end kind 2: service cards that the card service lists (0x4001), each reached on its own
// address.
#include <memory>

#include "provider/module_state.h"
#include "service/device_lists.h"
#include "service/service_card.h"
#include "service/service_settings.h"

namespace nivra::service {

namespace {

using provider::kOk;

class ServiceCardBackend : public ServiceDeviceBackend {
 public:
  // SvcEnumCards: a list that cannot be had offers no cards.
  Status EnumDevices(ProviderContext&, provider::CardDeviceList& out) override {
    std::vector<frames::CardRecord> records;
    bool connectFailed = false;
    if (FetchCardList(Settings().connectTimeoutMs, &records, &connectFailed) != kOk) return kOk;
    for (const frames::CardRecord& record : records) {
      out.push_back(std::make_unique<SvcDevice>(record));
    }
    return kOk;
  }

  // SvcConnectByName: NTE_FAIL when the service does not answer the presence test,
  // NTE_NOT_FOUND for a name that is not listed.
  Status ConnectByName(ProviderContext& ctx, const std::string& name) override {
    std::vector<frames::CardRecord> records;
    bool connectFailed = false;
    Status status = FetchCardList(Settings().presenceTimeoutMs, &records, &connectFailed);
    if (connectFailed) return provider::kNteFail;
    if (status != kOk) return status;
    for (const frames::CardRecord& record : records) {
      if (record.name != name) continue;
      ctx.device = std::make_unique<SvcDevice>(record);
      ctx.device->owner = &ctx;
      return kOk;
    }
    return provider::kNteNotFound;
  }

 protected:
  uint32_t Kind() const override { return provider::BackendServiceCard; }
  char* LastDeviceName() const override { return provider::Module().lastSelectedServiceCard; }
};

ServiceCardBackend g_serviceCards;
provider::CardBackendRegistration g_registration(provider::BackendServiceCard, &g_serviceCards);

}  // namespace

}  // namespace nivra::service
