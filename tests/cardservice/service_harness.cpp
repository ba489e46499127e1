#include "tests/cardservice/service_fixture.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include "crypto/rsa_interface.h"
#include "service/frames/frame_cipher.h"
#include "service/frames/device_records.h"
#include "service/frames/slot_records.h"
#include "service/frames/session_handshake.h"

namespace nivra::cardtest {

namespace {

constexpr char kSoftHsmModule[] = "/usr/lib/softhsm/libsofthsm2.so";
constexpr int kReceiveTimeoutSeconds = 30;
constexpr uint32_t kClientKeyBits = 1024;

bool Run(const std::string& command) { return std::system(command.c_str()) == 0; }

std::string ReadText(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& module, const std::string& cardConfig) {
  char pattern[] = "/tmp/nivra-cardservice-XXXXXX";
  if (!mkdtemp(pattern)) return;
  directory_ = pattern;
  setenv("SOFTHSM2_CONF", (directory_ + "/softhsm2.conf").c_str(), 1);
  if (!Run(std::string("sh ") + NIVRA_SCRATCH_TOKENS + " " + directory_ + " " + kTokenLabel)) return;
  std::string portFile = directory_ + "/port", log = directory_ + "/service.log";
  pid_t pid = fork();
  if (pid == 0) {
    int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(fd, 1);
    dup2(fd, 2);
    std::string served = module.empty() ? kSoftHsmModule : module;
    std::string cards = directory_ + "/cards.conf", control = directory_ + "/control";
    std::vector<const char*> args = {NIVRA_CARD_SERVICE, "--listen", "127.0.0.1:0", "--port-file",
                                     portFile.c_str(), "--module", served.c_str(), "--trace"};
    if (!cardConfig.empty()) {
      std::ofstream(cards) << cardConfig;
      args.insert(args.end(), {"--cards", cards.c_str(), "--control", control.c_str()});
    }
    args.push_back(nullptr);
    execv(NIVRA_CARD_SERVICE, const_cast<char* const*>(args.data()));
    _exit(127);
  }
  pid_ = pid;
  for (int i = 0; i < 600; ++i) {
    std::ifstream in(portFile);
    unsigned port = 0;
    if (in >> port) {
      port_ = static_cast<uint16_t>(port);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(25));
  }
  Terminate(5000);
}

ServiceProcess::~ServiceProcess() {
  if (pid_ > 0) Terminate(10000);
  if (!directory_.empty()) Run("rm -rf " + directory_);
}

std::string ServiceProcess::Log() const { return ReadText(directory_ + "/service.log"); }

std::string ServiceProcess::Control(const std::string& line) const {
  int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  std::snprintf(address.sun_path, sizeof address.sun_path, "%s/control", directory_.c_str());
  std::string answer, request = line + "\n";
  char c;
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
      write(fd, request.data(), request.size()) == static_cast<ssize_t>(request.size())) {
    while (read(fd, &c, 1) == 1 && c != '\n') answer += c;
  }
  close(fd);
  return answer;
}

int ServiceProcess::StartWithConfig(const std::string& cardConfig, std::string* output) const {
  std::string cards = directory_ + "/refused.conf", log = directory_ + "/refused.log";
  std::ofstream(cards) << cardConfig;
  std::string command = std::string("timeout 20 ") + NIVRA_CARD_SERVICE +
                        " --listen 127.0.0.1:0 --cards " + cards + " >" + log + " 2>&1";
  int status = std::system(command.c_str());
  *output = ReadText(log);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int ServiceProcess::Terminate(int waitMs) {
  if (pid_ <= 0) return -1;
  kill(pid_, SIGTERM);
  for (int waited = 0; waited <= waitMs; waited += 10) {
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      return status;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
  return -1;
}

Client::Client(uint16_t port, const std::string& host) {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host.c_str(), &address.sin_addr);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return;
  }
  timeval timeout = {kReceiveTimeoutSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  fd_ = fd;
}

Client::~Client() {
  if (fd_ >= 0) close(fd_);
}

bool Client::SendRaw(const uint8_t* data, size_t length) {
  size_t sent = 0;
  while (sent < length) {
    ssize_t n = send(fd_, data + sent, length - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

bool Client::Receive(frames::Bytes* frame) {
  frame->resize(frames::kHeaderSize);
  size_t got = 0, wanted = frames::kHeaderSize;
  while (got < wanted) {
    ssize_t n = recv(fd_, frame->data() + got, wanted - got, 0);
    if (n <= 0) return false;
    got += static_cast<size_t>(n);
    if (got == frames::kHeaderSize && wanted == frames::kHeaderSize) {
      wanted += frames::ReadHeader(frame->data()).bodyLength;
      frame->resize(wanted);
    }
  }
  return true;
}

bool Client::ClosedByService() {
  uint8_t byte;
  return recv(fd_, &byte, 1, 0) == 0;
}

Channel::Channel(uint16_t port) : client_(port) {
  if (!client_.connected()) return;
  frames::RsaOwner key;
  frames::Bytes hello, answer, secret;
  if (crypto::RsaGenerateNewKey(key.Out(), kClientKeyBits, 65537) != crypto::kOk ||
      frames::BuildHello(key.Get(), &hello) != frames::FrameStatus::kOk || !client_.Send(hello) ||
      !client_.Receive(&answer)) {
    return;
  }
  const uint8_t* encrypted = nullptr;
  const size_t k = kClientKeyBits / 8;
  ready_ = frames::ParseSessionKeyFrame(answer.data(), answer.size(), k, &encrypted) ==
               frames::FrameStatus::kOk &&
           frames::DecryptSessionSecret(key.Get(), encrypted, k, &secret) ==
               frames::FrameStatus::kOk &&
           frames::OpenSessionSecret(secret.data(), secret.size(), cipher_.Out()) ==
               frames::FrameStatus::kOk;
}

frames::Bytes Channel::WrapRequest(uint32_t slotId, uint16_t command,
                                   const frames::CardRequest& request, const std::string* device) {
  frames::Bytes inner, outer, wrapped;
  frames::BuildCardRequest(command, request, &inner);
  if (device) {
    frames::BuildDeviceFrame(*device, inner.data(), inner.size(), &outer);
  } else {
    frames::BuildSlotFrame(slotId, inner.data(), inner.size(), &outer);
  }
  frames::WrapFrame(cipher_.Get(), outer.data(), outer.size(), &wrapped);
  return wrapped;
}

CardResult Exchange(Client& client, crypto::CipherHandle cipher, const frames::Bytes& wrapped,
                    uint16_t command, size_t blockLength) {
  CardResult result;
  frames::Bytes answer, plain;
  if (!client.Send(wrapped) || !client.Receive(&answer) ||
      frames::UnwrapFrame(cipher, answer.data(), answer.size(), &plain) !=
          frames::FrameStatus::kOk) {
    return result;
  }
  frames::FrameHeader header = frames::ReadHeader(plain.data());
  result.command = header.command;
  result.status = header.status;
  result.transported =
      header.status != 0 ||
      frames::ParseCardResponse(command, plain.data() + frames::kHeaderSize, header.bodyLength,
                                blockLength, &result.response) == frames::FrameStatus::kOk;
  return result;
}

// The slot whose token carries kTokenLabel (0 when none does).
uint32_t TokenSlot() {
  static CK_FUNCTION_LIST* p11 = [] {
    void* library = dlopen(kSoftHsmModule, RTLD_NOW | RTLD_LOCAL);
    CK_FUNCTION_LIST* functions = nullptr;
    reinterpret_cast<CK_C_GetFunctionList>(dlsym(library, "C_GetFunctionList"))(&functions);
    return functions;
  }();
  p11->C_Initialize(nullptr);
  CK_SLOT_ID slots[8], found = 0;
  CK_ULONG count = 8;
  p11->C_GetSlotList(CK_TRUE, slots, &count);
  for (CK_ULONG i = 0; i < count; ++i) {
    CK_TOKEN_INFO info;
    if (p11->C_GetTokenInfo(slots[i], &info) == CKR_OK &&
        std::string(reinterpret_cast<char*>(info.label), sizeof info.label).rfind(kTokenLabel, 0) == 0) {
      found = slots[i];
    }
  }
  p11->C_Finalize(nullptr);
  return static_cast<uint32_t>(found);
}

namespace {

std::string Hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char c : bytes) hex += {kDigits[c >> 4], kDigits[c & 15]};
  return hex;
}

std::vector<uint8_t> FromHex(const std::string& hex) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

// The scratch token's objects as the native probe of the Windows tests lists them: attribute
// name to value (byte strings in hex, numbers in decimal).
std::vector<std::map<std::string, std::string>> NativeObjects() {
  const std::string conf = std::getenv("SOFTHSM2_CONF");
  FILE* probe = popen((std::string(NIVRA_TOKEN_PROBE) + " objects " +
                       conf.substr(0, conf.rfind('/'))).c_str(), "r");
  std::string output;
  char buffer[4096];
  for (size_t n; (n = fread(buffer, 1, sizeof buffer, probe)) > 0;) output.append(buffer, n);
  pclose(probe);
  std::vector<std::map<std::string, std::string>> objects;
  std::istringstream lines(output);
  for (std::string line, word; std::getline(lines, line);) {
    std::istringstream words(line);
    if (!(words >> word) || word != "object") continue;
    objects.emplace_back();
    while (words >> word) objects.back()[word.substr(0, word.find('='))] = word.substr(word.find('=') + 1);
  }
  return objects;
}

}  // namespace

std::vector<std::string> NativeDataLabels(const std::string& application) {
  std::vector<std::string> labels;
  for (auto& object : NativeObjects()) {
    if (object["class"] == std::to_string(CKO_DATA) && object["application"] == Hex(application)) {
      auto label = FromHex(object["label"]);
      labels.emplace_back(label.begin(), label.end());
    }
  }
  return labels;
}

bool NativeCreateData(const std::string& label, const std::string& application) {
  return Run(std::string("pkcs11-tool --module ") + kSoftHsmModule + " --token-label " + kTokenLabel +
             " --login --pin " + kUserPin + " --write-object /dev/null --type data --label '" +
             label + "' --application-label '" + application + "' >/dev/null 2>&1");
}

std::vector<uint8_t> NativeValue(CK_OBJECT_CLASS objectClass, const std::string& id,
                                 const char* attribute) {
  for (auto& object : NativeObjects()) {
    if (object["class"] == std::to_string(objectClass) && object["id"] == Hex(id)) {
      return FromHex(object[attribute]);
    }
  }
  return {};
}

}  // namespace nivra::cardtest
