// The mode token: accepted for 5000 ms after its time stamp, refused before it, after it, with a
// payload length outside 1..4, and when its enciphered time stamp is touched; the flag both ways,
// masked under the time stamp.
#include <gtest/gtest.h>

#include "service/frames/mode_token.h"

namespace nivra::frames {
namespace {

constexpr uint64_t kIssued = 0x0000001234567890ull;

TEST(ModeToken, ValidOnlyWithinItsLifetimeAndUntouchedAndCarriesItsFlag) {
  struct Case { const char* what; bool flag; size_t at; uint8_t xorWith; uint64_t now; bool valid; };
  const Case cases[] = {
      {"at once", true, 0, 0, kIssued, true},
      {"flag clear", false, 0, 0, kIssued, true},
      {"5000 ms old", true, 0, 0, kIssued + 5000, true},
      {"5001 ms old", true, 0, 0, kIssued + 5001, false},
      {"issued in the future", true, 0, 0, kIssued - 1, false},
      {"time stamp touched", true, 7, 0x01, kIssued + 1, false},
      {"length 0", true, 0, 0x01, kIssued, false},    // the issued length is 1
      {"length 5", true, 0, 0x04, kIssued, false},
      {"length 4", true, 0, 0x05, kIssued, true},
  };
  for (const Case& c : cases) {
    uint8_t token[kModeTokenSize];
    ASSERT_TRUE(IssueModeToken(kIssued, c.flag, token));
    token[c.at] ^= c.xorWith;
    bool flag = !c.flag;
    EXPECT_EQ(ReadModeToken(token, c.now, &flag), c.valid) << c.what;
    if (c.valid) {
      EXPECT_EQ(flag, c.flag) << c.what;
    }
  }
  uint8_t set[kModeTokenSize];
  uint8_t later[kModeTokenSize];
  ASSERT_TRUE(IssueModeToken(kIssued, true, set));
  ASSERT_TRUE(IssueModeToken(kIssued + 1, true, later));
  EXPECT_NE(set[12], 1);  // the flag byte is masked, not plain
  EXPECT_NE(std::vector<uint8_t>(set + 4, set + 12), std::vector<uint8_t>(later + 4, later + 12));
}

}  // namespace
}  // namespace nivra::frames
