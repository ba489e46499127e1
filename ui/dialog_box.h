// The base of the provider's modal dialogs: runs a dialog template of the provider's module on
// the calling thread and routes its messages. OK goes to OnOK; Cancel (Escape, the close box,
// WM_CLOSE) ends the dialog with IDCANCEL; an allocation failure inside a handler goes to
// OnOutOfMemory, since nothing may unwind into the window manager's dispatch loop.
#pragma once
#include <windows.h>

namespace nivra::ui {

class ModalDialog {
 public:
  ModalDialog(const ModalDialog&) = delete;
  ModalDialog& operator=(const ModalDialog&) = delete;

 protected:
  // parent: the owner window, used while it is still a window; nullptr for none.
  explicit ModalDialog(HWND parent) : parent_(parent) {}
  virtual ~ModalDialog() = default;

  // DialogBoxParamW on template `resource`: the dialog's result, or -1 when it could not be
  // created.
  INT_PTR RunModal(int resource);

  virtual BOOL OnInitDialog() = 0;
  virtual void OnOK() = 0;
  virtual void OnDestroy() {}
  virtual void OnOutOfMemory() = 0;
  // Messages other than the ones above; FALSE lets the dialog manager handle them.
  virtual INT_PTR OnOtherMessage(UINT message, WPARAM wParam, LPARAM lParam) { return FALSE; }

  HWND parent_;
  HWND hwnd_ = nullptr;  // while the dialog runs

 private:
  static INT_PTR CALLBACK DialogProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
  INT_PTR HandleMessage(UINT message, WPARAM wParam, LPARAM lParam);
};

}  // namespace nivra::ui
