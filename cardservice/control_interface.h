// The service's control interface: where a person answers the confirmations that devices and
// cards ask for. Commands are lines of text, each answered with one line:
//
//   confirm NAME   unlock the device or card NAME (its pending confirmation)    -> "ok" / "error: ..."
//   refuse NAME    refuse its pending confirmation                              -> "ok" / "error: ..."
//   pending        the names with a confirmation pending, blank-separated      -> "ok NAME ..."
//
// It is read from a Unix-domain socket, from a loopback TCP port (one client at a time on either;
// the TCP form is for test programs that cannot reach a Unix-domain socket, such as Windows
// programs under Wine), or from standard input.
#pragma once
#include <atomic>
#include <string>
#include <thread>

#include "cardservice/card_service.h"
#include "cardservice/remote_cards.h"
#include "cardservice/socket_stream.h"

namespace nivra::cardservice {

// One command line's answer (without the line end).
std::string ControlCommand(CardService* service, RemoteCards* cards, const std::string& line);

class ControlInterface {
 public:
  ControlInterface(CardService* service, RemoteCards* cards) : service_(service), cards_(cards) {}
  ~ControlInterface();  // stops and joins the reader
  // Starts reading commands from `where`: "-" for standard input, "tcp:127.x.y.z:PORT" for a
  // loopback TCP port (0: a free one), else the path of a Unix-domain socket to make (an old one
  // is replaced; the socket is private to the service's user).
  bool Start(const std::string& where, std::string* error);
  // The TCP port listened on (0 for the other forms).
  uint16_t tcpPort() const { return tcp_.port(); }
  void Stop();

 private:
  void ServeSocket();
  void ServeTcp();
  void ServeStream(int in, int out);

  CardService* service_;
  RemoteCards* cards_;
  std::string path_;
  int listenFd_ = -1;
  Listener tcp_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace nivra::cardservice
