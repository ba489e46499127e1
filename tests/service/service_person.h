// The card service that devices_fixture_start.sh started in a fixture folder (given by its Unix
// path), for tests of the provider under Wine: the folder's files, the test build's ports, one
// line to the control port and its answer (as tests/cardservice/service_control.sh sends it from a
// shell), and a person: a thread that answers a device's or card's confirmations.
#pragma once
#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

namespace nivra::servicetest {

inline std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// A file of the fixture folder, without its line end.
inline std::string FixtureFile(const std::string& dir, const std::string& name) {
  std::string text = ReadAll("Z:" + dir + "/" + name);
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
  return text;
}

// Points the test build of the provider (nivracsp_svctest.dll, loaded after this) at the
// fixture's service and service cards, and starts Winsock for ControlLine; false when the fixture
// has not started the service.
inline bool UseServiceFixture(const std::string& dir) {
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0) return false;
  const std::string port = FixtureFile(dir, "port");
  SetEnvironmentVariableA("NIVRA_TEST_SERVICE_PORT", port.c_str());
  SetEnvironmentVariableA("NIVRA_TEST_CARD_PORT", FixtureFile(dir, "card-port").c_str());
  return !port.empty();
}

// One line to the service's control port and its one-line answer (after UseServiceFixture).
inline std::string ControlLine(const std::string& dir, const std::string& line) {
  SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<u_short>(std::stoi(FixtureFile(dir, "control-port"))));
  std::string answer;
  if (connect(s, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) {
    const std::string sent = line + "\n";
    send(s, sent.data(), static_cast<int>(sent.size()), 0);
    char c = 0;
    while (recv(s, &c, 1, 0) == 1 && c != '\n') answer.push_back(c);
  }
  closesocket(s);
  return answer;
}

// Answers (`action`: confirm or refuse) every confirmation that `name` asks for while it lives.
class Person {
 public:
  Person(const std::string& dir, const std::string& action, const std::string& name)
      : thread_([this, dir, action, name] {
          while (!stop_) {
            const std::string pending = ControlLine(dir, "pending");
            if ((pending + " ").find(" " + name + " ") != std::string::npos &&
                ControlLine(dir, action + " " + name).rfind("ok", 0) == 0) {
              ++answered_;
            }
            Sleep(50);
          }
        }) {}
  ~Person() {
    stop_ = true;
    thread_.join();
  }
  int Answered() const { return answered_; }

 private:
  std::atomic<bool> stop_{false};
  std::atomic<int> answered_{0};
  std::thread thread_;
};

}  // namespace nivra::servicetest
