#include "tools/p11wire/wire_buffer.h"

#include <cstring>

namespace nivra::p11wire {

void WireWriter::U8(uint8_t v) { out_.push_back(v); }

void WireWriter::U16(uint16_t v) {
  out_.push_back(static_cast<uint8_t>(v));
  out_.push_back(static_cast<uint8_t>(v >> 8));
}

void WireWriter::U32(uint32_t v) {
  for (int shift = 0; shift < 32; shift += 8) out_.push_back(static_cast<uint8_t>(v >> shift));
}

void WireWriter::U64(uint64_t v) {
  for (int shift = 0; shift < 64; shift += 8) out_.push_back(static_cast<uint8_t>(v >> shift));
}

void WireWriter::Raw(const uint8_t* data, size_t size) {
  if (size != 0) out_.insert(out_.end(), data, data + size);
}

void WireWriter::Bytes(const uint8_t* data, uint32_t size) {
  U32(size);
  Raw(data, size);
}

void WireWriter::Bytes(const std::vector<uint8_t>& v) {
  Bytes(v.data(), static_cast<uint32_t>(v.size()));
}

void WireWriter::Text(const std::string& s) {
  Bytes(reinterpret_cast<const uint8_t*>(s.data()), static_cast<uint32_t>(s.size()));
}

const uint8_t* WireReader::Take(size_t n) {
  if (!ok_ || n > size_ - pos_) {
    ok_ = false;
    return nullptr;
  }
  const uint8_t* p = data_ + pos_;
  pos_ += n;
  return p;
}

uint8_t WireReader::U8() {
  const uint8_t* p = Take(1);
  return p ? p[0] : 0;
}

uint16_t WireReader::U16() {
  const uint8_t* p = Take(2);
  return p ? static_cast<uint16_t>(p[0] | (p[1] << 8)) : 0;
}

uint32_t WireReader::U32() {
  const uint8_t* p = Take(4);
  if (!p) return 0;
  uint32_t v = 0;
  for (int i = 3; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

uint64_t WireReader::U64() {
  const uint8_t* p = Take(8);
  if (!p) return 0;
  uint64_t v = 0;
  for (int i = 7; i >= 0; --i) v = (v << 8) | p[i];
  return v;
}

bool WireReader::Bool() {
  uint8_t v = U8();
  if (v > 1) ok_ = false;
  return ok_ && v == 1;
}

void WireReader::Raw(uint8_t* out, size_t size) {
  const uint8_t* p = Take(size);
  if (p)
    std::memcpy(out, p, size);
  else if (size != 0)
    std::memset(out, 0, size);
}

std::vector<uint8_t> WireReader::Bytes() {
  uint32_t n = U32();
  const uint8_t* p = Take(n);
  if (!p) return {};
  return std::vector<uint8_t>(p, p + n);
}

std::string WireReader::Text() {
  std::vector<uint8_t> v = Bytes();
  return std::string(v.begin(), v.end());
}

uint32_t WireReader::Count(size_t minElementSize) {
  uint32_t n = U32();
  if (!ok_) return 0;
  if (minElementSize != 0 && n > remaining() / minElementSize) {
    ok_ = false;
    return 0;
  }
  return n;
}

}  // namespace nivra::p11wire
