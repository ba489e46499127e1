// Logging in: the application's PIN, the PIN dialog and its outcomes, and the PIN administration
// parameters.
#include <windows.h>

#include <cstring>
#include <string>

#include "fake_backend_fixture.h"
#include "pin_dialog_answer.h"
#include "pkcs11/slot_table.h"
#include "provider/card_dispatch.h"
#include "provider/entries.h"

namespace nivra::p11test {
namespace {

constexpr DWORD kWrongChv = 0x8010006B;
constexpr DWORD kChvBlocked = 0x8010006C;
constexpr DWORD kInvalidChv = 0x8010002A;
constexpr DWORD kCancelled = 0x8010006E;
constexpr DWORD kSilentContext = 0x80090022;
constexpr DWORD kNotSupported = 0x80090029;
constexpr DWORD kNteFail = 0x80090020;
const CK_ULONG kVendorClass = 0x80000001;
const CK_BBOOL kYes = CK_TRUE;

class Login : public FakeBackendTest {
 protected:
  void SetUp() override {
    FakeBackendTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(StartBackend(), 0u);
    CreateOnToken(0, {Attr(CKA_CLASS, &kVendorClass, 4), Text(CKA_LABEL, "c1"),
                      Attr(CKA_TOKEN, &kYes, 1)});
  }
  HCRYPTPROV Open(DWORD flags) {
    HCRYPTPROV prov = 0;
    EXPECT_EQ(Acquire("\\\\.\\Fake slot 0\\c1", flags, &prov), 0u);
    return prov;
  }
  // A PIN on the context that the token does not take (set as if an earlier check had passed).
  void ContextPin(HCRYPTPROV prov, const char* pin) {
    provider::ProviderContext& ctx = Context(prov);
    std::memcpy(ctx.pin, pin, std::strlen(pin));
    ctx.pinLength = static_cast<uint8_t>(std::strlen(pin));
  }
  DWORD SetParam(HCRYPTPROV prov, DWORD param, const std::string& data) {
    std::string copy = data;
    return NivraCPSetProvParam(prov, param, reinterpret_cast<BYTE*>(copy.data()), 0) ? 0
                                                                                      : GetLastError();
  }
  CK_STATE SessionState() {
    CK_SESSION_INFO info{};
    EXPECT_EQ(fake.functions->C_GetSessionInfo(pkcs11::ModuleSlots().records[0].session, &info),
              CKR_OK);
    return info.state;
  }
  // Runs CardRelogin on a worker thread, answers the PIN dialog with `typed` (null: cancel), and
  // returns the status.
  DWORD ReloginThroughDialog(HCRYPTPROV prov, const wchar_t* typed) {
    provider::ProviderContext* ctx = &Context(prov);
    return AnswerPinDialog([ctx] { return provider::CardRelogin(*ctx); }, typed);
  }
};

TEST_F(Login, PinParameterLogsTheSlotSessionIn) {
  HCRYPTPROV prov = Open(0);
  EXPECT_EQ(SetParam(prov, PP_SIGNATURE_PIN, kFakeUserPin), 0u);
  EXPECT_EQ(SessionState(), CKS_RW_USER_FUNCTIONS);
}

TEST_F(Login, WrongPinParameterIsInvalidChvAndALockedOneChvBlocked) {
  HCRYPTPROV prov = Open(0);
  EXPECT_EQ(SetParam(prov, PP_SIGNATURE_PIN, "9999"), kInvalidChv);
  fake.SetLoginResult(CKR_PIN_LOCKED);
  EXPECT_EQ(SetParam(prov, PP_SIGNATURE_PIN, kFakeUserPin), kChvBlocked);
}

TEST_F(Login, LoggedInSessionNeedsNoLogin) {
  HCRYPTPROV prov = Open(0);
  ASSERT_EQ(SetParam(prov, PP_SIGNATURE_PIN, kFakeUserPin), 0u);
  const uint32_t logins = fake.CallCount("C_Login");
  EXPECT_EQ(provider::CardRelogin(Context(prov)), 0u);
  EXPECT_EQ(fake.CallCount("C_Login"), logins);
}

TEST_F(Login, ContextPinIsUsedWithoutAsking) {
  HCRYPTPROV prov = Open(CRYPT_SILENT);
  ContextPin(prov, kFakeUserPin);
  EXPECT_EQ(provider::CardRelogin(Context(prov)), 0u);
  EXPECT_EQ(SessionState(), CKS_RW_USER_FUNCTIONS);
}

TEST_F(Login, RejectedContextPinOnASilentContextIsSilentContext) {
  HCRYPTPROV prov = Open(CRYPT_SILENT);
  ContextPin(prov, "9999");
  EXPECT_EQ(provider::CardRelogin(Context(prov)), kSilentContext);
  HCRYPTPROV noPin = Open(CRYPT_SILENT);
  EXPECT_EQ(provider::CardRelogin(Context(noPin)), kSilentContext);
}

TEST_F(Login, TokenWithoutLoginIsNotSupported) {
  HCRYPTPROV prov = Open(CRYPT_SILENT);
  ContextPin(prov, kFakeUserPin);
  fake.SetLoginResult(CKR_FUNCTION_NOT_SUPPORTED);
  EXPECT_EQ(provider::CardRelogin(Context(prov)), kNotSupported);
}

TEST_F(Login, RejectedContextPinOnAnInteractiveContextAsksTheUser) {
  HCRYPTPROV prov = Open(0);
  ContextPin(prov, "9999");
  EXPECT_EQ(ReloginThroughDialog(prov, L"1234"), 0u);
  EXPECT_EQ(SessionState(), CKS_RW_USER_FUNCTIONS);
}

TEST_F(Login, CancelledDialogIsCancelledByUser) {
  HCRYPTPROV prov = Open(0);
  EXPECT_EQ(ReloginThroughDialog(prov, nullptr), kCancelled);
  EXPECT_EQ(SessionState(), CKS_RW_PUBLIC_SESSION);
}

TEST_F(Login, WrongPinTypedIsWrongChvNotInvalidChv) {
  HCRYPTPROV prov = Open(0);
  EXPECT_EQ(ReloginThroughDialog(prov, L"4321"), kWrongChv);
}

TEST_F(Login, LockedPinTypedIsChvBlocked) {
  HCRYPTPROV prov = Open(0);
  fake.SetLoginResult(CKR_PIN_LOCKED);
  EXPECT_EQ(ReloginThroughDialog(prov, L"1234"), kChvBlocked);
}

TEST_F(Login, OtherRefusalOfTheTypedPinIsNteFail) {
  HCRYPTPROV prov = Open(0);
  fake.SetLoginResult(CKR_DEVICE_ERROR);
  EXPECT_EQ(ReloginThroughDialog(prov, L"1234"), kNteFail);
}

TEST_F(Login, SigningWithoutLoginAsksOnceThenUsesTheSession) {
  HCRYPTPROV prov = Open(0);
  const CK_ULONG privateClass = CKO_PRIVATE_KEY, rsa = CKK_RSA;
  CK_SESSION_HANDLE session = 0;
  ASSERT_EQ(fake.functions->C_OpenSession(kFakeFirstSlotId, CKF_SERIAL_SESSION | CKF_RW_SESSION,
                                          nullptr, nullptr, &session),
            CKR_OK);
  ASSERT_EQ(fake.functions->C_Login(session, CKU_USER, (CK_UTF8CHAR*)"1234", 4), CKR_OK);
  Bytes modulus(128, 0x9C);
  const CK_ULONG publicClass = CKO_PUBLIC_KEY;
  const uint8_t e[] = {1, 0, 1};
  CreateOnToken(0, {Attr(CKA_CLASS, &publicClass, 4), Attr(CKA_KEY_TYPE, &rsa, 4),
                    Text(CKA_ID, "c1_cspS"), Attr(CKA_MODULUS, modulus.data(), 128),
                    Attr(CKA_PUBLIC_EXPONENT, e, 3)});
  CreateOnToken(0, {Attr(CKA_CLASS, &privateClass, 4), Attr(CKA_KEY_TYPE, &rsa, 4),
                    Text(CKA_ID, "c1_cspS"), Attr(CKA_PRIVATE, &kYes, 1)});
  ASSERT_EQ(fake.functions->C_Logout(session), CKR_OK);
  fake.functions->C_CloseSession(session);

  provider::ProviderContext* ctx = &Context(prov);
  const DWORD signed_ = AnswerPinDialog(
      [ctx] {
        uint8_t out[128];
        uint32_t length = sizeof(out);
        const uint8_t hash[20] = {};
        return provider::CardPrivateKeyOp(*ctx, AT_SIGNATURE, 1, hash, sizeof(hash), out, &length);
      },
      L"1234");
  EXPECT_EQ(signed_, 0u);
  const uint32_t logins = fake.CallCount("C_Login");
  uint8_t out[128];
  uint32_t length = sizeof(out);
  const uint8_t other[20] = {1};
  EXPECT_EQ(provider::CardPrivateKeyOp(*ctx, AT_SIGNATURE, 1, other, 20, out, &length), 0u);
  EXPECT_EQ(fake.CallCount("C_Login"), logins) << "no second prompt, no second login";
}

TEST_F(Login, ChangePinSetsTheNewPinAndKeepsTheUserLoggedIn) {
  HCRYPTPROV prov = Open(0);
  ASSERT_EQ(SetParam(prov, PP_SIGNATURE_PIN, kFakeUserPin), 0u);
  ASSERT_EQ(SetParam(prov, 22201, std::string("1234\0" "8765\0", 10)), 0u);
  EXPECT_EQ(Context(prov).pinLength, 4u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(Context(prov).pin), 4), "8765");
  EXPECT_EQ(SessionState(), CKS_RW_USER_FUNCTIONS);
  EXPECT_EQ(SetParam(prov, 22201, std::string("1234\0" "1111\0", 10)), kInvalidChv)
      << "the old PIN no longer works";
}

TEST_F(Login, UnblockSetsTheNewUserPinAndLogsTheUserIn) {
  HCRYPTPROV prov = Open(0);
  EXPECT_EQ(SetParam(prov, 22202, std::string("0000\0" "2468\0", 10)), kInvalidChv)
      << "a wrong officer PIN stops at the first step";
  EXPECT_EQ(fake.CallCount("C_InitPIN"), 0u);

  EXPECT_EQ(SetParam(prov, 22202, std::string("5678\0" "2468\0", 10)), 0u);
  EXPECT_EQ(fake.CallCount("C_InitPIN"), 1u);
  EXPECT_EQ(SessionState(), CKS_RW_USER_FUNCTIONS);
  EXPECT_EQ(SetParam(prov, PP_SIGNATURE_PIN, "2468"), 0u) << "the new user PIN is in place";
}

TEST_F(Login, InitTokenKeepsTheLabelAndSetsBothPins) {
  HCRYPTPROV prov = Open(0);
  CloseTestSessions();
  ASSERT_EQ(SetParam(prov, 22203, std::string("5678\0" "1357\0", 10)), 0u);
  EXPECT_EQ(fake.CallCount("C_InitToken"), 1u);
  EXPECT_EQ(fake.CallCount("C_InitPIN"), 1u);
  EXPECT_EQ(fake.CallCount("C_Logout"), 1u);
  CK_TOKEN_INFO info{};
  ASSERT_EQ(fake.functions->C_GetTokenInfo(kFakeFirstSlotId, &info), CKR_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(info.label), 12), "Fake token 0");
  EXPECT_EQ(SetParam(prov, PP_SIGNATURE_PIN, "1357"), 0u) << "the new user PIN works";
}

TEST_F(Login, InitTokenWithoutPinCallsInitTokenAlone) {
  HCRYPTPROV prov = Open(0);
  CloseTestSessions();
  EXPECT_TRUE(NivraCPSetProvParam(prov, 22208, nullptr, 0)) << std::hex << GetLastError();
  EXPECT_EQ(fake.CallCount("C_InitToken"), 1u);
  EXPECT_EQ(fake.CallCount("C_InitPIN"), 0u);
  EXPECT_EQ(fake.CallCount("C_Login"), 0u);
}

}  // namespace
}  // namespace nivra::p11test
