#pragma once
// The calling side of the forwarding link: one PKCS#11 call in explicit widths becomes one
// exchange with the helper.
#include "tools/p11wire/pkcs11_abi.h"
#include "tools/p11wire/wire_shapes.h"
#include "tools/p11wire/wire_transport.h"

namespace nivra::p11wire {

// What a call answers when the helper cannot be reached or its reply is malformed.
inline constexpr uint32_t kWireLinkFailure = CKR_DEVICE_ERROR;

class WireClient {
 public:
  explicit WireClient(WireTransport* transport) : transport_(transport) {}

  // Performs operation `op`. The reply's rv is kWireLinkFailure (and its other fields are
  // default) when the exchange failed.
  template <WireOp op>
  typename WireShape<op>::Reply Call(const typename WireShape<op>::Request& request) {
    typename WireShape<op>::Reply reply;
    std::vector<uint8_t> body;
    if (!transport_->Exchange(op, EncodeBody(request), &body) || !DecodeBody(body, &reply)) {
      reply = typename WireShape<op>::Reply();
      reply.rv = kWireLinkFailure;
    }
    return reply;
  }

 private:
  WireTransport* transport_;
};

}  // namespace nivra::p11wire
