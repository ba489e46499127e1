// What the service keeps per published slot: a session that stays open so that a login lasts
// (PKCS#11 logs a token out when its application's last session closes), the lock that keeps
// login changes and token re-initialisation apart from running operations, the login epoch that
// lets each channel know whether its own login still holds, and the table of container handles.
#pragma once
#include <p11-kit/pkcs11.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

namespace nivra::cardservice {

class SlotState {
 public:
  SlotState(CK_FUNCTION_LIST* p11, CK_SLOT_ID slot) : p11_(p11), slot_(slot) {}
  ~SlotState();
  SlotState(const SlotState&) = delete;
  SlotState& operator=(const SlotState&) = delete;

  CK_SLOT_ID slot() const { return slot_; }

  // Operations hold this shared; logins, PIN changes and re-initialisation hold it exclusively.
  std::shared_mutex& tokenLock() { return tokenLock_; }

  // Under the token lock (either mode): the session that keeps the login, opened again when the
  // token dropped it. CKR_OK and the handle, or the module's error.
  CK_RV AnchorSession(CK_SESSION_HANDLE* session);
  // Under the token lock: true when the token is logged in as the user.
  bool TokenLoggedIn();
  // Under the exclusive token lock: closes every session of the slot (before C_InitToken).
  void CloseAllSessions();

  // The login epoch: it changes whenever the token's login is ended or replaced, which voids the
  // login of every channel that recorded an older value. Under the token lock.
  uint64_t epoch() const { return epoch_; }
  void NewEpoch() { ++epoch_; }

  // Digest of the PIN that the current login used (salted per service run), so that a channel
  // that offers the same PIN is accepted without logging the token out and in. Under the
  // exclusive token lock to change; empty when unknown.
  std::vector<uint8_t>& loginDigest() { return loginDigest_; }

  // Container handles: derived from the name, so that they stay valid over reconnections and
  // service restarts. Remember() records a name; Lookup() answers a handle's name, false when
  // the handle is unknown or two names share it.
  uint32_t Remember(const std::string& name);
  bool Lookup(uint32_t handle, std::string* name);

 private:
  CK_FUNCTION_LIST* p11_;
  CK_SLOT_ID slot_;
  std::shared_mutex tokenLock_;
  std::mutex anchorMutex_;
  CK_SESSION_HANDLE anchor_ = CK_INVALID_HANDLE;
  std::atomic<uint64_t> epoch_{1};
  std::vector<uint8_t> loginDigest_;
  std::mutex handlesMutex_;
  std::map<uint32_t, std::string> handles_;  // an empty name marks a shared handle
};

// The handle that names a container: FNV-1a of the name, never 0.
uint32_t ContainerHandle(const std::string& name);

// The per-slot states of the module, made on first use and kept while the service runs.
class SlotRegistry {
 public:
  explicit SlotRegistry(CK_FUNCTION_LIST* p11) : p11_(p11) {}
  SlotState* Get(CK_SLOT_ID slot);

 private:
  CK_FUNCTION_LIST* p11_;
  std::mutex mutex_;
  std::map<CK_SLOT_ID, std::unique_ptr<SlotState>> slots_;
};

}  // namespace nivra::cardservice
