// The slot table and its monitor against the helper's slots: token removal and insertion, an
// idle process, many slots, blank descriptions, the start-up and its C_Initialize results, and
// missing or unusable modules.
#include <vector>

#include "modal_dialog_driver.h"
#include "token_fixture.h"

namespace nivra::p11test {
namespace {

constexpr DWORD kNteBadKeyset = 0x80090016;
constexpr DWORD kUnknownCard = 0x8010000D;

using TokenSlots = TokenTest;

// SoftHSM2 cannot wait for slot events, so the monitor polls; with the helper's events it waits.
// The monitor's view of the token: the serial number is forgotten when the token is removed, so
// reading it then asks the token, which is gone.
class SlotMonitor : public TokenSlots, public ::testing::WithParamInterface<const char*> {};

TEST_P(SlotMonitor, FollowsRemovalAndInsertion) {
  Control(std::string("slot-events ") + GetParam());
  StartProvider();
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\" + slotName, CRYPT_VERIFYCONTEXT, &prov), 0u);
  // Provider parameter 22207 (the token's serial number): the last error, 0 on success.
  auto cardId = [this, prov]() -> DWORD {
    uint8_t id[16];
    DWORD length = sizeof(id);
    return entries.GetProvParam(prov, 22207, id, &length, 0) ? 0 : GetLastError();
  };
  ASSERT_EQ(cardId(), 0u);
  Control("remove " + std::to_string(slotId));
  EXPECT_TRUE(uitest::WaitUntil([&] { return cardId() == kUnknownCard; }, 5000))
      << "the removal was not seen";
  Control("reset-counts");
  Control("insert " + std::to_string(slotId));
  EXPECT_TRUE(uitest::WaitUntil([&] { return Control("count C_OpenSession") != "0"; }, 5000))
      << "the insertion was not seen: no session was opened";
  EXPECT_EQ(cardId(), 0u);
}

INSTANTIATE_TEST_SUITE_P(SlotEvents, SlotMonitor, ::testing::Values("off", "on"));

// Whether the module cannot wait for slot events (the monitor polls) or its wait fails at once
// (the monitor pauses before the next one), nothing spins.
class IdleProcess : public TokenSlots, public ::testing::WithParamInterface<const char*> {};

TEST_P(IdleProcess, ProcessHoldingAContextStaysIdle) {
  Control(std::string("force-wait ") + GetParam());
  StartProvider();
  HCRYPTPROV prov = 0;
  ASSERT_EQ(CryptAcquire("\\\\.\\" + slotName, CRYPT_VERIFYCONTEXT, &prov), 0u);
  Sleep(1500);  // past start-up and the first polls
  auto cpuMsSoFar = [] {  // kernel and user time of the process
    FILETIME created, exited, times[2];
    EXPECT_TRUE(GetProcessTimes(GetCurrentProcess(), &created, &exited, &times[0], &times[1]));
    double ms = 0;
    for (const FILETIME& t : times) ms += ((ULONGLONG{t.dwHighDateTime} << 32) | t.dwLowDateTime) / 1e4;
    return ms;
  };
  const double cpuBefore = cpuMsSoFar();
  const ULONGLONG wallBefore = GetTickCount64();
  Sleep(4000);
  const double cpuMs = cpuMsSoFar() - cpuBefore;
  const double wallMs = static_cast<double>(GetTickCount64() - wallBefore);
  // A resource bound, not a speed goal: well under 1% of one core while nothing happens.
  EXPECT_LT(cpuMs, wallMs * 0.01) << cpuMs << " ms of CPU in " << wallMs << " ms";
}

INSTANTIATE_TEST_SUITE_P(SlotWaits, IdleProcess, ::testing::Values("off", "0x30"));

TEST_F(TokenSlots, TableRecordsTheFirst256SlotsAndFindsThemByName) {
  Control("slot-events on");  // the monitor waits, so every slot read below is the provider's
  Control("add-slots 300");
  StartProvider();
  std::vector<CK_SLOT_ID> slots(400);
  CK_ULONG count = static_cast<CK_ULONG>(slots.size());
  ASSERT_EQ(Module()->C_GetSlotList(CK_FALSE, slots.data(), &count), CKR_OK);
  ASSERT_GT(count, 257u);
  // The last recorded slot is found, holds no token, and is refreshed three times; the first
  // slot beyond the table and an unknown name are not found, so nothing is refreshed.
  const struct {
    std::string name;
    const char* infoCalls;
  } cases[] = {{SlotDescription(slots[255]), "3"}, {SlotDescription(slots[256]), "0"},
               {"No such slot", "0"}};
  for (const auto& c : cases) {
    Control("reset-counts");
    EXPECT_EQ(Acquire("\\\\.\\" + c.name + "\\c", 0), kNteBadKeyset) << c.name;
    EXPECT_EQ(Control("count C_GetSlotInfo"), c.infoCalls) << c.name;
  }
}

TEST_F(TokenSlots, BlankSlotsDoNotHideTheTokenFromASilentSearch) {
  Control("add-slots 3 blank");
  StartProvider();
  LogIn();
  const std::string name = CaseName();
  FreshContainer(name);
  ASSERT_EQ(Acquire(OnToken(name), CRYPT_NEWKEYSET), 0u);
  // Make SoftHSM2's uninitialised token the slot last reached by name, so that the search walks
  // the whole table (blank slots included) instead of starting where the container is.
  CK_SLOT_ID slots[64];
  CK_ULONG count = 64;
  ASSERT_EQ(Module()->C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
  for (CK_ULONG i = 0; i < count; ++i) {
    const std::string other = slots[i] == slotId ? "" : SlotDescription(slots[i]);
    if (!other.empty()) Acquire("\\\\.\\" + other, CRYPT_VERIFYCONTEXT);  // may not open
  }
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire(name, CRYPT_SILENT, &prov), 0u);
  DWORD id = 0;
  DWORD length = sizeof(id);
  ASSERT_TRUE(entries.GetProvParam(prov, 0x80000001, reinterpret_cast<BYTE*>(&id), &length, 0));
  EXPECT_EQ(id, slotId);
}

// The monitor thread calls the module beside the application's threads: the module is told that
// it may lock with the system's primitives (CKF_OS_LOCKING_OK, no mutexes), a module that cannot
// lock is initialised once more without arguments, and a C_Initialize failure other than
// "already initialised" is accepted; a second acquire starts nothing again. A module that someone
// else initialised is refused before its slots are listed (and is not finalised); a first slot
// list that fails (C_Initialize reports success without initialising) is undone. After a failed
// start a later acquire starts again.
struct StartUp {
  const char* injected;
  const char* initArgs;
  const char* failed;  // a failed start: "<slot lists> <finalisations>"; null: it started
};

void PrintTo(const StartUp& s, std::ostream* out) { *out << s.injected; }

class ModuleStart : public TokenSlots, public ::testing::WithParamInterface<StartUp> {};

TEST_P(ModuleStart, InitialisesForSeveralThreadsOnceOrIsUndone) {
  const StartUp& start = GetParam();
  Control(start.injected);
  EXPECT_EQ(Acquire("\\\\.\\any slot\\c", 0), kNteBadKeyset);
  EXPECT_EQ(Control("init-args"), start.initArgs);
  if (start.failed) {
    EXPECT_EQ(Control("count C_GetSlotList") + " " + Control("count C_Finalize"), start.failed);
  }
  Control("force-init off");
  Control("reset-counts");
  StartProvider();
  EXPECT_EQ(Control("count C_Initialize"), start.failed ? "1" : "0");
}

INSTANTIATE_TEST_SUITE_P(
    Injected, ModuleStart,
    ::testing::Values(StartUp{"ping", "flags=0x2 no-mutexes\n", nullptr},
                      StartUp{"cant-lock on", "flags=0x2 no-mutexes\nnull\n", nullptr},
                      StartUp{"force-init 0x5", "flags=0x2 no-mutexes\n", nullptr},
                      StartUp{"force-init 0x191 noinit", "flags=0x2 no-mutexes\n", "0 0"},
                      StartUp{"force-init 0 noinit", "flags=0x2 no-mutexes\n", "1 1"}));

// No "LibPkcs11" value, a path that does not load, and a library without C_GetFunctionList.
class UnusableModule : public TokenTest, public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(UnusableModule, TokenSlotStringsAreBadKeysetThroughExportsAndCryptoApi) {
  if (GetParam() == nullptr) hive.RemoveModulePath();
  else hive.SetModulePath(GetParam());
  EXPECT_EQ(Acquire("\\\\.\\SoftHSM slot\\c", 0), kNteBadKeyset);
  EXPECT_EQ(Acquire("\\\\.\\", 0), kNteBadKeyset);
  EXPECT_EQ(CryptAcquire("\\\\.\\SoftHSM slot\\c", CRYPT_SILENT), kNteBadKeyset);
  EXPECT_EQ(GetModuleHandleW(L"nivrap11fwd.dll"), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Values, UnusableModule,
                         ::testing::Values(static_cast<const wchar_t*>(nullptr), L"C:\\no\\such\\module.dll", L"kernel32.dll"));

}  // namespace
}  // namespace nivra::p11test
