// The native PKCS#11 module whose slots the service publishes, loaded with dlopen.
#pragma once
#include <p11-kit/pkcs11.h>

#include <string>

namespace nivra::cardservice {

// Debian's SoftHSM2 module, served when no other module is named.
inline constexpr const char kDefaultModulePath[] = "/usr/lib/softhsm/libsofthsm2.so";

class Pkcs11Module {
 public:
  Pkcs11Module() = default;
  // Finalises and unloads the module if Load succeeded.
  ~Pkcs11Module();
  Pkcs11Module(const Pkcs11Module&) = delete;
  Pkcs11Module& operator=(const Pkcs11Module&) = delete;

  // Loads the module at `path`, takes its function list and initialises it for several threads
  // (CKF_OS_LOCKING_OK; a module that answers CKR_CANT_LOCK is initialised once more without
  // arguments, and the service then serialises every call into it). False with a message in
  // `error` when anything fails; nothing stays loaded then.
  bool Load(const std::string& path, std::string* error);

  CK_FUNCTION_LIST* functions() const { return functions_; }
  // True when the module cannot lock for itself.
  bool needsSerialising() const { return needsSerialising_; }

 private:
  void* library_ = nullptr;
  CK_FUNCTION_LIST* functions_ = nullptr;
  bool needsSerialising_ = false;
};

}  // namespace nivra::cardservice
