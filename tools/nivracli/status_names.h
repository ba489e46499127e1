// Names and short explanations of the status codes a CryptoAPI application meets with this
// provider, for messages a person can read.
#pragma once
#include <cstdint>
#include <string>

// "NTE_BAD_KEYSET (0x80090016): the key container does not exist or cannot be opened".
std::string DescribeStatus(uint32_t code);
