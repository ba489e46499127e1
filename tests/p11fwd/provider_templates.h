#pragma once
// The attribute templates with which the provider generates RSA key pairs (9 public attributes,
// 8 private ones, in the provider's order; class, key type and bit count as 4-byte values), in
// wire form; the Windows tests point CK_ATTRIBUTEs at these 4-byte values.
#include <cstdint>
#include <string>
#include <vector>

#include "tests/p11fwd/wire_test_values.h"
#include "tools/p11wire/pkcs11_abi.h"

namespace nivra::p11test {

p11wire::WireTemplate ProviderPublicKeyTemplate(const std::string& id, uint32_t bits);
p11wire::WireTemplate ProviderPrivateKeyTemplate(const std::string& id);

}  // namespace nivra::p11test
