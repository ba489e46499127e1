#include "service/service_settings.h"

namespace nivra::service {

namespace {
ServiceSettings& Current() {
  static ServiceSettings settings;
  return settings;
}
}  // namespace

const ServiceSettings& Settings() { return Current(); }

void ServiceSettingsOverride(const ServiceSettings& settings) { Current() = settings; }

}  // namespace nivra::service
