// pin-dialog-shot [--dialog=pin|select] [--retries=N] [--langid=N] [--hold-ms=N]
// Opens the PIN dialog (in the system default language unless --langid is given) and types a
// sample PIN into it, or the card selection dialog for opening container "A" with a sample row
// of every kind (a Bluetooth device holding A, a service card without it, then three token slots:
// one holding A, one without it, one without its token) and the first one selected;
// prints "ready WxH+X+Y" (the dialog's frame on the screen) once it is shown, keeps it open for
// --hold-ms milliseconds (default 4000) and then cancels it. Exit status 0 when the dialog
// appeared and closed.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <commctrl.h>

#include <memory>
#include <string>
#include <thread>

#include "ui/resource.h"
#include "ui/select_card_dialog.h"
#include "ui/verify_pin_dialog.h"

namespace {

constexpr char kSampleContainer[] = "A";

struct Options {
  bool select = false;
  uint32_t retries = 3;
  uint16_t langId = 0;
  DWORD holdMs = 4000;
};

bool Flag(const char* arg, const char* name, unsigned long* value) {
  size_t length = strlen(name);
  if (strncmp(arg, name, length) != 0) return false;
  *value = strtoul(arg + length, nullptr, 10);
  return true;
}

BOOL CALLBACK FindVisibleDialog(HWND hwnd, LPARAM out) {
  wchar_t className[16] = {};
  GetClassNameW(hwnd, className, 16);
  if (wcscmp(className, L"#32770") != 0 || !IsWindowVisible(hwnd)) return TRUE;
  *reinterpret_cast<HWND*>(out) = hwnd;
  return FALSE;
}

// A card of any kind as the selection dialog sees it.
class SampleCard : public nivra::provider::CardDevice {
 public:
  SampleCard(std::string name, bool present, bool holdsSample)
      : name_(std::move(name)), present_(present), holdsSample_(holdsSample) {}
  std::unique_ptr<CardDevice> Clone() const override {
    return std::make_unique<SampleCard>(name_, present_, holdsSample_);
  }
  std::string Name() const override { return name_; }
  bool Present() const override { return present_; }
  nivra::provider::Status ProbeContainer(std::string*) override {
    return holdsSample_ ? nivra::provider::kOk : nivra::provider::kNteBadKeyset;
  }

 private:
  std::string name_;
  bool present_;
  bool holdsSample_;
};

// Waits for the dialog of thread threadId, fills it in, announces it and closes it later.
void Present(DWORD threadId, DWORD holdMs, bool select) {
  HWND dialog = nullptr;
  for (int i = 0; i < 500 && !dialog; ++i) {
    EnumThreadWindows(threadId, &FindVisibleDialog, reinterpret_cast<LPARAM>(&dialog));
    if (!dialog) Sleep(20);
  }
  if (!dialog) return;
  if (select) {
    LVITEMW state{};
    state.stateMask = state.state = LVIS_SELECTED | LVIS_FOCUSED;
    SendDlgItemMessageW(dialog, IDC_SELECT_CARD_LIST, LVM_SETITEMSTATE, 0,
                        reinterpret_cast<LPARAM>(&state));
  } else {
    SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, L"1234");
    SendDlgItemMessageW(dialog, IDC_VERIFY_PIN_EDIT, EM_SETSEL, 4, 4);  // caret as after typing
  }
  RECT frame;
  GetWindowRect(dialog, &frame);
  printf("ready %ldx%ld+%ld+%ld\n", frame.right - frame.left, frame.bottom - frame.top, frame.left,
         frame.top);
  fflush(stdout);
  Sleep(holdMs);
  PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    unsigned long value = 0;
    if (strcmp(argv[i], "--dialog=select") == 0 || strcmp(argv[i], "--dialog=pin") == 0) {
      options.select = strcmp(argv[i], "--dialog=select") == 0;
    } else if (Flag(argv[i], "--retries=", &value)) {
      options.retries = static_cast<uint32_t>(value);
    } else if (Flag(argv[i], "--langid=", &value)) {
      options.langId = static_cast<uint16_t>(value);
    } else if (Flag(argv[i], "--hold-ms=", &value)) {
      options.holdMs = static_cast<DWORD>(value);
    } else {
      fprintf(stderr,
              "usage: pin-dialog-shot [--dialog=pin|select] [--retries=N] [--langid=N] "
              "[--hold-ms=N]\n");
      return 2;
    }
  }
  std::thread presenter(Present, GetCurrentThreadId(), options.holdMs, options.select);
  INT_PTR result = 0;
  if (options.select) {
    nivra::provider::CardDeviceList devices, cards, slots;
    devices.push_back(std::make_unique<SampleCard>("phone-a", true, true));
    cards.push_back(std::make_unique<SampleCard>("desk-a", true, false));
    slots.push_back(std::make_unique<SampleCard>("SoftHSM slot ID 0x1a2b3c4d", true, true));
    slots.push_back(std::make_unique<SampleCard>("SoftHSM slot ID 0x5e6f7081", true, false));
    slots.push_back(std::make_unique<SampleCard>("Nivra test slot 0x2", false, false));
    nivra::ui::CSelectCard dialog(nivra::ui::kSelectOpen, kSampleContainer,
                                  {{nivra::provider::BackendBluetoothCard, &devices},
                                   {nivra::provider::BackendServiceCard, &cards},
                                   {nivra::provider::BackendTokenSlot, &slots}});
    if (options.langId != 0) dialog.UseLanguage(options.langId);
    result = dialog.DoModal();
  } else {
    nivra::ui::CVerifyPIN dialog(options.retries);
    if (options.langId != 0) dialog.UseLanguage(options.langId);
    result = dialog.DoModal();
  }
  presenter.join();
  return result == IDCANCEL ? 0 : 1;
}
