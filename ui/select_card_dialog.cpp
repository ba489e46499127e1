#include "ui/select_card_dialog.h"

#include <commctrl.h>

#include <new>
#include <utility>

#include "ui/dialog_box.h"
#include "ui/resource.h"
#include "ui/ui_text.h"

namespace nivra::ui {
namespace {

// The timer that follows token insertion and removal.
constexpr UINT_PTR kPresenceTimer = 1;
constexpr UINT kPresencePeriodMs = 100;

enum Column : int { kColumnIndex = 0, kColumnTarget = 1, kColumnRemark = 2 };

struct ColumnSpec {
  uint32_t text;
  int widthPixels;
};
constexpr ColumnSpec kColumns[] = {
    {kTextColumnIndex, 40}, {kTextColumnTarget, 180}, {kTextColumnRemark, 250}};

// Prompt texts per operation: for the default container, for a named one.
struct PromptSpec {
  uint32_t operation;
  uint32_t defaultText;
  uint32_t namedText;
};
constexpr PromptSpec kPrompts[] = {
    {kSelectCreate, kTextSelectCreateDefault, kTextSelectCreateNamed},
    {kSelectDelete, kTextSelectDeleteDefault, kTextSelectDeleteNamed},
    {kSelectOpen, kTextSelectOpenDefault, kTextSelectOpenNamed},
};

std::wstring Wide(const std::string& utf8) {
  if (utf8.empty()) return std::wstring();
  int length = MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()),
                                   nullptr, 0);
  std::wstring wide(length > 0 ? static_cast<size_t>(length) : 0, L'\0');
  if (length > 0) {
    MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), &wide[0], length);
  }
  return wide;
}

void SetCell(HWND list, int row, int column, const std::wstring& text) {
  LVITEMW item{};
  item.iSubItem = column;
  item.pszText = const_cast<wchar_t*>(text.c_str());
  SendMessageW(list, LVM_SETITEMTEXTW, row, reinterpret_cast<LPARAM>(&item));
}

}  // namespace

CSelectCard::CSelectCard(uint32_t operation, std::string containerName,
                         std::vector<SelectCardSource> sources, HWND parent)
    : ModalDialog(parent),
      operation_(operation),
      containerName_(std::move(containerName)),
      sources_(std::move(sources)),
      langId_(GetSystemDefaultLangID()) {}

void CSelectCard::UseLanguage(uint16_t langId) { langId_ = langId; }

INT_PTR CSelectCard::DoModal() {
  INITCOMMONCONTROLSEX controls{sizeof(controls), ICC_LISTVIEW_CLASSES};
  InitCommonControlsEx(&controls);
  INT_PTR outcome = RunModal(IDD_SELECT_CARD);
  list_ = nullptr;
  return outcome;
}

void CSelectCard::OnOutOfMemory() {
  error = provider::kNteNoMemory;
  PostMessageW(hwnd_, WM_CLOSE, 0, 0);
}

INT_PTR CSelectCard::OnOtherMessage(UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
    case WM_NOTIFY: {
      const auto* header = reinterpret_cast<const NMHDR*>(lParam);
      if (header->idFrom == IDC_SELECT_CARD_LIST && header->code == LVN_ITEMCHANGED) {
        const auto* change = reinterpret_cast<const NMLISTVIEW*>(lParam);
        if (change->uChanged & LVIF_STATE) OnSelectionChange();
      }
      return FALSE;
    }
    case WM_TIMER:
      if (wParam == kPresenceTimer) OnTimer();
      return TRUE;
  }
  return FALSE;
}

const wchar_t* CSelectCard::Text(uint32_t number) const { return UiTextForLangId(langId_, number); }

BOOL CSelectCard::OnInitDialog() {
  list_ = GetDlgItem(hwnd_, IDC_SELECT_CARD_LIST);
  SendMessageW(list_, LVM_SETEXTENDEDLISTVIEWSTYLE, 0, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
  AddColumns();
  try {
    AddRows();
  } catch (const std::bad_alloc&) {
    OnOutOfMemory();
    return TRUE;
  }
  if (!SetPrompt()) {
    PostMessageW(hwnd_, WM_CLOSE, 0, 0);
    return TRUE;
  }
  SetTimer(hwnd_, kPresenceTimer, kPresencePeriodMs, nullptr);
  SetFocus(list_);
  return FALSE;  // the focus was set explicitly
}

void CSelectCard::AddColumns() {
  int position = 0;
  for (const ColumnSpec& entry : kColumns) {
    LVCOLUMNW column{};
    column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_SUBITEM;
    column.cx = entry.widthPixels;
    column.pszText = const_cast<wchar_t*>(Text(entry.text));
    column.iSubItem = position;
    SendMessageW(list_, LVM_INSERTCOLUMNW, position++, reinterpret_cast<LPARAM>(&column));
  }
}

void CSelectCard::AddRows() {
  for (const SelectCardSource& source : sources_) {
    if (source.devices == nullptr) continue;
    for (const auto& device : *source.devices) {
      SelectCardRow row{source.kind, device->Clone(), device->Present(), false};
      rows_.push_back(std::move(row));
      SelectCardRow& added = rows_.back();
      const int position = static_cast<int>(rows_.size()) - 1;
      std::wstring index = std::to_wstring(position + 1);
      LVITEMW item{};
      item.mask = LVIF_TEXT;
      item.iItem = position;
      item.pszText = &index[0];
      SendMessageW(list_, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item));
      SetCell(list_, position, kColumnTarget, Wide(added.device->Name()));
      SetCell(list_, position, kColumnRemark, Remark(added));
    }
  }
}

bool CSelectCard::SetPrompt() {
  for (const PromptSpec& entry : kPrompts) {
    if (entry.operation != operation_) continue;
    std::wstring prompt = containerName_.empty()
                              ? std::wstring(Text(entry.defaultText))
                              : FormatUiString(Text(entry.namedText), Wide(containerName_));
    SetDlgItemTextW(hwnd_, IDC_SELECT_CARD_PROMPT, prompt.c_str());
    return true;
  }
  return false;
}

std::wstring CSelectCard::Remark(SelectCardRow& row) {
  row.containerFound = false;
  if (row.kind == provider::BackendTokenSlot && !row.present) return Text(kTextUnknownCard);
  std::string name = containerName_;
  provider::Status status = row.device->ProbeContainer(&name);
  if (status != provider::kOk) {
    // A card that could not be asked counts as one without the container.
    if (status != provider::kNteBadKeyset || containerName_.empty()) {
      return Text(kTextNoDefaultContainer);
    }
    return FormatUiString(Text(kTextNoContainer), Wide(containerName_));
  }
  row.containerFound = true;
  if (containerName_.empty()) return FormatUiString(Text(kTextHasDefaultContainer), Wide(name));
  return FormatUiString(Text(kTextHasContainer), Wide(containerName_));
}

bool CSelectCard::RowSuits(const SelectCardRow& row) const {
  if (row.kind == provider::BackendTokenSlot && !row.present) return false;
  return operation_ == kSelectCreate ? !row.containerFound : row.containerFound;
}

int CSelectCard::SelectedRow() const {
  auto selected = static_cast<int>(SendMessageW(list_, LVM_GETNEXTITEM, -1, LVNI_SELECTED));
  return selected >= 0 && static_cast<size_t>(selected) < rows_.size() ? selected : -1;
}

void CSelectCard::OnSelectionChange() {
  int selected = SelectedRow();
  if (selected < 0) return;
  EnableWindow(GetDlgItem(hwnd_, IDOK), RowSuits(rows_[selected]) ? TRUE : FALSE);
}

void CSelectCard::OnTimer() {
  for (size_t i = 0; i < rows_.size(); ++i) {
    SelectCardRow& row = rows_[i];
    if (row.kind != provider::BackendTokenSlot) continue;
    const bool present = row.device->Present();
    if (present == row.present) continue;
    row.present = present;
    SetCell(list_, static_cast<int>(i), kColumnRemark, Remark(row));
  }
}

void CSelectCard::OnOK() {
  // Enter reaches here even while the button is disabled.
  if (!IsWindowEnabled(GetDlgItem(hwnd_, IDOK))) return;
  int selected = SelectedRow();
  if (selected < 0) return;
  SelectCardRow& row = rows_[selected];
  resultKind = row.kind;
  resultRow = static_cast<uint32_t>(selected) + 1;
  result = std::move(row.device);  // handed over: closing the dialog does not release it
  EndDialog(hwnd_, IDOK);
}

void CSelectCard::OnDestroy() {
  KillTimer(hwnd_, kPresenceTimer);
  rows_.clear();
}

}  // namespace nivra::ui
