#pragma once
// Runs forwarded PKCS#11 calls on the native module, one at a time, on behalf of the clients of
// the link, converting between the wire's 32-bit values and the module's CK_ULONG, and applying
// the conditions that tests inject through control commands.
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "tools/p11helper/helper_state.h"
#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_messages.h"

namespace nivra::p11helper {

class Dispatcher {
 public:
  // `module` is an initialised function list that outlives the dispatcher. `vendorClass` turns
  // the emulation of vendor-defined object classes (vendor_class.h) on from the start; the
  // control command "vendor-class" changes it and "reset" restores this setting.
  explicit Dispatcher(CK_FUNCTION_LIST* module, bool vendorClass = false)
      : module_(module), vendorClassAtStart_(vendorClass) {
    state_.vendorClass = vendorClass;
  }

  // A connection of client `clientId` said hello / went away. When the last connection of a
  // client goes, its sessions are closed as if the process had finalised.
  void Attach(uint64_t clientId);
  void Detach(uint64_t clientId);

  // Handles the body of one call operation (IsWireCallOp(op)) for an attached client and returns
  // the reply body. A body that does not decode is answered with CKR_ARGUMENTS_BAD. `peerGone`
  // lets a blocked slot-event wait notice that its connection died.
  std::vector<uint8_t> HandleCall(uint64_t clientId, uint16_t op, const std::vector<uint8_t>& body,
                                  const std::function<bool()>& peerGone);

  // Runs one control command (see control_commands.h).
  p11wire::ControlReply Control(const std::string& command);

  // Ends every blocked wait; later waits end at once. Used when the helper shuts down.
  void Stop();
  bool stopRequested();

  // The number of forwarded calls of `op` since the start or the last counter reset.
  uint64_t CallCount(uint16_t op);

 private:
  using Lock = std::unique_lock<std::mutex>;

  // Slot-level operations (dispatch_slots.cpp).
  p11wire::StatusReply Initialize(ClientState& client, const p11wire::InitializeRequest& request);
  p11wire::StatusReply Finalize(ClientState& client);
  p11wire::InfoReply GetInfo();
  p11wire::ListReply GetSlotList(const p11wire::ListRequest& request);
  p11wire::SlotInfoReply GetSlotInfo(const p11wire::SlotRequest& request);
  p11wire::TokenInfoReply GetTokenInfo(const p11wire::SlotRequest& request);
  p11wire::HandleReply WaitForSlotEvent(Lock& lock, ClientState& client,
                                        const p11wire::WaitForSlotEventRequest& request,
                                        const std::function<bool()>& peerGone);
  p11wire::ListReply GetMechanismList(const p11wire::ListRequest& request);
  p11wire::MechanismInfoReply GetMechanismInfo(const p11wire::MechanismInfoRequest& request);
  p11wire::StatusReply InitToken(const p11wire::InitTokenRequest& request);

  // Sessions and users (dispatch_sessions.cpp).
  p11wire::HandleReply OpenSession(ClientState& client, const p11wire::OpenSessionRequest& request);
  p11wire::StatusReply CloseSession(ClientState& client, const p11wire::SessionRequest& request);
  p11wire::StatusReply CloseAllSessions(ClientState& client, const p11wire::SlotRequest& request);
  p11wire::SessionInfoReply GetSessionInfo(ClientState& client, const p11wire::SessionRequest& request);
  p11wire::StatusReply Login(ClientState& client, const p11wire::PinRequest& request);
  p11wire::StatusReply Logout(ClientState& client, const p11wire::SessionRequest& request);
  p11wire::StatusReply InitPin(ClientState& client, const p11wire::PinRequest& request);
  p11wire::StatusReply SetPin(ClientState& client, const p11wire::SetPinRequest& request);

  // Objects (dispatch_objects.cpp).
  p11wire::HandleReply CreateObject(ClientState& client, p11wire::TemplateRequest request);
  p11wire::StatusReply DestroyObject(ClientState& client, const p11wire::ObjectRequest& request);
  p11wire::AttributesReply GetAttributeValue(ClientState& client, const p11wire::TemplateRequest& request);
  p11wire::StatusReply SetAttributeValue(ClientState& client, const p11wire::TemplateRequest& request);
  p11wire::StatusReply FindObjectsInit(ClientState& client, p11wire::TemplateRequest request);
  p11wire::ListReply FindObjects(ClientState& client, const p11wire::FindObjectsRequest& request);
  p11wire::StatusReply FindObjectsFinal(ClientState& client, const p11wire::SessionRequest& request);

  // Keys and cryptography (dispatch_crypto.cpp).
  p11wire::KeyPairReply GenerateKeyPair(ClientState& client, const p11wire::GenerateKeyPairRequest& request);
  p11wire::StatusReply OperationInit(ClientState& client, uint16_t op,
                                     const p11wire::OperationInitRequest& request);
  p11wire::DataReply OneShot(ClientState& client, uint16_t op, const p11wire::DataRequest& request);
  p11wire::DataReply GenerateRandom(ClientState& client, const p11wire::DataRequest& request);

  // Injected token removal and insertion (token_presence.cpp).
  std::string RemoveToken(CK_SLOT_ID slot);
  std::string InsertToken(CK_SLOT_ID slot);
  void QueueSlotEvent(CK_SLOT_ID slot);
  // True when `slot` is one of the module's slots.
  bool IsModuleSlot(CK_SLOT_ID slot);
  const FakeSlot* FindFakeSlot(CK_SLOT_ID slot) const;
  // CKR_OK when calls that need the token of `slot` may go to the module; otherwise the value to
  // answer (a fake slot or a removed token: CKR_TOKEN_NOT_PRESENT).
  CK_RV TokenAvailable(CK_SLOT_ID slot) const;

  // CKR_OK when `session` is a live session of `client`; CKR_DEVICE_REMOVED for one whose token
  // was removed; CKR_SESSION_HANDLE_INVALID otherwise.
  CK_RV CheckSession(const ClientState& client, uint32_t session) const;
  // Closes `session` in the module, forgets every helper record of it and returns the module's
  // answer.
  CK_RV ForgetSession(ClientState& client, CK_SESSION_HANDLE session);
  void CloseClientSessions(ClientState& client);

  // One forwarded call being served, and the function that serves a call operation.
  struct Call {
    ClientState& client;
    uint16_t op;
    const std::vector<uint8_t>& body;
    Lock& lock;
    const std::function<bool()>& peerGone;
  };
  struct CallRoute {
    p11wire::WireOp op;
    std::vector<uint8_t> (*serve)(Dispatcher& d, Call& call);
  };
  // Decodes the request of `op`, runs `method` with what it takes of the call and the request,
  // and encodes its reply (dispatcher.cpp).
  template <p11wire::WireOp op, auto method>
  static std::vector<uint8_t> Route(Dispatcher& d, Call& call);
  static const CallRoute kCallRoutes[];

  // One control command: its verb, the arguments it accepts, and what it does (a refusal sets
  // *rv). Commands are tried in table order (control_commands.cpp).
  struct ControlCommand {
    const char* verb;
    bool (*accepts)(const std::vector<std::string>& words);
    std::string (*run)(Dispatcher& d, const std::vector<std::string>& words, uint32_t* rv);
  };
  static const ControlCommand kControlCommands[];

  std::string RunControl(const std::vector<std::string>& words, uint32_t* rv);
  std::string AddFakeSlots(const std::vector<std::string>& words, uint32_t* rv);
  std::string ForceInitialize(const std::vector<std::string>& words, uint32_t* rv);
  std::string SlotCommand(const std::vector<std::string>& words, uint32_t* rv);
  std::string CountOf(const std::string& name, uint32_t* rv);
  std::string AllCounts();
  std::string ListSlots();
  std::string InitializeArguments();
  void ResetInjections();

  CK_FUNCTION_LIST* module_;
  const bool vendorClassAtStart_;
  std::mutex mutex_;
  std::condition_variable eventsChanged_;
  HelperState state_;
};

}  // namespace nivra::p11helper
