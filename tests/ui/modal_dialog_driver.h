// Drives a modal dialog from the test thread while a worker thread sits in DoModal, as a user
// would: find the window by its title, fill fields, press buttons, read what is shown.
// Windows are matched only when they belong to the worker thread, so test processes running
// side by side on one display never touch each other's dialogs.
#pragma once
#include <windows.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace nivra::uitest {

class ModalDialogRun {
 public:
  // Starts body (which runs a modal dialog and returns its result) on a new thread.
  explicit ModalDialogRun(std::function<INT_PTR()> body);
  // If the dialog is still open, cancels every window of the worker thread, then joins it.
  ~ModalDialogRun();

  // Polls up to timeoutMs for a top-level dialog window of the worker thread titled title
  // (FindWindowExW on class "#32770"), skipping except. nullptr when none appeared.
  HWND WaitForDialog(const wchar_t* title, HWND except = nullptr, DWORD timeoutMs = 10000);

  // What body returned, or kStillOpen when it has not returned within timeoutMs.
  static constexpr INT_PTR kStillOpen = -2;
  INT_PTR Result(DWORD timeoutMs = 10000);
  // The same as Result: true and *result set when body returned within timeoutMs.
  bool Finished(INT_PTR* result, DWORD timeoutMs = 10000) {
    *result = Result(timeoutMs);
    return *result != kStillOpen;
  }

  DWORD threadId() const { return threadId_.load(); }

 private:
  std::thread worker_;
  std::atomic<DWORD> threadId_{0};
  std::atomic<bool> done_{false};
  std::atomic<INT_PTR> result_{0};
};

// Window text of hwnd (any thread's window).
std::wstring WindowText(HWND hwnd);

// Polls done() every 20 ms for up to timeoutMs; its last answer.
bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs = 10000);

// Presses a dialog button the way a click does: WM_COMMAND with the button's id.
void PressButton(HWND dialog, int id);

}  // namespace nivra::uitest
