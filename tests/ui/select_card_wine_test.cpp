// The card selection dialog of an interactive acquire, driven as a user would under an X server,
// with two SoftHSM2 tokens behind the forwarding module: what each row says of the container,
// which rows let OK through per operation, the card the choice binds, the application's window
// as its owner, cancelling, the keyboard, and a token taken out while the dialog is open; then
// with the card service's Bluetooth device and service card listed as well.
#include <gtest/gtest.h>
#include <windows.h>
#include <commctrl.h>
#include <wincrypt.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>

#include "expected_ui_texts.h"
#include "modal_dialog_driver.h"
#include "provider/csp_interface.h"
#include "service_person.h"
#include "token_fixture.h"

namespace nivra::p11test {
namespace {

using servicetest::Person;
using uitest::ExpectedUiText;
using uitest::ModalDialogRun;

constexpr wchar_t kDialogTitle[] = L"Select CSP";
constexpr DWORD kSlotIdParam = 0x80000001;
constexpr DWORD kPromptPinParam = 0x80000002;
constexpr DWORD kDeviceCommandParam = 22206;
// The token slot monitor's poll plus the dialog's 100 ms timer, with room for a loaded machine.
constexpr DWORD kRemarkDeadlineMs = 3000;
// Before the dialog shows, every row's card is asked for the container, some over new connections.
constexpr DWORD kDialogDeadlineMs = 30000;
constexpr char kServiceFixture[] = NIVRA_SELECT_SERVICE_UNIX;

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

// Text `number` in the system language, `name` in place of its placeholder if it has one.
std::wstring Text(uint32_t number, const std::string& name = "") {
  std::wstring text = ExpectedUiText(GetSystemDefaultLangID(), number);
  const size_t at = text.find(L"%s");
  return at == std::wstring::npos ? text : text.replace(at, 2, Wide(name));
}

std::wstring Cell(HWND list, int row, int column) {
  wchar_t buffer[512] = {};
  LVITEMW item{};
  item.iSubItem = column;
  item.pszText = buffer;
  item.cchTextMax = 512;
  SendMessageW(list, LVM_GETITEMTEXTW, row, reinterpret_cast<LPARAM>(&item));
  return buffer;
}

std::atomic<HWND> g_applicationWindow{nullptr};
void WINAPI ReturnApplicationWindow(HWND* window) { *window = g_applicationWindow.load(); }

class SelectCardTest : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    ASSERT_NO_FATAL_FAILURE(StartProvider());
    secondSlotName = SlotOfToken("nivra-fwd-2");
    ASSERT_FALSE(secondSlotName.empty()) << "the second token is not listed";
  }

  // Creates the container on the first token only.
  void ContainerOnFirstToken(const std::string& name) {
    LogIn();
    FreshContainer(name);
    ASSERT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET), 0u);
  }

  // Starts an acquire without a reader prefix on a worker thread, as an application with a window
  // of its own does (made on the acquiring thread, handed out by the loader's FuncReturnhWnd), and
  // waits for the dialog: that window owns it and is disabled while it runs.
  void OpenDialog(const std::string& container, DWORD flags) {
    run = std::make_unique<ModalDialogRun>([this, container, flags]() -> INT_PTR {
      g_applicationWindow = CreateWindowExW(0, L"STATIC", L"application",
                                            WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0, 200, 100,
                                            nullptr, nullptr, nullptr, nullptr);
      provider::VTableProvStruc table{3, nullptr,
                                      reinterpret_cast<FARPROC>(&ReturnApplicationWindow),
                                      PROV_RSA_FULL, nullptr, 0, nullptr};
      std::string name = container;
      HCRYPTPROV handle = 0;
      BOOL ok = entries.AcquireContext(&handle, name.empty() ? nullptr : name.data(), flags,
                                       &table);
      const DWORD error = ok ? 0 : GetLastError();
      DestroyWindow(g_applicationWindow.load());
      chosen = handle;
      return static_cast<INT_PTR>(error);
    });
    dialog = run->WaitForDialog(kDialogTitle, nullptr, kDialogDeadlineMs);
    ASSERT_NE(dialog, nullptr) << "no selection dialog";
    EXPECT_EQ(GetWindow(dialog, GW_OWNER), g_applicationWindow.load());
    EXPECT_FALSE(IsWindowEnabled(g_applicationWindow.load()));
    list = GetDlgItem(dialog, 5004);
  }

  // The row whose target is the slot name; -1 when none.
  int RowOf(const std::string& slot) {
    int count = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    for (int row = 0; row < count; ++row) {
      if (Cell(list, row, 1) == Wide(slot)) return row;
    }
    return -1;
  }

  // Selects the row as a click does; true when OK is then enabled.
  bool SelectAllowsOk(int row) {
    ListView_SetItemState(list, -1, 0, LVIS_SELECTED | LVIS_FOCUSED);
    ListView_SetItemState(list, row, LVIS_SELECTED | LVIS_FOCUSED, LVIS_SELECTED | LVIS_FOCUSED);
    return IsWindowEnabled(GetDlgItem(dialog, IDOK)) != FALSE;
  }

  DWORD Outcome() {
    const INT_PTR result = run->Result(kDialogDeadlineMs);
    EXPECT_NE(result, ModalDialogRun::kStillOpen) << "the acquire did not return";
    if (chosen != 0) exportContexts.push_back(chosen);
    return static_cast<DWORD>(result);
  }

  void Cancel() { PostMessageW(list, WM_KEYDOWN, VK_ESCAPE, 0); }

  std::string secondSlotName;
  std::unique_ptr<ModalDialogRun> run;
  HWND dialog = nullptr;
  HWND list = nullptr;
  HCRYPTPROV chosen = 0;
};

// Per operation: the prompt, each token's remark and whether its row lets OK through. For the
// default container the first token names the container it would open; the empty one has none.
TEST_F(SelectCardTest, RowsDescribeTheContainerAndEnableOkPerOperation) {
  const std::string name = CaseName();
  ASSERT_NO_FATAL_FAILURE(ContainerOnFirstToken(name));
  HCRYPTPROV any = 0;
  ASSERT_EQ(Acquire(OnToken(""), 0, &any), 0u);
  char defaultName[260] = {};
  DWORD length = sizeof(defaultName);
  ASSERT_TRUE(entries.GetProvParam(any, PP_CONTAINER, reinterpret_cast<BYTE*>(defaultName), &length, 0));
  struct Case {
    std::string container;
    DWORD flags;
    uint32_t prompt, firstRemark, secondRemark;
    bool firstAllows, secondAllows;
  };
  for (const Case& c : {Case{name, 0, 36, 22, 24, true, false},
                        Case{name, CRYPT_DELETEKEYSET, 34, 22, 24, true, false},
                        Case{name, CRYPT_NEWKEYSET, 32, 22, 24, false, true},
                        Case{"", CRYPT_NEWKEYSET, 31, 21, 23, false, true}}) {
    SCOPED_TRACE(c.prompt);
    ASSERT_NO_FATAL_FAILURE(OpenDialog(c.container, c.flags));
    EXPECT_EQ(uitest::WindowText(GetDlgItem(dialog, 5003)), Text(c.prompt, c.container));
    const int first = RowOf(slotName);
    const int second = RowOf(secondSlotName);
    ASSERT_GE(first, 0);
    ASSERT_GE(second, 0);
    EXPECT_EQ(Cell(list, first, 0), std::to_wstring(first + 1));
    EXPECT_EQ(Cell(list, first, 2), Text(c.firstRemark, c.container.empty() ? defaultName : name));
    EXPECT_EQ(Cell(list, second, 2), Text(c.secondRemark, c.container));
    EXPECT_FALSE(IsWindowEnabled(GetDlgItem(dialog, IDOK))) << "OK before any selection";
    EXPECT_EQ(SelectAllowsOk(second), c.secondAllows);
    EXPECT_EQ(SelectAllowsOk(first), c.firstAllows);
    if (c.container.empty()) uitest::PressButton(dialog, IDCANCEL);
    else Cancel();
    EXPECT_EQ(Outcome(), static_cast<DWORD>(SCARD_W_CANCELLED_BY_USER));
  }
}

// Arrow keys move the selection, Enter takes the row: the context is then on that token, and
// the PIN prompt parameter answers (it checks its flags instead of refusing the context). A token
// taken out while the dialog is open: its row says so soon after.
TEST_F(SelectCardTest, KeyboardChoiceOpensTheContainerOnThatTokenAndARemovedTokensRowFollows) {
  const std::string name = CaseName();
  ASSERT_NO_FATAL_FAILURE(ContainerOnFirstToken(name));
  ASSERT_NO_FATAL_FAILURE(OpenDialog(name, 0));
  const int first = RowOf(slotName);
  ASSERT_GE(first, 0);
  PostMessageW(list, WM_KEYDOWN, VK_HOME, 0);
  for (int i = 0; i < first; ++i) PostMessageW(list, WM_KEYDOWN, VK_DOWN, 0);
  PostMessageW(list, WM_KEYDOWN, VK_RETURN, 0);
  ASSERT_EQ(Outcome(), 0u);
  ASSERT_NE(chosen, 0u);
  DWORD slot = 0;
  DWORD length = sizeof(slot);
  ASSERT_TRUE(
      entries.GetProvParam(chosen, kSlotIdParam, reinterpret_cast<BYTE*>(&slot), &length, 0));
  EXPECT_EQ(slot, slotId);
  BYTE pin[64];
  length = sizeof(pin);
  EXPECT_FALSE(entries.GetProvParam(chosen, kPromptPinParam, pin, &length, 0));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_FLAGS));
  // Chosen by name, the same token has no dialog value: the parameter refuses the context.
  HCRYPTPROV named = 0;
  ASSERT_EQ(Acquire(OnToken(name), 0, &named), 0u);
  EXPECT_FALSE(entries.GetProvParam(named, kPromptPinParam, pin, &length, AT_SIGNATURE));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_TYPE));

  ASSERT_NO_FATAL_FAILURE(OpenDialog(name, 0));
  const int row = RowOf(slotName);
  ASSERT_TRUE(SelectAllowsOk(row));
  Control("remove " + std::to_string(slotId));
  EXPECT_TRUE(uitest::WaitUntil([&] { return Cell(list, row, 2) == Text(25); }, kRemarkDeadlineMs));
  EXPECT_FALSE(SelectAllowsOk(row)) << "a row without its token allows OK";
  Cancel();
  EXPECT_EQ(Outcome(), static_cast<DWORD>(SCARD_W_CANCELLED_BY_USER));
}

// The test build of the provider on the card service of select_cards.conf: Bluetooth device
// phone-sel and service card desk-sel, each on a token that the service publishes as a slot too.
class SelectAcrossKindsTest : public SelectCardTest {
 protected:
  std::wstring ProviderDll() const override { return L"nivracsp_svctest.dll"; }
  void SetUp() override {
    ASSERT_TRUE(servicetest::UseServiceFixture(kServiceFixture))
        << "no card service port (the CTest fixture starts it)";
    SelectCardTest::SetUp();
  }
};

// Bluetooth devices come first, then service cards, then the slots. A device's or card's row says
// what it holds and lets OK through per operation; choosing it binds the context to that card,
// whose key-size step the context then answers.
TEST_F(SelectAcrossKindsTest, DeviceAndCardRowsComeFirstAndBindTheirCards) {
  const std::string name = CaseName();
  {
    Person person(kServiceFixture, "confirm", "phone-sel");
    ASSERT_EQ(Acquire("\\\\B\\phone-sel\\" + name, CRYPT_NEWKEYSET), 0u);
  }
  struct Case { DWORD flags; bool phoneAllows; const char* chosen; DWORD keySizeStep; };
  for (const Case& c :
       {Case{0, true, "phone-sel", 16}, Case{CRYPT_NEWKEYSET, false, "desk-sel", 32}}) {
    SCOPED_TRACE(c.chosen);
    ASSERT_NO_FATAL_FAILURE(OpenDialog(name, c.flags));
    ASSERT_EQ(RowOf("phone-sel"), 0);
    ASSERT_EQ(RowOf("desk-sel"), 1);
    EXPECT_EQ(Cell(list, 0, 2), Text(22, name));
    EXPECT_EQ(Cell(list, 1, 2), Text(24, name));
    // Then the slots that the service publishes, in SoftHSM2's order: the two tokens and the
    // free slot, whose token cannot be asked.
    ASSERT_EQ(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0), LRESULT{5});
    EXPECT_EQ((std::multiset<std::wstring>{Cell(list, 2, 2), Cell(list, 3, 2), Cell(list, 4, 2)}),
              (std::multiset<std::wstring>{Text(22, name), Text(24, name), Text(23)}));
    EXPECT_EQ(SelectAllowsOk(1), !c.phoneAllows);
    EXPECT_EQ(SelectAllowsOk(0), c.phoneAllows);
    Person person(kServiceFixture, "confirm", c.chosen);
    ASSERT_TRUE(SelectAllowsOk(RowOf(c.chosen)));
    uitest::PressButton(dialog, IDOK);
    ASSERT_EQ(Outcome(), 0u);
    DWORD step = 0, length = sizeof(step);
    ASSERT_TRUE(entries.GetProvParam(chosen, PP_SIG_KEYSIZE_INC, reinterpret_cast<BYTE*>(&step),
                                     &length, 0));
    EXPECT_EQ(step, c.keySizeStep);
    // Only a Bluetooth device's context takes the device command (the open chose the device).
    entries.SetProvParam(chosen, kDeviceCommandParam, nullptr, 0);
    EXPECT_EQ(GetLastError() != static_cast<DWORD>(NTE_NOT_SUPPORTED), c.phoneAllows);
  }
  EXPECT_EQ(Acquire("\\\\?\\desk-sel\\" + name, 0), 0u) << "the create went to the card";
}

}  // namespace
}  // namespace nivra::p11test
