#include "ui/verify_pin_dialog.h"

#include "ui/dialog_box.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::ui {
namespace {

constexpr size_t kMinPinChars = 2;

void Wipe(std::wstring& text) {
  if (!text.empty()) SecureZeroMemory(&text[0], text.size() * sizeof(wchar_t));
  text.clear();
}

std::wstring ControlText(HWND control) {
  std::wstring text(static_cast<size_t>(GetWindowTextLengthW(control)) + 1, L'\0');
  int length = GetWindowTextW(control, &text[0], static_cast<int>(text.size()));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

}  // namespace

CVerifyPIN::CVerifyPIN(uint32_t retries, HWND parent)
    : ModalDialog(parent), retries(retries), langId_(GetSystemDefaultLangID()) {}

CVerifyPIN::~CVerifyPIN() { Wipe(pin); }

void CVerifyPIN::UseLanguage(uint16_t langId) { langId_ = langId; }

INT_PTR CVerifyPIN::DoModal() { return RunModal(IDD_VERIFY_PIN); }

void CVerifyPIN::OnOutOfMemory() { EndDialog(hwnd_, -1); }

const wchar_t* CVerifyPIN::Text(uint32_t number) const { return UiTextForLangId(langId_, number); }

bool CVerifyPIN::UpdateData(bool save) { return DoDataExchange(save); }

bool CVerifyPIN::DoDataExchange(bool save) {
  HWND edit = GetDlgItem(hwnd_, IDC_VERIFY_PIN_EDIT);
  HWND retriesLine = GetDlgItem(hwnd_, IDC_VERIFY_PIN_RETRIES);
  if (!save) {
    SetWindowTextW(edit, pin.c_str());
    SendMessageW(edit, EM_LIMITTEXT, VERIFY_PIN_MAX_CHARS, 0);
    SetWindowTextW(retriesLine, retriesText.c_str());
    return true;
  }
  std::wstring typed = ControlText(edit);
  if (typed.size() > VERIFY_PIN_MAX_CHARS) {
    Wipe(typed);
    MessageBeep(MB_ICONEXCLAMATION);
    SetFocus(edit);
    SendMessageW(edit, EM_SETSEL, 0, -1);
    return false;
  }
  Wipe(pin);
  pin.swap(typed);
  retriesText = ControlText(retriesLine);
  return true;
}

BOOL CVerifyPIN::OnInitDialog() {
  UpdateData(false);
  SetFocus(GetDlgItem(hwnd_, IDC_VERIFY_PIN_EDIT));
  SetWindowTextW(hwnd_, Text(kTextPinTitle));
  SetDlgItemTextW(hwnd_, IDC_VERIFY_PIN_LABEL, Text(kTextPinLabel));
  SetDlgItemTextW(hwnd_, IDOK, Text(kTextOk));
  retriesText = retries == 0 ? std::wstring() : FormatUiNumber(Text(kTextRetriesLeft), retries);
  UpdateData(false);
  return FALSE;  // the focus was set explicitly
}

void CVerifyPIN::OnOK() {
  if (!UpdateData(true)) return;
  if (pin.size() >= kMinPinChars) {
    EndDialog(hwnd_, IDOK);
    return;
  }
  MessageBoxW(hwnd_, Text(kTextPinTooShort), Text(kTextPinTitle), MB_OK);
}

void CVerifyPIN::OnDestroy() {
  // The edit control's buffer is freed with the window; clear it first so the PIN does not
  // linger in released heap memory.
  SetDlgItemTextW(hwnd_, IDC_VERIFY_PIN_EDIT, L"");
}

}  // namespace nivra::ui
