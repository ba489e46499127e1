// The file in which a program that listens on a free port (--listen HOST:0) tells its port to a
// script or test: written whole under a temporary name and then renamed, so that it appears
// complete or not at all.
#pragma once
#include <cstdint>
#include <string>

namespace nivra::cardservice {

bool WritePortFile(const std::string& path, uint16_t port);

}  // namespace nivra::cardservice
