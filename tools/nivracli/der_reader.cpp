#include "der_reader.h"

namespace nivracli {

namespace {
constexpr BYTE kLongLengthFlag = 0x80;
constexpr size_t kMaxLengthBytes = 4;
}  // namespace

bool ReadDerElement(const std::vector<BYTE>& der, size_t pos, size_t end, DerElement* out) {
  if (end > der.size() || pos + 2 > end) return false;
  out->tag = der[pos];
  out->start = pos;
  size_t length = der[pos + 1];
  size_t header = 2;
  if (length & kLongLengthFlag) {
    const size_t bytes = length & ~static_cast<size_t>(kLongLengthFlag);
    if (bytes == 0 || bytes > kMaxLengthBytes || pos + 2 + bytes > end) return false;
    length = 0;
    for (size_t i = 0; i < bytes; ++i) length = (length << 8) | der[pos + 2 + i];
    header += bytes;
  }
  if (length > end - pos - header) return false;
  out->begin = pos + header;
  out->end = out->begin + length;
  return true;
}

std::vector<BYTE> DerWhole(const std::vector<BYTE>& der, const DerElement& e) {
  return std::vector<BYTE>(der.begin() + e.start, der.begin() + e.end);
}

std::vector<BYTE> DerContents(const std::vector<BYTE>& der, const DerElement& e) {
  return std::vector<BYTE>(der.begin() + e.begin, der.begin() + e.end);
}

}  // namespace nivracli
