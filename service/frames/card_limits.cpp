#include "service/frames/card_limits.h"

#include "service/frames/byte_order.h"

namespace nivra::frames {

namespace {
constexpr size_t kLoadedOffset = 0;
constexpr size_t kDefaultOffset = 2;
constexpr size_t kMinOffset = 4;
constexpr size_t kMaxOffset = 6;
constexpr size_t kIncrementOffset = 8;
constexpr size_t kMinPinOffset = 10;
constexpr size_t kMaxPinOffset = 11;
constexpr size_t kPinFlagsOffset = 12;
}  // namespace

void WriteCardLimits(const CardLimits& limits, Bytes* out) {
  uint8_t body[kLimitsFullBody] = {};
  StoreLe16(body + kLoadedOffset, limits.loaded);
  StoreLe16(body + kDefaultOffset, limits.defaultBits);
  StoreLe16(body + kMinOffset, limits.minBits);
  StoreLe16(body + kMaxOffset, limits.maxBits);
  StoreLe16(body + kIncrementOffset, limits.incrementBits);
  body[kMinPinOffset] = limits.minPin;
  body[kMaxPinOffset] = limits.maxPin;
  StoreLe32(body + kPinFlagsOffset, limits.pinFlags);
  out->insert(out->end(), body, body + (limits.hasPinFlags ? kLimitsFullBody : kLimitsMinBody));
}

FrameStatus ReadCardLimits(const uint8_t* body, size_t len, CardLimits* limits) {
  if (len < kLimitsMinBody) return FrameStatus::kBadLength;
  limits->loaded = LoadLe16(body + kLoadedOffset);
  limits->defaultBits = LoadLe16(body + kDefaultOffset);
  limits->minBits = LoadLe16(body + kMinOffset);
  limits->maxBits = LoadLe16(body + kMaxOffset);
  limits->incrementBits = LoadLe16(body + kIncrementOffset);
  limits->minPin = body[kMinPinOffset];
  limits->maxPin = body[kMaxPinOffset];
  limits->hasPinFlags = len >= kLimitsFullBody;
  limits->pinFlags = limits->hasPinFlags ? LoadLe32(body + kPinFlagsOffset) : 0;
  return FrameStatus::kOk;
}

}  // namespace nivra::frames
