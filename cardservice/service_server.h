// Accepts clients on the service port and on every service card's own address, and serves each
// connection on a thread of its own, so that a slow, stalled or broken client never holds up
// another.
#pragma once
#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "cardservice/card_service.h"
#include "cardservice/connection.h"
#include "cardservice/remote_cards.h"
#include "cardservice/socket_stream.h"

namespace nivra::cardservice {

// Connections served at once; further clients are turned away with a log line.
constexpr size_t kMaxConnections = 256;

class ServiceServer {
 public:
  ServiceServer(CardService* service, RemoteCards* cards) : service_(service), cards_(cards) {}
  // Stops and joins every connection thread.
  ~ServiceServer();

  bool Listen(const std::string& host, uint16_t port, std::string* error) {
    return listener_.Listen(host, port, error);
  }
  uint16_t port() const { return listener_.port(); }
  // Listens on each service card's address at `port`. False with a message.
  bool ListenCards(uint16_t port, std::string* error);

  // Serves until `stop` becomes true; then closes every connection and joins its thread.
  void Run(const std::atomic<bool>& stop);

 private:
  struct Served {
    std::unique_ptr<Connection> connection;
    std::thread thread;
    std::atomic<bool> finished{false};
  };
  void Reap();
  void Serve(int fd, const std::string& peer, RemoteCard* card);
  void CloseAll();

  CardService* service_;
  RemoteCards* cards_;
  Listener listener_;
  struct CardListener {
    explicit CardListener(RemoteCard* served) : card(served) {}
    RemoteCard* card;
    Listener listener;
  };
  std::list<CardListener> cardListeners_;
  std::atomic<bool> stopping_{false};
  std::list<std::unique_ptr<Served>> served_;
  uint32_t nextId_ = 1;
};

}  // namespace nivra::cardservice
