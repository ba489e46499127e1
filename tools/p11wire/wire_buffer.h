#pragma once
// Little-endian serialisation of fixed-width values for the PKCS#11 forwarding link.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nivra::p11wire {

// Largest frame body either side accepts; anything longer is treated as garbage.
inline constexpr uint32_t kWireMaxBody = 16u << 20;

// Appends values to a growing buffer, least significant byte first.
class WireWriter {
 public:
  void U8(uint8_t v);
  void U16(uint16_t v);
  void U32(uint32_t v);
  void U64(uint64_t v);
  void Bool(bool v) { U8(v ? 1 : 0); }
  // `size` bytes as they are, without a length (fixed-size fields such as blank-padded labels).
  void Raw(const uint8_t* data, size_t size);
  // A 32-bit length followed by the bytes.
  void Bytes(const uint8_t* data, uint32_t size);
  void Bytes(const std::vector<uint8_t>& v);
  void Text(const std::string& s);

  const std::vector<uint8_t>& Data() const { return out_; }
  std::vector<uint8_t> Take() { return std::move(out_); }

 private:
  std::vector<uint8_t> out_;
};

// Reads what WireWriter wrote, over a buffer that the caller keeps alive. Every read is
// bounds-checked: the first failure latches ok() to false and every later read yields zero or
// empty values, so a decoder checks ok() once at the end. Nothing is ever read past the buffer.
class WireReader {
 public:
  WireReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  explicit WireReader(const std::vector<uint8_t>& v) : WireReader(v.data(), v.size()) {}

  uint8_t U8();
  uint16_t U16();
  uint32_t U32();
  uint64_t U64();
  // A byte that must be 0 or 1; any other value fails the reader.
  bool Bool();
  // Copies `size` bytes into `out`; on failure `out` is zero-filled.
  void Raw(uint8_t* out, size_t size);
  // A 32-bit length and that many bytes; fails when the length exceeds what is left.
  std::vector<uint8_t> Bytes();
  std::string Text();
  // A count of elements of at least `minElementSize` bytes each that are still to follow; fails
  // (and yields 0) when the rest of the buffer cannot hold that many, so callers can reserve safely.
  uint32_t Count(size_t minElementSize);

  void Fail() { ok_ = false; }
  bool ok() const { return ok_; }
  size_t remaining() const { return ok_ ? size_ - pos_ : 0; }
  // True when every byte was consumed and nothing failed.
  bool AtEnd() const { return ok_ && pos_ == size_; }

 private:
  // Reserves `n` bytes and returns where they start, or null after failing the reader.
  const uint8_t* Take(size_t n);

  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
  bool ok_ = true;
};

}  // namespace nivra::p11wire
