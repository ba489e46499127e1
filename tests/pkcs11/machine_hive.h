// A machine registry of this test process's own. HKEY_LOCAL_MACHINE is redirected
// (RegOverridePredefKey) to a key under HKEY_CURRENT_USER while the hive is active, so a test can
// set the provider's module path and register providers without touching the machine keys that
// other test processes of the same Wine prefix read at the same time.
#pragma once
#include <windows.h>

#include <string>

namespace nivra::p11test {

class PrivateMachineHive {
 public:
  // Creates the private hive and copies the registrations of Wine's own software providers into
  // it (the provider opens one for every context). Not active yet.
  PrivateMachineHive();
  // Deactivates and deletes the private hive.
  ~PrivateMachineHive();
  PrivateMachineHive(const PrivateMachineHive&) = delete;
  PrivateMachineHive& operator=(const PrivateMachineHive&) = delete;

  // "LibPkcs11" under "SOFTWARE\\NivraCSP"; RemoveModulePath deletes the value.
  void SetModulePath(const std::wstring& path);
  void RemoveModulePath();
  // A CryptoAPI provider registration: "Image Path", "Type" 1, "SigInFile" 0.
  void RegisterProvider(const std::wstring& name, const std::wstring& imagePath);

  void Activate();
  void Deactivate();

 private:
  HKEY root_ = nullptr;
  std::wstring rootPath_;
  bool active_ = false;
};

// Directory of the running test program, with a trailing backslash.
std::wstring ProgramDirectory();

}  // namespace nivra::p11test
