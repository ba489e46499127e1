// nivra-card-service: the local card service. It publishes the slots of a native PKCS#11 module
// (SoftHSM2 by default; OpenSC's module for physical cards works the same way) to the Nivra
// provider over loopback TCP, keeps key containers on the tokens in the provider's own object
// format, and protects every slot channel with a session key of its own. Tokens of the module can
// also be presented as Bluetooth devices and as service cards (--cards), unlocked by a person on
// the control interface (--control).
//
//   nivra-card-service [--listen HOST:PORT] [--module PATH] [--port-file FILE] [--trace]
//                      [--cards FILE] [--control SOCKET|tcp:HOST:PORT|-] [--card-port PORT]
//                      [--control-port-file FILE]
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cardservice/card_service.h"
#include "cardservice/control_interface.h"
#include "cardservice/pkcs11_module.h"
#include "cardservice/port_file.h"
#include "cardservice/remote_cards.h"
#include "cardservice/service_log.h"
#include "cardservice/service_server.h"
#include "cardservice/socket_stream.h"

namespace {

using namespace nivra::cardservice;

constexpr uint16_t kDefaultPort = 45451;
constexpr char kDefaultHost[] = "127.0.0.1";

std::atomic<bool> g_stop{false};

void OnSignal(int) { g_stop = true; }

int Usage() {
  std::fprintf(stderr,
               "usage: nivra-card-service [--listen HOST:PORT] [--module PATH] [--port-file FILE]"
               " [--trace]\n"
               "                          [--cards FILE] [--control SOCKET|tcp:HOST:PORT|-]"
               " [--card-port PORT] [--control-port-file FILE]\n"
               "defaults: --listen %s:%u --module %s --card-port %u\n",
               kDefaultHost, kDefaultPort, kDefaultModulePath, kServiceCardPort);
  return 2;
}

void CatchStopSignals() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  sigemptyset(&action.sa_mask);
  sigaction(SIGTERM, &action, nullptr);
  sigaction(SIGINT, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);
}

}  // namespace

int main(int argc, char** argv) {
  std::string host = kDefaultHost, module = kDefaultModulePath, portFile, cardFile, control,
              controlPortFile;
  uint16_t port = kDefaultPort, cardPort = kServiceCardPort;
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--trace") {
      SetTracing(true);
      continue;
    }
    if (option == "--help" || i + 1 >= argc) return Usage();
    std::string value = argv[++i];
    if (option == "--listen") {
      if (!ParseListenAddress(value, &host, &port)) return Usage();
    } else if (option == "--module") {
      module = value;
    } else if (option == "--port-file") {
      portFile = value;
    } else if (option == "--cards") {
      cardFile = value;
    } else if (option == "--control") {
      control = value;
    } else if (option == "--control-port-file") {
      controlPortFile = value;
    } else if (option == "--card-port") {
      std::string ignored;
      if (!ParseListenAddress("127.0.0.1:" + value, &ignored, &cardPort) || cardPort == 0) {
        return Usage();
      }
    } else {
      return Usage();
    }
  }
  CatchStopSignals();

  std::string error;
  Pkcs11Module p11;
  if (!p11.Load(module, &error)) {
    std::fprintf(stderr, "nivra-card-service: %s\n", error.c_str());
    return 1;
  }
  CardService service(p11.functions(), p11.needsSerialising());
  std::vector<RemoteCardConfig> configs;
  RemoteCards cards;
  if (!cardFile.empty() && (!ReadCardConfig(cardFile, &configs, &error) ||
                            !cards.Load(p11.functions(), std::move(configs), &error))) {
    std::fprintf(stderr, "nivra-card-service: %s\n", error.c_str());
    return 1;
  }
  ServiceServer server(&service, &cards);
  ControlInterface controlInterface(&service, &cards);
  if (!server.Listen(host, port, &error) || !server.ListenCards(cardPort, &error) ||
      (!control.empty() && !controlInterface.Start(control, &error))) {
    std::fprintf(stderr, "nivra-card-service: %s\n", error.c_str());
    return 1;
  }
  for (RemoteCard* device : cards.OfKind(RemoteKind::kDevice)) {
    LogLine("device %s (\"%s\") on the token in slot %u", device->name().c_str(),
            device->config().display.c_str(), device->slotId());
  }
  // The control port first: a script that sees the service port may use both at once.
  if (!controlPortFile.empty() && !WritePortFile(controlPortFile, controlInterface.tcpPort())) {
    std::fprintf(stderr, "nivra-card-service: cannot write %s\n", controlPortFile.c_str());
    return 1;
  }
  if (!portFile.empty() && !WritePortFile(portFile, server.port())) {
    std::fprintf(stderr, "nivra-card-service: cannot write %s\n", portFile.c_str());
    return 1;
  }
  if (controlInterface.tcpPort() != 0) {
    LogLine("confirmations are answered on control port %u", controlInterface.tcpPort());
  } else if (!control.empty()) {
    LogLine("confirmations are answered on %s", control == "-" ? "standard input" : control.c_str());
  }
  LogLine("serving %s on %s:%u%s", module.c_str(), host.c_str(), server.port(),
          Tracing() ? " (tracing frames)" : "");
  server.Run(g_stop);
  controlInterface.Stop();
  LogLine("stopped");
  return 0;
}
