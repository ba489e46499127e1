#include "cardservice/card_service.h"

#include <cstring>

#include "cardservice/card_handlers.h"
#include "cardservice/token_access.h"
#include "service/frames/frame_codes.h"

namespace nivra::cardservice {

namespace {

enum class Lock { kShared, kExclusive };

struct CommandRow {
  uint16_t command;
  CardAnswer (*handler)(CardCall&);
  Lock lock;
  bool needsLogin;  // refused with kStatusNotAuthenticated until the channel gave a good PIN
  bool ownSession;  // runs on a session of its own (not the token re-initialisations)
};

// Commands that change the token's objects run one at a time per slot, so that two channels
// cannot, say, create one container twice; the private-key use itself runs side by side.
constexpr CommandRow kCommands[] = {
    {frames::kCmdCreateContainer, CreateContainerCommand, Lock::kExclusive, true, true},
    {frames::kCmdEnumContainers, EnumContainersCommand, Lock::kShared, false, true},
    {frames::kCmdOpenContainer, OpenContainerCommand, Lock::kShared, false, true},
    {frames::kCmdDeleteContainer, DeleteContainerCommand, Lock::kExclusive, true, true},
    {frames::kCmdLoginState, LoginStateCommand, Lock::kShared, false, true},
    {frames::kCmdVerifyPin, VerifyPinCommand, Lock::kExclusive, false, true},
    {frames::kCmdChangePin, ChangePinCommand, Lock::kExclusive, false, true},
    {frames::kCmdUnblockPin, UnblockPinCommand, Lock::kExclusive, false, true},
    {frames::kCmdGenerateKeyPair, GenerateKeyPairCommand, Lock::kExclusive, true, true},
    {frames::kCmdReadPublicKey, ReadPublicKeyCommand, Lock::kShared, false, true},
    {frames::kCmdImportKeyPair, ImportKeyPairCommand, Lock::kExclusive, true, true},
    {frames::kCmdPrivateKeyOp, PrivateKeyOpCommand, Lock::kShared, true, true},
    {frames::kCmdPublicKeyOp, PublicKeyOpCommand, Lock::kShared, false, true},
    {frames::kCmdWriteCertificate, WriteCertificateCommand, Lock::kExclusive, true, true},
    {frames::kCmdReadCertificate, ReadCertificateCommand, Lock::kShared, false, true},
    {frames::kCmdInitToken, InitTokenCommand, Lock::kExclusive, false, false},
    {frames::kCmdInitTokenPlain, InitTokenPlainCommand, Lock::kExclusive, false, false},
};

constexpr size_t kSlotNameField = 64;

std::string TrimBlanks(const CK_UTF8CHAR* text, size_t length) {
  std::string out(reinterpret_cast<const char*>(text), length);
  size_t end = out.find_last_not_of(' ');
  out.resize(end == std::string::npos ? 0 : end + 1);
  if (out.size() >= kSlotNameField) out.resize(kSlotNameField - 1);
  return out;
}

}  // namespace

CardService::CardService(CK_FUNCTION_LIST* p11, bool serialise)
    : p11_(p11), serialise_(serialise), slots_(p11) {}

bool CardService::DescribeSlot(uint32_t slotId, PublishedSlot* slot) {
  CK_SLOT_INFO info;
  if (p11_->C_GetSlotInfo(slotId, &info) != CKR_OK) return false;
  *slot = PublishedSlot{};
  slot->slotId = slotId;
  slot->name = TrimBlanks(info.slotDescription, sizeof info.slotDescription);
  slot->tokenPresent = (info.flags & CKF_TOKEN_PRESENT) != 0;
  CK_TOKEN_INFO token;
  if (slot->tokenPresent && p11_->C_GetTokenInfo(slotId, &token) == CKR_OK) {
    slot->tokenFlags = static_cast<uint32_t>(token.flags);
    std::memcpy(slot->serial, token.serialNumber, sizeof slot->serial);
  }
  return true;
}

bool CardService::ListSlots(std::vector<PublishedSlot>* slots, CK_RV* error) {
  std::unique_lock<std::mutex> serial(serialMutex_, std::defer_lock);
  if (serialise_) serial.lock();
  slots->clear();
  CK_ULONG count = 0;
  *error = p11_->C_GetSlotList(CK_FALSE, nullptr, &count);
  std::vector<CK_SLOT_ID> ids(count);
  if (*error == CKR_OK && count > 0) *error = p11_->C_GetSlotList(CK_FALSE, ids.data(), &count);
  if (*error != CKR_OK) return false;
  ids.resize(count);
  for (CK_SLOT_ID id : ids) {
    PublishedSlot slot;
    if (id > UINT32_MAX || !DescribeSlot(static_cast<uint32_t>(id), &slot)) continue;
    slots->push_back(slot);
  }
  return true;
}

CardAnswer CardService::Execute(ChannelLogins& logins, uint32_t slotId, uint16_t command,
                                const frames::CardRequest& request) {
  const CommandRow* row = nullptr;
  for (const CommandRow& candidate : kCommands) {
    if (candidate.command == command) row = &candidate;
  }
  if (!row) return Fail(kStatusNotSupported);
  std::unique_lock<std::mutex> serial(serialMutex_, std::defer_lock);
  if (serialise_) serial.lock();

  CK_SLOT_INFO info;
  if (p11_->C_GetSlotInfo(slotId, &info) != CKR_OK) return Fail(kStatusReaderUnavailable);
  if (!(info.flags & CKF_TOKEN_PRESENT)) return Fail(kStatusNoSmartcard);
  SlotState* state = slots_.Get(slotId);
  std::shared_lock<std::shared_mutex> shared(state->tokenLock(), std::defer_lock);
  std::unique_lock<std::shared_mutex> exclusive(state->tokenLock(), std::defer_lock);
  if (row->lock == Lock::kShared) {
    shared.lock();
  } else {
    exclusive.lock();
  }
  CardCall call{p11_, state, &logins, TokenView{p11_, CK_INVALID_HANDLE}, request};
  if (row->needsLogin && !ChannelLoggedIn(call)) return Fail(kStatusNotAuthenticated);
  OwnSession session(p11_);
  if (row->ownSession) {
    CK_RV rv = session.Open(slotId);
    if (rv != CKR_OK) return FailCkr(rv);
    call.token.session = session.handle();
  }
  CardAnswer answer = row->handler(call);
  if (answer.status == kStatusNotAuthenticated) logins.erase(slotId);
  return answer;
}

}  // namespace nivra::cardservice
