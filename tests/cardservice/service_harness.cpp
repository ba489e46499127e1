#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <thread>

#include "crypto/rsa_interface.h"
#include "service/frames/device_records.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/frame_header.h"
#include "service/frames/session_handshake.h"
#include "service/frames/slot_records.h"
#include "tests/cardservice/service_fixture.h"

namespace nivra::cardtest {
namespace {

constexpr auto kOk = frames::FrameStatus::kOk;
constexpr int kReceiveTimeoutSeconds = 30;
constexpr uint32_t kClientKeyBits = 1024;

std::string ReadText(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

// The service with these arguments, its output in `log`. A service that does not end hangs the
// test until CTest's time limit ends it.
pid_t Spawn(const std::vector<std::string>& args, const std::string& log) {
  std::vector<char*> argv = {const_cast<char*>(NIVRA_CARD_SERVICE)};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 1);
    dup2(fd, 2);
    execv(NIVRA_CARD_SERVICE, argv.data());
    _exit(127);
  }
  return pid;
}

}  // namespace

Client::Client(uint16_t port, const std::string& host) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  fd_ = socket(AF_INET, SOCK_STREAM, 0);
  timeval timeout = {kReceiveTimeoutSeconds, 0};
  setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd_);
    fd_ = -1;
  }
}

Client::~Client() {
  if (fd_ >= 0) close(fd_);
}

bool Client::Send(const frames::Bytes& bytes) {
  return send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool Client::Receive(frames::Bytes* frame) {
  const ssize_t header = frames::kHeaderSize;
  frame->resize(header);
  if (recv(fd_, frame->data(), header, MSG_WAITALL) != header) return false;
  const ssize_t body = frames::ReadHeader(frame->data()).bodyLength;
  frame->resize(header + body);
  return body == 0 || recv(fd_, frame->data() + header, body, MSG_WAITALL) == body;
}

std::string Client::Line() {
  std::string line;
  for (char c; recv(fd_, &c, 1, 0) == 1 && c != '\n';) line += c;
  return line;
}

bool Client::ClosedByService() {
  uint8_t byte;
  return recv(fd_, &byte, 1, 0) == 0;
}

CardResult Session::Call(uint16_t command, const frames::Bytes& frame, size_t blockLength) {
  CardResult result;
  frames::Bytes wrapped, answer, plain;
  if (frames::WrapFrame(cipher.Get(), frame.data(), frame.size(), &wrapped) != kOk ||
      !client.Send(wrapped) || !client.Receive(&answer) ||
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
              frames::BuildHello(key.Get(), &hello) == kOk && channel->client.Send(hello) &&
              channel->client.Receive(&answer) &&
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
  setenv("SOFTHSM2_CONF", (directory_ + "/softhsm2.conf").c_str(), 1);
  const std::string tokens = std::string("sh ") + NIVRA_SCRATCH_TOKENS + " " + directory_;
  ASSERT_EQ(std::system((tokens + " " + kTokenLabel).c_str()), 0);
  std::random_device random;
  std::uniform_int_distribution<int> byte(1, 250);
  const int last = byte(random);
  const std::string prefix = "127." + std::to_string(byte(random)) + "." +
                             std::to_string(byte(random)) + ".";
  const std::string token = std::string(" token=") + kTokenLabel + " pin=";
  desk_ = prefix + std::to_string(last);
  spare_ = prefix + std::to_string(last + 1);
  // phone-1 with limits configured and the token's user PIN, phone-2 with default limits and a
  // PIN that the token refuses.
  std::ofstream(directory_ + "/cards.conf")
      << "device phone-1" << token << kUserPin << " display=\"Anna's phone\" default-key=3072"
      << " min-key=2048 max-key=16384 key-step=1024 min-pin=6 max-pin=12 pin-flags=0x5\n"
      << "device phone-2" << token << "not-the-pin\n"
      << "card desk-1" << token << kUserPin << " key-bits=1024 address=" << desk_ << "\n"
      << "card desk-2" << token << kUserPin << " key-bits=1024 address=" << spare_ << "\n";
  pid_ = Spawn({"--listen", "127.0.0.1:0", "--port-file", directory_ + "/port", "--module",
                Module(), "--trace", "--cards", directory_ + "/cards.conf", "--control",
                "tcp:127.0.0.1:0", "--control-port-file", directory_ + "/control-port"},
               directory_ + "/service.log");
  // The service writes its port files once it listens (a rename, never half a number), the
  // control port's first.
  for (int i = 0; i < 600 && !(std::ifstream(directory_ + "/port") >> port_); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  ASSERT_NE(port_, 0) << "the service did not start: " << Log();
  std::ifstream(directory_ + "/control-port") >> controlPort_;
  // The scratch token's slot is the first the service publishes (SoftHSM2 lists its free slot
  // last).
  Client control(port_);
  frames::Bytes answer;
  size_t count = 0;
  std::vector<frames::SlotRecord> slots;
  ASSERT_TRUE(control.Send(frames::BuildSlotListRequest()) && control.Receive(&answer));
  ASSERT_EQ(frames::ParseSlotListBody(answer.data() + frames::kHeaderSize,
                                      answer.size() - frames::kHeaderSize, 1, &count, &slots),
            kOk);
  slot_ = slots.at(0).slotId;
}

void ServiceTest::TearDown() {
  if (pid_ > 0) {
    int status = Terminate();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "wait status " << status;
  }
  std::system(("rm -rf " + directory_).c_str());
}

int ServiceTest::Terminate() {
  int status = 0;
  kill(pid_, SIGTERM);
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return status;
}

int ServiceTest::Refused(const std::string& config, std::string* output) {
  const std::string cards = directory_ + "/refused.conf", log = directory_ + "/refused.log";
  std::ofstream(cards) << config;
  int status = 0;
  waitpid(Spawn({"--listen", "127.0.0.1:0", "--cards", cards}, log), &status, 0);
  *output = ReadText(log);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string ServiceTest::Log() const { return ReadText(directory_ + "/service.log"); }

std::string ServiceTest::Control(const std::string& line) const {
  Client control(controlPort_);
  frames::Bytes request(line.begin(), line.end());
  request.push_back('\n');
  return control.Send(request) ? control.Line() : "";
}

bool ServiceTest::NativeHas(const std::string& pattern) const {
  return std::system((std::string(NIVRA_TOKEN_PROBE) + " objects " + directory_ +
                      " | grep -q -E ' " + pattern + "( |$)'").c_str()) == 0;
}

}  // namespace nivra::cardtest
