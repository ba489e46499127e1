#include <arpa/inet.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "crypto/rsa_interface.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

constexpr auto kOk = frames::FrameStatus::kOk;
constexpr int kReceiveTimeoutSeconds = 30;
constexpr uint32_t kClientKeyBits = 1024;

}  // namespace

Session::Session(uint16_t port, const std::string& host) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  fd_ = socket(AF_INET, SOCK_STREAM, 0);
  timeval timeout = {kReceiveTimeoutSeconds, 0};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address);
}

Session::~Session() { close(fd_); }

bool Session::Send(const frames::Bytes& bytes) {
  return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool Session::Receive(frames::Bytes* frame) {
  const ssize_t header = frames::kHeaderSize;
  frame->resize(header);
  if (recv(fd_, frame->data(), header, MSG_WAITALL) != header) return false;
  const ssize_t body = frames::ReadHeader(frame->data()).bodyLength;
  frame->resize(header + body);
  return body == 0 || recv(fd_, frame->data() + header, body, MSG_WAITALL) == body;
}

bool Session::ClosedByService() {
  uint8_t byte;
  return recv(fd_, &byte, 1, 0) == 0;
}

CardResult Session::Call(uint16_t command, const frames::Bytes& frame, size_t blockLength) {
  CardResult result;
  frames::Bytes wrapped, answer, plain;
  if (frames::WrapFrame(cipher.Get(), frame.data(), frame.size(), &wrapped) != kOk ||
      !Send(wrapped) || !Receive(&answer) ||
      frames::UnwrapFrame(cipher.Get(), answer.data(), answer.size(), &plain) != kOk) {
    return result;
  }
  frames::FrameHeader header = frames::ReadHeader(plain.data());
  result.status = header.status;
  result.transported =
      header.command == frames::ResponseCommand(command) &&
      (header.status != 0 ||
       frames::ParseCardResponse(command, plain.data() + frames::kHeaderSize, header.bodyLength,
                                 blockLength, &result.response) == kOk);
  return result;
}

frames::Bytes CardFrame(uint16_t command, const frames::CardRequest& request, uint32_t slot,
                        const std::string& device) {
  frames::Bytes inner, outer;
  frames::BuildCardRequest(command, request, &inner);
  if (device.empty()) {
    frames::BuildSlotFrame(slot, inner.data(), inner.size(), &outer);
  } else {
    frames::BuildDeviceFrame(device, inner.data(), inner.size(), &outer);
  }
  return outer;
}

std::unique_ptr<Session> ServiceTest::Open() {
  auto channel = std::make_unique<Session>(port_);
  frames::RsaOwner key;
  frames::Bytes hello, answer, secret;
  const uint8_t* encrypted = nullptr;
  const size_t k = kClientKeyBits / 8;
  EXPECT_TRUE(crypto::RsaGenerateNewKey(key.Out(), kClientKeyBits, 65537) == crypto::kOk &&
              frames::BuildHello(key.Get(), &hello) == kOk && channel->Send(hello) &&
              channel->Receive(&answer) &&
              frames::ParseSessionKeyFrame(answer.data(), answer.size(), k, &encrypted) == kOk &&
              frames::DecryptSessionSecret(key.Get(), encrypted, k, &secret) == kOk &&
              frames::OpenSessionSecret(secret.data(), secret.size(), channel->cipher.Out()) == kOk)
      << "handshake failed";
  return channel;
}

void ServiceTest::SetUp() {
  char pattern[] = "/tmp/nivra-cardservice-XXXXXX";
  ASSERT_NE(mkdtemp(pattern), nullptr);
  directory_ = pattern;
  service_ = directory_ + "/service";
  setenv("SOFTHSM2_CONF", (service_ + "/softhsm2.conf").c_str(), 1);
  // Addresses of this process's own (tests run one after another within it).
  const std::string prefix = "127." + std::to_string(1 + getpid() % 250) + "." +
                             std::to_string(1 + getpid() / 250 % 250) + ".";
  const std::string token = std::string(" token=") + kTokenLabel + " pin=";
  desk_ = prefix + "1";
  spare_ = prefix + "2";
  std::string output;
  ASSERT_EQ(Start(service_, "device phone-1" + token + kUserPin + "\n"
                  "card desk-1" + token + kUserPin + " key-bits=1024 address=" + desk_ + "\n"
                  "card desk-2" + token + kUserPin + " key-bits=1024 address=" + spare_ + "\n",
                  &output), 0) << output;
  std::ifstream(service_ + "/port") >> port_;
  // The scratch token's slot is the first the service publishes (SoftHSM2 lists its free slot
  // last).
  Session control(port_);
  frames::Bytes answer;
  size_t count = 0;
  std::vector<frames::SlotRecord> slots;
  ASSERT_TRUE(control.Send(frames::BuildSlotListRequest()) && control.Receive(&answer));
  ASSERT_EQ(frames::ParseSlotListBody(answer.data() + frames::kHeaderSize,
                                      answer.size() - frames::kHeaderSize, 1, &count, &slots),
            kOk);
  slot_ = slots.at(0).slotId;
}

int ServiceTest::Start(const std::string& directory, const std::string& config,
                       std::string* output) {
  std::ofstream(directory + ".conf") << config;
  FILE* script = popen(("NIVRA_CARD_MODULE=" + module_ + " sh " NIVRA_SERVICE_START " "
                        NIVRA_CARD_SERVICE " " + directory +
                        " '' " + directory + ".conf 2>&1").c_str(), "r");
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, script)) > 0;) output->append(buffer, n);
  return pclose(script);
}

void ServiceTest::TearDown() {
  EXPECT_TRUE(Stop()) << Log();
  std::system(("rm -rf " + directory_).c_str());
}

bool ServiceTest::Stop() {
  pid_t pid = 0;
  if (!(std::ifstream(service_ + "/service.pid") >> pid)) return true;  // stopped already
  std::remove((service_ + "/service.pid").c_str());
  kill(pid, SIGTERM);
  for (int waited = 0; kill(pid, 0) == 0; waited += 10) {
    if (waited > 10000) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const std::string log = Log();
  return log.find("stopped") != std::string::npos && log.find("Sanitizer") == std::string::npos &&
         log.find("runtime error") == std::string::npos;
}

std::string ServiceTest::Log() const {
  std::stringstream text;
  text << std::ifstream(service_ + "/service.log").rdbuf();
  return text.str();
}

bool ServiceTest::NativeHas(const std::string& pattern) const {
  return std::system((std::string(NIVRA_TOKEN_PROBE) + " objects " + service_ +
                      " | grep -q -E ' " + pattern + "( |$)'").c_str()) == 0;
}

}  // namespace nivra::cardtest
