// nivra-p11-helper: serves a native PKCS#11 module to the Windows forwarding module
// (nivrap11fwd.dll) over loopback TCP, and sends control commands to a running helper.
//
//   nivra-p11-helper [--listen HOST:PORT] [--module PATH] [--port-file FILE] [--vendor-class]
//   nivra-p11-helper --ctl HOST:PORT COMMAND [ARGUMENTS...]
//
// --vendor-class: objects of vendor-defined classes, which most modules refuse, are kept as
// marked data objects and shown with their class (off by default: the module answers them).
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "cardservice/port_file.h"
#include "tools/p11helper/dispatcher.h"
#include "tools/p11helper/helper_server.h"
#include "tools/p11helper/native_module.h"
#include "tools/p11wire/control_client.h"

namespace {

using namespace nivra;

std::atomic<bool> g_signalled{false};

void OnSignal(int) { g_signalled = true; }

int Usage() {
  std::fprintf(stderr,
               "usage: nivra-p11-helper [--listen HOST:PORT] [--module PATH] [--port-file FILE]\n"
               "                        [--vendor-class]\n"
               "       nivra-p11-helper --ctl HOST:PORT COMMAND [ARGUMENTS...]\n"
               "default: --listen 127.0.0.1:%u --module %s\n",
               p11wire::kWireDefaultPort, p11helper::kDefaultModulePath);
  return 2;
}

int RunControl(int argc, char** argv) {
  p11wire::WireAddress address;
  if (argc < 4 || !p11wire::ParseWireAddress(argv[2], &address)) return Usage();
  std::string command;
  for (int i = 3; i < argc; ++i) command += (i > 3 ? " " : "") + std::string(argv[i]);
  std::string answer;
  uint32_t rv = p11wire::SendControlCommand(address, command, &answer);
  if (!answer.empty()) std::printf("%s%s", answer.c_str(), answer.back() == '\n' ? "" : "\n");
  if (rv != 0) std::fprintf(stderr, "nivra-p11-helper: command refused (0x%x)\n", rv);
  return rv == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 2 && std::strcmp(argv[1], "--ctl") == 0) return RunControl(argc, argv);

  p11wire::WireAddress address{"127.0.0.1", p11wire::kWireDefaultPort};
  std::string module = p11helper::kDefaultModulePath;
  std::string portFile;
  bool vendorClass = false;
  for (int i = 1; i < argc; ++i) {
    std::string option = argv[i];
    if (option == "--vendor-class") {
      vendorClass = true;
      continue;
    }
    if (i + 1 >= argc) return Usage();
    std::string value = argv[++i];
    if (option == "--listen" && p11wire::ParseWireAddress(value, &address)) continue;
    if (option == "--module") {
      module = value;
      continue;
    }
    if (option == "--port-file") {
      portFile = value;
      continue;
    }
    return Usage();
  }

  std::string error;
  p11helper::NativeModule native;
  if (!native.Load(module, &error)) {
    std::fprintf(stderr, "nivra-p11-helper: %s\n", error.c_str());
    return 1;
  }
  p11helper::Dispatcher dispatcher(native.functions(), vendorClass);
  p11helper::HelperServer server(&dispatcher);
  if (!server.Listen(address, &error)) {
    std::fprintf(stderr, "nivra-p11-helper: %s\n", error.c_str());
    return 1;
  }
  address.port = server.port();
  if (!portFile.empty() && !cardservice::WritePortFile(portFile, address.port)) {
    std::fprintf(stderr, "nivra-p11-helper: cannot write %s\n", portFile.c_str());
    return 1;
  }
  std::signal(SIGINT, OnSignal);
  std::signal(SIGTERM, OnSignal);
  std::fprintf(stderr, "nivra-p11-helper: serving %s on %s\n", module.c_str(),
               p11wire::FormatWireAddress(address).c_str());
  server.Run(&g_signalled);
  return 0;
}
