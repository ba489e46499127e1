#include "tools/p11wire/control_client.h"

namespace nivra::p11wire {

uint32_t SendControlCommand(const WireAddress& address, const std::string& command,
                            std::string* answer) {
  answer->clear();
  WireSocket socket;
  if (!WireSocket::Connect(address, &socket)) return kWireLinkFailure;
  ControlRequest request;
  request.command = command;
  std::vector<uint8_t> body;
  ControlReply reply;
  if (!ExchangeOnSocket(socket, WireOp::kControl, EncodeBody(request), &body) ||
      !DecodeBody(body, &reply))
    return kWireLinkFailure;
  *answer = reply.text;
  return reply.rv;
}

}  // namespace nivra::p11wire
