// The service's control interface: where a person answers the confirmations that devices and
// cards ask for. Commands are lines of text, each answered with one line:
//
//   confirm NAME   unlock the device or card NAME (its pending confirmation)    -> "ok" / "error: ..."
//   refuse NAME    refuse its pending confirmation                              -> "ok" / "error: ..."
//   pending        the names with a confirmation pending, blank-separated      -> "ok NAME ..."
//
// It is read from a Unix-domain socket (one client at a time) or from standard input.
#pragma once
#include <atomic>
#include <string>
#include <thread>

#include "cardservice/card_service.h"
#include "cardservice/remote_cards.h"

namespace nivra::cardservice {

// One command line's answer (without the line end).
std::string ControlCommand(CardService* service, RemoteCards* cards, const std::string& line);

class ControlInterface {
 public:
  ControlInterface(CardService* service, RemoteCards* cards) : service_(service), cards_(cards) {}
  ~ControlInterface();  // stops and joins the reader
  // Starts reading commands from `where`: "-" for standard input, else the path of a Unix-domain
  // socket to make (an old one is replaced; the socket is private to the service's user).
  bool Start(const std::string& where, std::string* error);
  void Stop();

 private:
  void ServeSocket();
  void ServeStream(int in, int out);

  CardService* service_;
  RemoteCards* cards_;
  std::string path_;
  int listenFd_ = -1;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace nivra::cardservice
