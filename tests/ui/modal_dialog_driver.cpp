#include "modal_dialog_driver.h"

#include <utility>
#include <vector>

namespace nivra::uitest {
namespace {

BOOL CALLBACK CollectWindow(HWND hwnd, LPARAM out) {
  reinterpret_cast<std::vector<HWND>*>(out)->push_back(hwnd);
  return TRUE;
}

}  // namespace

bool WaitUntil(const std::function<bool()>& done, DWORD timeoutMs) {
  for (ULONGLONG deadline = GetTickCount64() + timeoutMs; !done(); Sleep(20))
    if (GetTickCount64() >= deadline) return false;
  return true;
}

ModalDialogRun::ModalDialogRun(std::function<INT_PTR()> body) {
  worker_ = std::thread([this, body = std::move(body)] {
    threadId_ = GetCurrentThreadId();
    result_ = body();
    done_ = true;
  });
  while (threadId_.load() == 0) Sleep(1);
}

ModalDialogRun::~ModalDialogRun() {
  while (!done_.load()) {
    std::vector<HWND> windows;
    EnumThreadWindows(threadId_.load(), &CollectWindow, reinterpret_cast<LPARAM>(&windows));
    for (HWND hwnd : windows) PostMessageW(hwnd, WM_COMMAND, MAKEWPARAM(IDCANCEL, BN_CLICKED), 0);
    Sleep(50);
  }
  worker_.join();
}

HWND ModalDialogRun::WaitForDialog(const wchar_t* title, HWND except, DWORD timeoutMs) {
  HWND found = nullptr;
  WaitUntil([&] {
    while ((found = FindWindowExW(nullptr, found, L"#32770", title)) != nullptr) {
      if (found != except && GetWindowThreadProcessId(found, nullptr) == threadId_.load() &&
          IsWindowVisible(found))
        return true;
    }
    return false;
  }, timeoutMs);
  return found;
}

INT_PTR ModalDialogRun::Result(DWORD timeoutMs) {
  return WaitUntil([this] { return done_.load(); }, timeoutMs) ? result_.load() : kStillOpen;
}

std::wstring WindowText(HWND hwnd) {
  wchar_t buffer[512] = {};
  GetWindowTextW(hwnd, buffer, static_cast<int>(sizeof(buffer) / sizeof(buffer[0])));
  return buffer;
}

void PressButton(HWND dialog, int id) {
  PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(id, BN_CLICKED),
               reinterpret_cast<LPARAM>(GetDlgItem(dialog, id)));
}

}  // namespace nivra::uitest
