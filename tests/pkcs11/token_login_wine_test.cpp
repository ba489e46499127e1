// Private-key use on a SoftHSM2 token without a login: the PIN dialog and its outcomes, and the
// silent context, through CryptoAPI.
#include "pin_dialog_answer.h"
#include "token_fixture.h"

namespace nivra::p11test {
namespace {

constexpr DWORD kWrongChv = 0x8010006B;
constexpr DWORD kCancelled = 0x8010006E;
constexpr DWORD kSilentContext = 0x80090022;
constexpr DWORD kChvBlocked = 0x8010006C;
constexpr DWORD kInvalidChv = 0x8010002A;
constexpr DWORD kNteFail = 0x80090020;
constexpr DWORD kNteNotSupported = 0x80090029;
constexpr DWORD kUnblockPin = 22202;

class TokenLogin : public TokenTest {
 protected:
  void SetUp() override {
    TokenTest::SetUp();
    if (HasFatalFailure()) return;
    name = CaseName();
    HCRYPTPROV setup = NewCryptContainer(name);
    ASSERT_NE(setup, 0u);
    HCRYPTKEY key = 0;
    ASSERT_TRUE(CryptGenKey(setup, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();
    CryptDestroyKey(key);
    LogOut();
  }
  // A signature with the container's pair on `prov`; the last error (0 on success).
  DWORD Sign(HCRYPTPROV prov) { return SignSha1(prov, AT_SIGNATURE, {1, 2, 3}); }
  // CryptSetProvParam of the signature PIN; the last error (0 on success).
  static DWORD SetPin(HCRYPTPROV prov, std::string pin) {
    return CryptSetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin.data()), 0)
               ? 0
               : GetLastError();
  }
  // Signs on a worker thread and answers the PIN dialog with `typed` (null: cancel).
  DWORD SignThroughDialog(HCRYPTPROV prov, const wchar_t* typed) {
    return AnswerPinDialog([this, prov] { return Sign(prov); }, typed);
  }
  std::string name;
};

// The token's answer to a refused PIN reaches the application as the path's own code: the PIN
// typed in the dialog, or the PIN parameter (whose wrong PIN, like PIN changes and unblocking with
// a wrong PIN, the command-line tests show). A locked PIN is injected by the helper (SoftHSM2
// never locks one). A PIN the context has from the PIN parameter logs a logged-out token in
// without asking; when the token refuses it, a silent context stops and an interactive one asks
// the user. A silent context without a PIN has nothing to try.
TEST_F(TokenLogin, RefusedPinsAreReportedByTheirPathAndTheContextPinIsTriedFirst) {
  const struct {
    DWORD flags;
    const char* contextPin;  // set on the context (then the token is logged out again)
    const char* forcedLogin;
    const char* param;      // the operation sets the PIN parameter to this, or else signs
    const wchar_t* typed;   // signing asks: typed in the dialog (null: cancelled)
    DWORD expected;
    const char* logins;     // C_Login calls, or null
  } cases[] = {
      {0, nullptr, "off", nullptr, L"9999", kWrongChv, nullptr},
      {0, nullptr, "off", nullptr, nullptr, kCancelled, nullptr},
      {0, nullptr, "0xA4", nullptr, L"1234", kChvBlocked, nullptr},
      {0, nullptr, "0x5", nullptr, L"1234", kNteFail, nullptr},
      {0, nullptr, "0xA4", kUserPin, nullptr, kChvBlocked, nullptr},
      {CRYPT_SILENT, nullptr, "off", nullptr, nullptr, kSilentContext, "0"},
      {CRYPT_SILENT, kUserPin, "off", nullptr, nullptr, 0, "1"},
      {CRYPT_SILENT, kUserPin, "0xA0", nullptr, nullptr, kSilentContext, "1"},
      {CRYPT_SILENT, kUserPin, "0x54", nullptr, nullptr, kNteNotSupported, "1"},
      {0, kUserPin, "0xA0", nullptr, L"1234", kWrongChv, "2"},  // the typed PIN is refused too
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.forcedLogin << " " << (c.param ? c.param : "sign") << " "
                                    << (c.typed ? "typed" : "not typed") << " " << c.flags);
    HCRYPTPROV prov = 0;
    ASSERT_EQ(CryptAcquire(OnToken(name), c.flags, &prov), 0u);
    if (c.contextPin) {
      ASSERT_EQ(SetPin(prov, c.contextPin), 0u);
      LogOut();
    }
    Control(std::string("force-login ") + c.forcedLogin);
    Control("reset-counts");
    if (c.param) {
      EXPECT_EQ(SetPin(prov, c.param), c.expected);
    } else {
      const bool silent = c.flags == CRYPT_SILENT;
      EXPECT_EQ(silent ? Sign(prov) : SignThroughDialog(prov, c.typed), c.expected);
    }
    if (c.logins) {
      EXPECT_EQ(Control("count C_Login"), c.logins);
    }
    Control("force-login off");
  }
}

TEST_F(TokenLogin, EveryContextThatSetsThePinHasItChecked) {
  HCRYPTPROV first = 0, second = 0, third = 0;
  ASSERT_EQ(CryptAcquire(OnToken(name), 0, &first), 0u);
  ASSERT_EQ(CryptAcquire(OnToken(name), 0, &second), 0u);
  ASSERT_EQ(CryptAcquire(OnToken(name), 0, &third), 0u);
  ASSERT_EQ(SetPin(first, kUserPin), 0u);
  Control("reset-counts");
  EXPECT_EQ(SetPin(second, kUserPin), 0u) << "the token, logged in by the first, is asked again";
  EXPECT_EQ(Control("count C_Login"), "2");
  EXPECT_EQ(Control("count C_Logout"), "1");
  EXPECT_EQ(SetPin(third, "9999"), kInvalidChv) << "a wrong PIN is not accepted for another's login";
  // It leaves the token logged out: the next private-key use asks (no dialog fails the case).
  EXPECT_EQ(SignThroughDialog(third, L"1234"), 0u);
  Control("reset-counts");
  HCRYPTPROV silent = 0;
  ASSERT_EQ(CryptAcquire(OnToken(name), CRYPT_SILENT, &silent), 0u);
  EXPECT_EQ(Sign(silent), 0u) << "the PIN typed logged the slot's session in for every context";
  EXPECT_EQ(Control("count C_Login"), "0");
}

TEST_F(TokenLogin, UnblockingEndsWithTheUserLoggedInNotTheOfficer) {
  HCRYPTPROV prov = 0;
  ASSERT_EQ(CryptAcquire(OnToken(name), CRYPT_SILENT, &prov), 0u);
  // The officer's PIN of the fixture token, and the user's PIN again as the new one.
  const char pins[] = "5678\0" "1234";
  ASSERT_TRUE(CryptSetProvParam(prov, kUnblockPin, reinterpret_cast<const BYTE*>(pins), 0))
      << std::hex << GetLastError();
  // A silent context signs with no further login: the user is logged in (the officer cannot sign).
  Control("reset-counts");
  EXPECT_EQ(Sign(prov), 0u);
  EXPECT_EQ(Control("count C_Login"), "0");
}

}  // namespace
}  // namespace nivra::p11test
