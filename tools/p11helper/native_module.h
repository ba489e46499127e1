#pragma once
// The native PKCS#11 module that the helper serves, loaded with dlopen.
#include <string>

#include "tools/p11wire/pkcs11_abi.h"

namespace nivra::p11helper {

// Debian's SoftHSM2 module, served when no other module is named.
inline constexpr const char kDefaultModulePath[] = "/usr/lib/softhsm/libsofthsm2.so";

class NativeModule {
 public:
  NativeModule() = default;
  // Finalises and unloads the module if Load succeeded.
  ~NativeModule();
  NativeModule(const NativeModule&) = delete;
  NativeModule& operator=(const NativeModule&) = delete;

  // Loads the module at `path`, takes its function list and initialises it for use from several
  // threads (CKF_OS_LOCKING_OK). On failure returns false with a message in `error` and leaves
  // nothing loaded.
  bool Load(const std::string& path, std::string* error);

  // The module's function list; null before a successful Load.
  CK_FUNCTION_LIST* functions() const { return functions_; }

 private:
  void* library_ = nullptr;
  CK_FUNCTION_LIST* functions_ = nullptr;
};

}  // namespace nivra::p11helper
