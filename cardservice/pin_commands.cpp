// Login state, PIN verification, change and unblock, and token re-initialisation. A channel's
// login is its own: it holds while the token stays logged in under the epoch at which the
// channel gave a good PIN.
#include <mutex>

#include "cardservice/card_handlers.h"
#include "crypto/random.h"
#include "crypto/sha1.h"
#include "crypto/wipe.h"

namespace nivra::cardservice {

namespace {

constexpr uint32_t kAnswerDone = 1;
constexpr uint32_t kAnswerRefused = 0;
constexpr size_t kPinSaltLength = 16;

// Salted digest of a PIN: lets the service recognise the PIN of the current login without
// keeping the PIN itself.
std::vector<uint8_t> PinDigest(const std::string& pin) {
  static uint8_t salt[kPinSaltLength];
  static std::once_flag saltOnce;
  std::call_once(saltOnce, [] { crypto::RandomFill(salt, sizeof salt); });
  std::vector<uint8_t> digest(crypto::kSha1DigestLength);
  crypto::Sha1State* state = nullptr;
  if (crypto::Sha1Init(&state) != crypto::kOk) return {};
  crypto::Sha1Update(state, salt, sizeof salt);
  crypto::Sha1Update(state, reinterpret_cast<const uint8_t*>(pin.data()), pin.size());
  crypto::Sha1Final(state, digest.data());
  crypto::Sha1Free(state);
  return digest;
}

bool SameDigest(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  if (a.size() != b.size() || a.empty()) return false;
  uint8_t difference = 0;
  for (size_t i = 0; i < a.size(); ++i) difference |= a[i] ^ b[i];
  return difference == 0;
}

// A PIN read from a request, wiped when it goes away.
struct Pin {
  std::string text;
  ~Pin() {
    if (!text.empty()) crypto::Wipe(text.data(), text.size());
  }
  CK_UTF8CHAR_PTR bytes() { return reinterpret_cast<CK_UTF8CHAR_PTR>(text.data()); }
  CK_ULONG length() const { return text.size(); }
};

uint32_t SlotKey(const CardCall& call) { return static_cast<uint32_t>(call.state->slot()); }

void RecordLogin(CardCall& call, const std::vector<uint8_t>& digest) {
  call.state->loginDigest() = digest;
  (*call.logins)[SlotKey(call)] = call.state->epoch();
}

// Ends the token's current login (if any); every channel's login lapses with it.
void EndLogin(CardCall& call, CK_SESSION_HANDLE anchor) {
  if (call.state->TokenLoggedIn()) call.p11->C_Logout(anchor);
  call.state->NewEpoch();
  call.state->loginDigest().clear();
}

WireStatus PinStatus(CK_RV rv) {
  return rv == CKR_PIN_INCORRECT || rv == CKR_PIN_LEN_RANGE ? kStatusInvalidChv : StatusFromCkr(rv);
}

// The two PINs of change, unblock and initialise.
void ReadPinPair(CardCall& call, Pin* first, Pin* second) {
  first->text = call.request.text;
  second->text = call.request.text2;
}

// Sets the user PIN as the security officer and ends that login (the token is left logged
// out). The SO login's failure is answered as a refused PIN.
WireStatus InitUserPin(CardCall& call, CK_SESSION_HANDLE anchor, Pin& soPin, Pin& userPin) {
  CK_RV rv = call.p11->C_Login(anchor, CKU_SO, soPin.bytes(), soPin.length());
  if (rv != CKR_OK) return PinStatus(rv);
  rv = call.p11->C_InitPIN(anchor, userPin.bytes(), userPin.length());
  call.p11->C_Logout(anchor);
  call.state->NewEpoch();
  return StatusFromCkr(rv);
}

// C_InitToken with the token's own label, after every session of the slot is closed (PKCS#11
// refuses to initialise a token with sessions open). A null PIN asks a PIN pad for it.
CK_RV ReinitialiseToken(CardCall& call, Pin* soPin) {
  CK_TOKEN_INFO info;
  CK_RV rv = call.p11->C_GetTokenInfo(call.state->slot(), &info);
  if (rv != CKR_OK) return rv;
  // Without PINs only a token with its own PIN pad can be initialised.
  if (!soPin && !(info.flags & CKF_PROTECTED_AUTHENTICATION_PATH)) return CKR_FUNCTION_NOT_SUPPORTED;
  call.state->CloseAllSessions();
  return call.p11->C_InitToken(call.state->slot(), soPin ? soPin->bytes() : nullptr,
                               soPin ? soPin->length() : 0, info.label);
}

}  // namespace

CardAnswer LoginStateCommand(CardCall& call) {
  return AnswerValue(ChannelLoggedIn(call) ? kAnswerDone : kAnswerRefused);
}

CardAnswer VerifyPinCommand(CardCall& call) {
  Pin pin;
  pin.text = call.request.text;
  CK_SESSION_HANDLE anchor;
  CK_RV rv = call.state->AnchorSession(&anchor);
  if (rv != CKR_OK) return FailCkr(rv);
  std::vector<uint8_t> digest = PinDigest(pin.text);
  if (call.state->TokenLoggedIn()) {
    if (SameDigest(digest, call.state->loginDigest())) {
      RecordLogin(call, digest);
      return AnswerValue(kAnswerDone);
    }
    // Another PIN than the one logged in with: the token itself must judge it.
    EndLogin(call, anchor);
  }
  rv = call.p11->C_Login(anchor, CKU_USER, pin.bytes(), pin.length());
  if (rv == CKR_OK) {
    RecordLogin(call, digest);
    return AnswerValue(kAnswerDone);
  }
  if (rv == CKR_PIN_INCORRECT || rv == CKR_PIN_LEN_RANGE) return AnswerValue(kAnswerRefused);
  return FailCkr(rv);
}

CardAnswer ChangePinCommand(CardCall& call) {
  Pin oldPin, newPin;
  ReadPinPair(call, &oldPin, &newPin);
  CK_SESSION_HANDLE anchor;
  CK_RV rv = call.state->AnchorSession(&anchor);
  if (rv == CKR_OK) {
    rv = call.p11->C_SetPIN(anchor, oldPin.bytes(), oldPin.length(), newPin.bytes(),
                            newPin.length());
  }
  if (rv != CKR_OK) return Fail(PinStatus(rv));
  if (call.state->TokenLoggedIn()) call.state->loginDigest() = PinDigest(newPin.text);
  return AnswerValue(kAnswerDone);
}

CardAnswer UnblockPinCommand(CardCall& call) {
  Pin soPin, newPin;
  ReadPinPair(call, &soPin, &newPin);
  CK_SESSION_HANDLE anchor;
  CK_RV rv = call.state->AnchorSession(&anchor);
  if (rv != CKR_OK) return FailCkr(rv);
  EndLogin(call, anchor);
  WireStatus status = InitUserPin(call, anchor, soPin, newPin);
  if (status != kStatusOk) return Fail(status);
  // The channel that unblocked is logged in with its new PIN.
  rv = call.p11->C_Login(anchor, CKU_USER, newPin.bytes(), newPin.length());
  if (rv != CKR_OK) return FailCkr(rv);
  RecordLogin(call, PinDigest(newPin.text));
  return AnswerValue(kAnswerDone);
}

CardAnswer InitTokenCommand(CardCall& call) {
  Pin soPin, newPin;
  ReadPinPair(call, &soPin, &newPin);
  CK_RV rv = ReinitialiseToken(call, &soPin);
  if (rv != CKR_OK) return Fail(PinStatus(rv));
  CK_SESSION_HANDLE anchor;
  rv = call.state->AnchorSession(&anchor);
  if (rv != CKR_OK) return FailCkr(rv);
  return Fail(InitUserPin(call, anchor, soPin, newPin));
}

CardAnswer InitTokenPlainCommand(CardCall& call) {
  CK_RV rv = ReinitialiseToken(call, nullptr);
  // The provider reads this status as "not supported by this token".
  if (rv == CKR_FUNCTION_NOT_SUPPORTED) return Fail(kStatusBadFlags);
  return FailCkr(rv);
}

}  // namespace nivra::cardservice
