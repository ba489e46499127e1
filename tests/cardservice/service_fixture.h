#pragma once
// The card service as its clients meet it: the real nivra-card-service program started on a
// fresh SoftHSM2 token of its own (SOFTHSM2_CONF points into a private directory, in this process
// too, so that checks can read the token natively), clients built from the shared frame codec
// and the crypto library, and a fixture that runs a service for each test with the card commands
// the tests use most.
#include <gtest/gtest.h>
#include <p11-kit/pkcs11.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "service/frames/card_commands.h"
#include "service/frames/crypto_guards.h"
#include "service/frames/frame_codes.h"
#include "service/frames/frame_header.h"

namespace nivra::cardtest {

inline constexpr char kTokenLabel[] = "nivra-service";
inline constexpr char kUserPin[] = "1234";  // the PINs of every scratch token
inline constexpr char kSoPin[] = "5678";

// A scratch token and a running service on a free port.
class ServiceProcess {
 public:
  // Serves `module` (SoftHSM2 when empty); with `cardConfig`, also the devices and cards that
  // it configures, with a Unix-domain control socket in the directory (the loopback TCP control
  // port is the Windows tests'). Check ok().
  explicit ServiceProcess(const std::string& module = {}, const std::string& cardConfig = {});
  ~ServiceProcess();  // stops the service (SIGTERM) if it still runs, removes the directory
  bool ok() const { return pid_ > 0; }  // started, and not yet stopped
  uint16_t port() const { return port_; }
  const std::string& directory() const { return directory_; }
  // Everything the service has logged so far.
  std::string Log() const;
  // One line on the control interface, and its one-line answer ("" when it cannot be reached).
  std::string Control(const std::string& line) const;
  // Runs the service once more on the scratch token with this card configuration, expecting it
  // to refuse to start: its exit status and what it wrote.
  int StartWithConfig(const std::string& cardConfig, std::string* output) const;
  // Sends SIGTERM and waits up to `waitMs`; the wait status, or -1 when it did not end.
  int Terminate(int waitMs);

 private:
  std::string directory_;
  pid_t pid_ = -1;
  uint16_t port_ = 0;
};

// One TCP connection to the service.
class Client {
 public:
  explicit Client(uint16_t port, const std::string& host = "127.0.0.1");  // check connected()
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  bool connected() const { return fd_ >= 0; }
  bool SendRaw(const uint8_t* data, size_t length);
  bool Send(const frames::Bytes& frame) { return SendRaw(frame.data(), frame.size()); }
  // One whole frame; false when the connection closed or failed first.
  bool Receive(frames::Bytes* frame);
  // True when the service has closed this connection (it reads nothing more).
  bool ClosedByService();

 private:
  int fd_ = -1;
};

// A card command's outcome as a client sees it.
struct CardResult {
  bool transported = false;  // false: the exchange itself failed
  uint16_t command = 0;      // the answer's command
  uint32_t status = 0;
  frames::CardResponse response;
};

// Sends a wrapped request on `client` and reads its wrapped answer under `cipher`.
CardResult Exchange(Client& client, crypto::CipherHandle cipher, const frames::Bytes& wrapped,
                    uint16_t command, size_t blockLength);

// An encrypted slot channel: the handshake made with a transport key of the client's own.
class Channel {
 public:
  explicit Channel(uint16_t port);  // check ready()
  bool ready() const { return ready_; }
  Client& client() { return client_; }
  CardResult Call(uint32_t slotId, uint16_t command, const frames::CardRequest& request,
                  size_t blockLength = 0) {
    return Exchange(client_, cipher_.Get(), WrapRequest(slotId, command, request), command,
                    blockLength);
  }
  // The same through a device frame to the device `device`.
  CardResult CallDevice(const std::string& device, uint16_t command,
                        const frames::CardRequest& request) {
    return Exchange(client_, cipher_.Get(), WrapRequest(0, command, request, &device), command, 0);
  }
  // The wrapped request frame as it goes on the wire: in a slot frame, or a device frame when
  // `device` is given.
  frames::Bytes WrapRequest(uint32_t slotId, uint16_t command, const frames::CardRequest& request,
                            const std::string* device = nullptr);

 private:
  Client client_;
  frames::CipherOwner cipher_;
  bool ready_ = false;
};

// The slot of the scratch token.
uint32_t TokenSlot();

// Native view of the token, through the probe that the Windows tests use.
// Labels of the data objects whose CKA_APPLICATION is `application`.
std::vector<std::string> NativeDataLabels(const std::string& application);
// Creates a public CKO_DATA token object with that label and CKA_APPLICATION.
bool NativeCreateData(const std::string& label, const std::string& application);
// The `attribute` (as the probe names it: "modulus", "value") of the object of class
// `objectClass` with CKA_ID `id`; empty when there is none.
std::vector<uint8_t> NativeValue(CK_OBJECT_CLASS objectClass, const std::string& id,
                                 const char* attribute);


// Status values the service answers with.
inline constexpr uint32_t kNoMoreItems = 259;
inline constexpr uint32_t kNteBadData = 0x80090005;
inline constexpr uint32_t kNteNotFound = 0x80090011;
inline constexpr uint32_t kNteBadKeyset = 0x80090016;
inline constexpr uint32_t kNteNoKey = 0x8009000D;
inline constexpr uint32_t kNteBadFlags = 0x80090009;
inline constexpr uint32_t kScardInvalidChv = 0x8010002A;
inline constexpr uint32_t kScardChvBlocked = 0x8010006C;
inline constexpr uint32_t kScardNotAuthenticated = 0x8010006F;
inline constexpr uint32_t kScardReaderUnavailable = 0x80100017;
inline constexpr uint32_t kScardUnknownCard = 0x8010000D;
inline constexpr uint32_t kNteNotSupported = 0x80090029;

inline constexpr uint32_t kAtKeyExchange = 1;
inline constexpr uint32_t kAtSignature = 2;

class ServiceTest : public ::testing::Test {
 protected:
  // The module the service serves (SoftHSM2 when empty).
  virtual std::string Module() { return {}; }
  // The devices and cards the service presents (none when empty).
  virtual std::string CardConfig() { return {}; }
  void SetUp() override {
    service_ = std::make_unique<ServiceProcess>(Module(), CardConfig());
    ASSERT_TRUE(service_->ok()) << "the service did not start";
    slot_ = TokenSlot();
    ASSERT_NE(slot_, 0u);
  }

  // Every service ends cleanly on SIGTERM: exit status 0, so no crash and, in a sanitizer build,
  // no report.
  void TearDown() override {
    if (service_ && service_->ok()) {
      int status = service_->Terminate(10000);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
    }
  }

  std::unique_ptr<Channel> Open() {
    auto channel = std::make_unique<Channel>(service_->port());
    EXPECT_TRUE(channel->ready()) << "handshake failed";
    return channel;
  }
  CardResult Call(Channel& channel, uint16_t command, const frames::CardRequest& request = {},
                  size_t blockLength = 0) {
    CardResult result = channel.Call(slot_, command, request, blockLength);
    EXPECT_TRUE(result.transported) << "command 0x" << std::hex << command;
    EXPECT_EQ(result.command, frames::ResponseCommand(command));
    return result;
  }
  CardResult Text(Channel& channel, uint16_t command, const std::string& text,
                  const std::string& text2 = {}) {
    frames::CardRequest request;
    request.text = text;
    request.text2 = text2;
    return Call(channel, command, request);
  }
  // Logs the channel in with the user PIN.
  void Login(Channel& channel) {
    CardResult verified = Text(channel, frames::kCmdVerifyPin, kUserPin);
    ASSERT_EQ(verified.status, 0u);
    ASSERT_EQ(verified.response.value, 1u);
  }
  // Creates a container and returns its handle.
  uint32_t Create(Channel& channel, const std::string& name) {
    CardResult created = Text(channel, frames::kCmdCreateContainer, name);
    EXPECT_EQ(created.status, 0u);
    return created.response.value;
  }
  frames::CardRequest Key(uint32_t handle, uint32_t keySpec, frames::Bytes data = {}) {
    frames::CardRequest request;
    request.handle = handle;
    request.keySpec = keySpec;
    request.data = std::move(data);
    return request;
  }
  // Generates a 1024-bit pair and returns its public-key block.
  frames::PublicKeyBlock Generate(Channel& channel, uint32_t handle, uint32_t keySpec) {
    frames::CardRequest request = Key(handle, keySpec);
    request.bits = 1024;
    request.exponent = 65537;
    CardResult generated = Call(channel, frames::kCmdGenerateKeyPair, request);
    EXPECT_EQ(generated.status, 0u);
    return generated.response.publicKey;
  }

  std::unique_ptr<ServiceProcess> service_;
  uint32_t slot_ = 0;
};

}  // namespace nivra::cardtest
