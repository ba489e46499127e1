// pin-dialog-shot [--retries=N] [--langid=N] [--hold-ms=N]
// Opens the PIN dialog (in the system default language unless --langid is given), types a sample
// PIN into it, prints "ready WxH+X+Y" (the dialog's frame on the screen) once it is shown, keeps
// it open for --hold-ms milliseconds (default 4000) and then cancels it. Exit status 0 when the
// dialog appeared and closed.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <thread>

#include "ui/resource.h"
#include "ui/verify_pin_dialog.h"

namespace {

struct Options {
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

// Waits for the dialog of thread threadId, fills it in, announces it and closes it later.
void Present(DWORD threadId, DWORD holdMs) {
  HWND dialog = nullptr;
  for (int i = 0; i < 500 && !dialog; ++i) {
    EnumThreadWindows(threadId, &FindVisibleDialog, reinterpret_cast<LPARAM>(&dialog));
    if (!dialog) Sleep(20);
  }
  if (!dialog) return;
  SetDlgItemTextW(dialog, IDC_VERIFY_PIN_EDIT, L"1234");
  SendDlgItemMessageW(dialog, IDC_VERIFY_PIN_EDIT, EM_SETSEL, 4, 4);  // caret as after typing
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
    if (Flag(argv[i], "--retries=", &value)) {
      options.retries = static_cast<uint32_t>(value);
    } else if (Flag(argv[i], "--langid=", &value)) {
      options.langId = static_cast<uint16_t>(value);
    } else if (Flag(argv[i], "--hold-ms=", &value)) {
      options.holdMs = static_cast<DWORD>(value);
    } else {
      fprintf(stderr, "usage: pin-dialog-shot [--retries=N] [--langid=N] [--hold-ms=N]\n");
      return 2;
    }
  }
  nivra::ui::CVerifyPIN dialog(options.retries);
  if (options.langId != 0) dialog.UseLanguage(options.langId);
  std::thread presenter(Present, GetCurrentThreadId(), options.holdMs);
  INT_PTR result = dialog.DoModal();
  presenter.join();
  return result == IDCANCEL ? 0 : 1;
}
