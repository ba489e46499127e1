#include "cardservice/slot_state.h"

namespace nivra::cardservice {

namespace {
constexpr uint32_t kFnvOffset = 2166136261u;
constexpr uint32_t kFnvPrime = 16777619u;
}  // namespace

uint32_t ContainerHandle(const std::string& name) {
  uint32_t hash = kFnvOffset;
  for (unsigned char c : name) hash = (hash ^ c) * kFnvPrime;
  return hash == 0 ? 1 : hash;
}

SlotState::~SlotState() {
  if (anchor_ != CK_INVALID_HANDLE) p11_->C_CloseSession(anchor_);
}

CK_RV SlotState::AnchorSession(CK_SESSION_HANDLE* session) {
  std::lock_guard<std::mutex> guard(anchorMutex_);
  if (anchor_ != CK_INVALID_HANDLE) {
    CK_SESSION_INFO info;
    if (p11_->C_GetSessionInfo(anchor_, &info) == CKR_OK) {
      *session = anchor_;
      return CKR_OK;
    }
    anchor_ = CK_INVALID_HANDLE;  // the token was removed or re-initialised
    ++epoch_;
  }
  CK_RV rv = p11_->C_OpenSession(slot_, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                 &anchor_);
  if (rv != CKR_OK) anchor_ = CK_INVALID_HANDLE;
  *session = anchor_;
  return rv;
}

bool SlotState::TokenLoggedIn() {
  CK_SESSION_HANDLE session;
  if (AnchorSession(&session) != CKR_OK) return false;
  CK_SESSION_INFO info;
  if (p11_->C_GetSessionInfo(session, &info) != CKR_OK) return false;
  return info.state == CKS_RW_USER_FUNCTIONS || info.state == CKS_RO_USER_FUNCTIONS;
}

void SlotState::CloseAllSessions() {
  std::lock_guard<std::mutex> guard(anchorMutex_);
  p11_->C_CloseAllSessions(slot_);
  anchor_ = CK_INVALID_HANDLE;
  ++epoch_;
  loginDigest_.clear();
}

uint32_t SlotState::Remember(const std::string& name) {
  uint32_t handle = ContainerHandle(name);
  std::lock_guard<std::mutex> guard(handlesMutex_);
  auto [entry, added] = handles_.emplace(handle, name);
  if (!added && entry->second != name) entry->second.clear();
  return handle;
}

bool SlotState::Lookup(uint32_t handle, std::string* name) {
  std::lock_guard<std::mutex> guard(handlesMutex_);
  auto entry = handles_.find(handle);
  if (entry == handles_.end() || entry->second.empty()) return false;
  *name = entry->second;
  return true;
}

SlotState* SlotRegistry::Get(CK_SLOT_ID slot) {
  std::lock_guard<std::mutex> guard(mutex_);
  auto& state = slots_[slot];
  if (!state) state = std::make_unique<SlotState>(p11_, slot);
  return state.get();
}

}  // namespace nivra::cardservice
