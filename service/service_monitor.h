// What the module's watcher thread needs from the local card service client.
#pragma once

namespace nivra::service {

constexpr unsigned short kServicePort = 45451;

// Probes the local card service on 127.0.0.1 (a connect with a short time-out); true when it
// answers.
bool ServiceProbe();

// Forgets the slots that the local card service published (closing their connections).
void ServiceClearSlots();

}  // namespace nivra::service
