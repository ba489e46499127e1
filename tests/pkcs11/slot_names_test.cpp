// Slot names as the table records them from 64-byte blank-padded slot descriptions, and the
// lookup of a record by name. (Short descriptions are trimmed and found in every token test.)
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "pkcs11/slot_table.h"

namespace nivra::pkcs11 {
namespace {

// Without a module the refresh fails and the lookup walks the records as they are. Record 2 is
// named from a description that fills all 64 bytes, with blanks inside and at the front.
TEST(SlotNames, LookupMatchesExactlyFirstRecordFirstAndLongNamesByTheirLast64) {
  SlotTable& table = ModuleSlots();
  const std::string full = "  " + std::string(61, 'n') + "\t";
  CK_UTF8CHAR description[64];
  std::memcpy(description, full.data(), sizeof description);
  std::strcpy(table.records[0].name, "");
  std::strcpy(table.records[1].name, "Slot A");
  CopySlotName(table.records[2].name, description);
  std::strcpy(table.records[3].name, "beyond");
  table.count = 3;
  const struct {
    std::string name;
    int record;  // -1: not found
  } cases[] = {{"Slot A", 1}, {"slot A", -1}, {"Slot", -1},          {"", 0},
               {full, 2},     {"prefix" + full, 2}, {full.substr(1), -1}, {"beyond", -1}};
  for (const auto& c : cases) {
    P11Slot* found = FindSlotByName(c.name.c_str());
    EXPECT_EQ(found, c.record < 0 ? nullptr : &table.records[c.record]) << c.name;
  }
  table.count = 0;
}

}  // namespace
}  // namespace nivra::pkcs11
