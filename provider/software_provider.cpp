#include "provider/software_provider.h"

namespace nivra::provider {

HCRYPTPROV OpenSoftwareProvider() {
  HCRYPTPROV prov = 0;
  if (CryptAcquireContextW(&prov, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, 0)) return prov;
  prov = 0;
  if (CryptAcquireContextW(&prov, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL, CRYPT_NEWKEYSET)) {
    return prov;
  }
  return 0;
}

}  // namespace nivra::provider
