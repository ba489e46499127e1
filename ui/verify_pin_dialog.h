// CVerifyPIN: the modal dialog that asks the user for a card's PIN when a private-key operation
// needs one and the application supplied none. It shows the remaining retries when the caller
// knows them and accepts 2 to 8 characters.
#pragma once
#include <windows.h>

#include <cstdint>
#include <string>

#include "ui/dialog_box.h"

namespace nivra::ui {

class CVerifyPIN : public ModalDialog {
 public:
  // retries: count shown in the retries line, 0 when unknown (the line stays empty).
  // parent: the window that owns the dialog (the provider context's client window), or nullptr.
  // The dialog's language is the system default language (GetSystemDefaultLangID()).
  explicit CVerifyPIN(uint32_t retries = 0, HWND parent = nullptr);
  // Wipes the PIN from memory.
  ~CVerifyPIN() override;

  // Chooses the language identifier whose texts the dialog shows instead of the system default
  // (1028 Traditional Chinese, 2052 Simplified Chinese, anything else English).
  void UseLanguage(uint16_t langId);

  // Runs the dialog on the calling thread until the user closes it. IDOK: pin holds what the
  // user typed (2 to 8 characters). IDCANCEL: the user pressed Escape or closed the window.
  // -1: the dialog could not be created (GetLastError tells why).
  INT_PTR DoModal();

  // Bound to the PIN field (at most VERIFY_PIN_MAX_CHARS characters).
  std::wstring pin;
  // Bound to the retries line; set from retries when the dialog starts.
  std::wstring retriesText;
  // Set by the caller before DoModal; 0 means unknown.
  uint32_t retries;

 private:
  void OnOutOfMemory() override;

  // Moves the members into the controls (save false) or the controls into the members (save
  // true). Saving fails, with the PIN field focused and selected, when the field holds more than
  // VERIFY_PIN_MAX_CHARS characters (possible only by setting its text programmatically).
  bool UpdateData(bool save);
  bool DoDataExchange(bool save);
  BOOL OnInitDialog() override;
  void OnOK() override;
  void OnDestroy() override;
  const wchar_t* Text(uint32_t number) const;

  uint16_t langId_;
};

}  // namespace nivra::ui
