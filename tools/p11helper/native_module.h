#pragma once
// The native PKCS#11 module that the helper serves, loaded with dlopen the way the card service
// loads its module.
#include "cardservice/pkcs11_module.h"

namespace nivra::p11helper {

// Debian's SoftHSM2 module, served when no other module is named.
using cardservice::kDefaultModulePath;
using NativeModule = cardservice::Pkcs11Module;

}  // namespace nivra::p11helper
