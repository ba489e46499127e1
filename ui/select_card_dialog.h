// CSelectCard: the modal dialog in which the user picks the card for a new context when several
// could serve it. It lists every reachable card with what it holds of the requested container,
// enables OK only for rows that suit the operation, follows token insertion and removal while it
// is open, and hands the chosen row's device back.
#pragma once
#include <windows.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "provider/card_backend.h"
#include "ui/dialog_box.h"

namespace nivra::ui {

// What the user picks a card for.
enum SelectOperation : uint32_t {
  kSelectCreate = 1,
  kSelectDelete = 2,
  kSelectOpen = 3,
};

// One list row, owned by the dialog.
struct SelectCardRow {
  uint32_t kind;  // provider::BackendKind
  // The dialog's copy of the device; for kind 1 it refers to the live slot record.
  std::unique_ptr<provider::CardDevice> device;
  bool present;         // the presence last shown (kind 1 follows the live slot record)
  bool containerFound;  // the card holds the container
};

// The devices of one kind, in the order their rows appear.
struct SelectCardSource {
  uint32_t kind;
  const provider::CardDeviceList* devices;  // may be null
};

class CSelectCard : public ModalDialog {
 public:
  // containerName: UTF-8, empty for the default container. sources: listed in the given order
  // (Bluetooth cards, service cards, then token slots). parent: the owner window or nullptr.
  CSelectCard(uint32_t operation, std::string containerName, std::vector<SelectCardSource> sources,
              HWND parent = nullptr);

  // Shows the texts of this language identifier instead of the system default's.
  void UseLanguage(uint16_t langId);

  // IDOK: resultKind and result hold the chosen row's device. Anything else: nothing was chosen;
  // error is NTE_NO_MEMORY when listing ran out of memory, otherwise 0. -1: the dialog could not
  // be created.
  INT_PTR DoModal();

  uint32_t resultKind = provider::BackendNone;
  std::unique_ptr<provider::CardDevice> result;
  uint32_t resultRow = 0;  // 1-based position of the chosen row
  provider::Status error = provider::kOk;

 private:
  // Listing ran out of memory: records NTE_NO_MEMORY and closes.
  void OnOutOfMemory() override;
  INT_PTR OnOtherMessage(UINT message, WPARAM wParam, LPARAM lParam) override;
  BOOL OnInitDialog() override;
  void AddColumns();
  void AddRows();
  bool SetPrompt();
  void OnSelectionChange();
  void OnTimer();
  void OnOK() override;
  void OnDestroy() override;
  std::wstring Remark(SelectCardRow& row);
  bool RowSuits(const SelectCardRow& row) const;
  int SelectedRow() const;
  const wchar_t* Text(uint32_t number) const;

  uint32_t operation_;
  std::string containerName_;
  std::vector<SelectCardSource> sources_;
  std::vector<SelectCardRow> rows_;
  HWND list_ = nullptr;
  uint16_t langId_;
};

}  // namespace nivra::ui
