// Slot names as the table records them from 64-byte blank-padded slot descriptions, and the
// lookup of a record by name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {
namespace {

std::string NameOf(const std::string& description) {
  CK_UTF8CHAR padded[64];
  std::memset(padded, ' ', sizeof(padded));
  std::memcpy(padded, description.data(), description.size());
  char name[kSlotNameChars + 1];
  std::memset(name, 'X', sizeof(name));
  CopySlotName(name, padded);
  return name;
}

TEST(SlotNames, OnlyTrailingBlanksAreCutAndAllSixtyFourBytesKept) {
  for (const std::string& description : {std::string("  two  words\t"), std::string(),
                                          std::string(63, 'b') + "c"}) {
    EXPECT_EQ(NameOf(description), description);
  }
}

// Without a module the refresh fails and the lookup walks the records as they are.
TEST(SlotNames, LookupMatchesExactlyFirstRecordFirstAndLongNamesByTheirLast64) {
  SlotTable& table = ModuleSlots();
  const std::string full(64, 'n');
  const char* names[] = {"", "Slot A", full.c_str(), ""};
  for (uint32_t i = 0; i < 4; ++i) std::strcpy(table.records[i].name, names[i]);
  table.count = 3;
  const struct {
    std::string name;
    int record;  // -1: not found
  } cases[] = {{"Slot A", 1},  {"slot A", -1}, {"Slot", -1},         {"", 0},
               {full, 2},      {"prefix" + full, 2}, {full.substr(1), -1}};
  for (const auto& c : cases) {
    P11Slot* found = FindSlotByName(c.name.c_str());
    EXPECT_EQ(found, c.record < 0 ? nullptr : &table.records[c.record]) << c.name;
  }
  std::strcpy(table.records[3].name, "beyond");
  EXPECT_EQ(FindSlotByName("beyond"), nullptr) << "records beyond the count are not searched";
  table.count = 0;
}

}  // namespace
}  // namespace nivra::pkcs11
