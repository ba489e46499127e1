#include "cardservice/control_interface.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <sstream>

#include "cardservice/service_log.h"

namespace nivra::cardservice {

namespace {

constexpr int kPollStepMs = 100;
constexpr size_t kMaxLine = 256;
constexpr char kTcpPrefix[] = "tcp:";

bool WriteLine(int fd, const std::string& text) {
  std::string line = text + "\n";
  size_t sent = 0;
  while (sent < line.size()) {
    ssize_t n = write(fd, line.data() + sent, line.size() - sent);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

}  // namespace

std::string ControlCommand(CardService* service, RemoteCards* cards, const std::string& line) {
  std::istringstream words(line);
  std::string verb, name, extra;
  words >> verb >> name >> extra;
  if (verb == "pending" && name.empty()) {
    std::string answer = "ok";
    for (RemoteKind kind : {RemoteKind::kDevice, RemoteKind::kServiceCard}) {
      for (RemoteCard* card : cards->OfKind(kind)) {
        if (card->Pending()) answer += " " + card->name();
      }
    }
    return answer;
  }
  if ((verb != "confirm" && verb != "refuse") || name.empty() || !extra.empty()) {
    return "error: commands are 'confirm NAME', 'refuse NAME' and 'pending'";
  }
  RemoteCard* card = cards->FindAny(name);
  if (!card) return "error: no device or card is called " + name;
  std::string why;
  bool done = verb == "confirm" ? card->Confirm(service, &why) : card->Refuse(&why);
  return done ? "ok" : "error: " + why;
}

ControlInterface::~ControlInterface() { Stop(); }

void ControlInterface::Stop() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
  if (listenFd_ >= 0) {
    close(listenFd_);
    unlink(path_.c_str());
    listenFd_ = -1;
  }
}

bool ControlInterface::Start(const std::string& where, std::string* error) {
  if (where == "-") {
    thread_ = std::thread([this] { ServeStream(STDIN_FILENO, STDOUT_FILENO); });
    return true;
  }
  if (where.rfind(kTcpPrefix, 0) == 0) {
    std::string host;
    uint16_t port = 0;
    if (!ParseListenAddress(where.substr(sizeof kTcpPrefix - 1), &host, &port) ||
        !IsLoopbackAddress(host)) {
      *error = "the control port must be on a loopback address: " + where;
      return false;
    }
    if (!tcp_.Listen(host, port, error)) return false;
    thread_ = std::thread([this] { ServeTcp(); });
    return true;
  }
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (where.size() >= sizeof address.sun_path) {
    *error = "control socket path too long: " + where;
    return false;
  }
  std::strcpy(address.sun_path, where.c_str());
  listenFd_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  unlink(where.c_str());
  mode_t old = umask(0077);  // only the service's user may answer confirmations
  bool bound = listenFd_ >= 0 &&
               bind(listenFd_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
               listen(listenFd_, 4) == 0;
  umask(old);
  if (!bound) {
    *error = "cannot make the control socket " + where + ": " + std::strerror(errno);
    return false;
  }
  path_ = where;
  thread_ = std::thread([this] { ServeSocket(); });
  return true;
}

void ControlInterface::ServeSocket() {
  while (!stop_) {
    pollfd entry = {listenFd_, POLLIN, 0};
    if (poll(&entry, 1, kPollStepMs) <= 0) continue;
    int fd = accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    ServeStream(fd, fd);
    close(fd);
  }
}

void ControlInterface::ServeTcp() {
  while (!stop_) {
    std::string peer;
    int fd = tcp_.Accept(kPollStepMs, &peer);
    if (fd < 0) continue;
    ServeStream(fd, fd);
    close(fd);
  }
}

void ControlInterface::ServeStream(int in, int out) {
  std::string line;
  while (!stop_) {
    pollfd entry = {in, POLLIN, 0};
    if (poll(&entry, 1, kPollStepMs) <= 0) continue;
    char c;
    if (read(in, &c, 1) != 1) return;  // the client left (or standard input ended)
    if (c != '\n') {
      if (line.size() < kMaxLine) line += c;
      continue;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::string answer = ControlCommand(service_, cards_, line);
    LogLine("control: '%s' -> %s", line.c_str(), answer.c_str());
    line.clear();
    if (!WriteLine(out, answer)) return;
  }
}

}  // namespace nivra::cardservice
