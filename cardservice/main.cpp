// nivra-card-service: the local card service. It publishes the slots of a native PKCS#11 module
// (SoftHSM2 by default; OpenSC's module for physical cards works the same way) to the Nivra
// provider over loopback TCP, keeps key containers on the tokens in the provider's own object
// format, and protects every slot channel with a session key of its own.
//
//   nivra-card-service [--listen HOST:PORT] [--module PATH] [--port-file FILE] [--trace]
#include <signal.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>

#include "cardservice/card_service.h"
#include "cardservice/pkcs11_module.h"
#include "cardservice/port_file.h"
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
               "defaults: --listen %s:%u --module %s\n",
               kDefaultHost, kDefaultPort, kDefaultModulePath);
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
  std::string host = kDefaultHost, module = kDefaultModulePath, portFile;
  uint16_t port = kDefaultPort;
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
  ServiceServer server(&service);
  if (!server.Listen(host, port, &error)) {
    std::fprintf(stderr, "nivra-card-service: %s\n", error.c_str());
    return 1;
  }
  if (!portFile.empty() && !WritePortFile(portFile, server.port())) {
    std::fprintf(stderr, "nivra-card-service: cannot write %s\n", portFile.c_str());
    return 1;
  }
  LogLine("serving %s on %s:%u%s", module.c_str(), host.c_str(), server.port(),
          Tracing() ? " (tracing frames)" : "");
  server.Run(g_stop);
  LogLine("stopped");
  return 0;
}
