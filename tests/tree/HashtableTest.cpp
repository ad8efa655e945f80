#include "tree/Hashtable.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>

namespace {

// Opens the buckets and pool counters, whose growth is fixed behaviour.
template <class T>
struct TProbe : T {
  using T::T;
  using T::Buckets;
  using T::Capacity;
  using T::ChunkLast;
  using T::ChunkSize;
  using T::ChunkUsed;
};
using TProbeHash = TProbe<THashtable>;
using TProbeIndex = TProbe<TIndextable>;

std::wstring Name(int i) { return L"n" + std::to_wstring(i); }

}  // namespace

class HashtableTest : public ::testing::Test {
protected:
  TProbeHash Table{8191};
};

TEST_F(HashtableTest, LookupAndCreate) {
  EXPECT_EQ(Table.Get(nullptr, 1), -1);
  EXPECT_EQ(Table.Get(L"a", 0), -1);
  EXPECT_EQ(Table.Get(L"", 1), 0);  // the empty text is a key, hash 0
  EXPECT_EQ(Table.Buckets[0], 0u);
  EXPECT_EQ(Table.Get(L"ab", 1), 1);
  EXPECT_EQ(Table.Buckets[4161], 1u);  // 'b' + ('a' - 32) * 63 - 32
  // Every split finds the same key, which is stored whole.
  EXPECT_EQ(Table.Get(L"", L"ab", 0), 1);
  EXPECT_EQ(Table.Get(L"x", L"yz", 1), 2);
  EXPECT_STREQ(Table.GetKey(2), L"xyz");
  std::wstring a(3000, L'p'), b(5000, L'q');  // far beyond any join buffer
  EXPECT_EQ(Table.Get(a.c_str(), b.c_str(), 1), 3);
  EXPECT_EQ(Table.GetKey(3), a + b);
  EXPECT_EQ(Table.Get((a + b.substr(0, 10)).c_str(), b.substr(10).c_str(), 0), 3);
  TProbeHash one(0);  // a single chain
  const wchar_t* keys[] = {L"abc", L"abd", L"ab", L"", L"abcd"};
  for (int i = 0; i < 10; i++) EXPECT_EQ(one.Get(keys[i % 5], 1), i % 5);
  EXPECT_EQ(one.Buckets[0], 0u);  // new keys go to the tail
}

TEST_F(HashtableTest, RemoveUnlinksButKeepsTheEntry) {
  THashtable one(0);
  for (int i = 0; i < 5; i++) one.Get(Name(i).c_str(), 1);
  one.Remove(L"n2");
  one.Remove(0);  // head
  one.Remove(-1);
  one.Remove(static_cast<const wchar_t*>(nullptr));
  for (int i : {0, 2}) EXPECT_EQ(one.Get(Name(i).c_str(), 0), -1);
  for (int i : {1, 3, 4}) EXPECT_EQ(one.Get(Name(i).c_str(), 0), i);
  EXPECT_STREQ(one.GetKey(2), L"n2");
  EXPECT_EQ(one.Get(L"n2", 1), 5);
  one.Remove(5);  // tail
  EXPECT_EQ(one.Get(L"n5", 1), 6);
  EXPECT_EQ(one.Get(L"n4", 0), 4);
}

TEST_F(HashtableTest, Values) {
  EXPECT_EQ(Table.GetValue(L"k", 1), nullptr);  // created, not yet set
  Table.SetValue(0, "first", 6);
  Table.SetValue(0, "second", 7);  // the first copy is freed (leak check)
  EXPECT_STREQ(static_cast<char*>(Table.GetValue(L"k", 0)), "second");
  Table.SetValue(Table.Get(L"gone", 1), "v", 2);
  Table.Remove(L"gone");
  Table.Remove(1);  // already unlinked: must not free twice
  EXPECT_EQ(Table.GetValue(1), nullptr);
  Table.Clear();
  Table.SetValue(Table.Get(L"new", 1), "kept", 5);  // freed by the destructor
  TNodetable nodes(1023);  // values not owned: forgotten, not freed, on removal
  nodes.SetNode(L"r1", reinterpret_cast<TNode*>(&nodes));  // never dereferenced
  nodes.Remove(L"r1");
  EXPECT_EQ(nodes.GetNode(0), nullptr);
}

TEST_F(HashtableTest, GrowthKeepsNumbersKeysAndPoolShape) {
  Table.Get(L"a", 1);  // 8 bytes, taken as 8 cells
  EXPECT_EQ(Table.ChunkSize, 256);
  const wchar_t* first = Table.GetKey(0);
  for (int i = 1; i < 31; i++) Table.Get(Name(i - 1).c_str(), L"", 1);
  // 8 + 10 * 12 + 7 * 16 = 240 cells; the next 16 reach 256 and open chunk 1.
  EXPECT_EQ(std::make_tuple(Table.ChunkUsed, Table.ChunkLast, Table.Capacity), std::make_tuple(13 * 16, 1, 32));
  for (int i = 31; i < 3000; i++) Table.Get(Name(i - 1).c_str(), 1);
  EXPECT_EQ(Table.Capacity, 4096);
  EXPECT_EQ(Table.GetKey(0), first);  // pool chunks never move
  for (int i = 1; i < 3000; i++) ASSERT_EQ(Table.Get(Name(i - 1).c_str(), 0), i);
  // 301 characters are 1204 cells: chunks of 256, 512, 1024 and 2048.
  TProbeHash fresh(255);
  EXPECT_EQ(fresh.Get(std::wstring(300, L'k').c_str(), 1), 0);
  EXPECT_EQ(std::make_tuple(fresh.ChunkLast, fresh.ChunkSize, fresh.ChunkUsed), std::make_tuple(3, 2048, 1204));
  // As if all 30 chunks were taken, or the next one were beyond 2^30 cells.
  TProbeHash full(255);
  std::tie(full.ChunkLast, full.ChunkSize, full.ChunkUsed) = std::make_tuple(29, 256, 250);
  EXPECT_EQ(full.Get(L"abc", 1), -1);
  std::tie(full.ChunkLast, full.ChunkSize, full.ChunkUsed) = std::make_tuple(22, 1 << 30, (1 << 30) - 10);
  EXPECT_EQ(full.Get(L"abc", L"def", 1), -1);
  EXPECT_EQ(full.GetCount(), 0);
}

class IndextableTest : public ::testing::Test {
protected:
  TProbeIndex Names{8191};
};

TEST_F(IndextableTest, ModesGiveSlotsInTwoSpaces) {
  EXPECT_EQ(Names.GetIndex(nullptr, 3), -1);
  const wchar_t* fixed[] = {L"#Name", L"#Type", L"#Text", L"id", L"Expanded", L"Def"};
  for (int i = 0; i < 6; i++) EXPECT_EQ(Names.GetIndex(fixed[i], 3), i << 16 | i);
  EXPECT_EQ(Names.GetIndex(L"Width", 1), int(0xFFFF0006));
  EXPECT_EQ(Names.GetName(0xFFFF0006, 2), nullptr);  // absent in FSpec form
  const int row = Names.GetIndex(L"Val", 2);
  EXPECT_EQ(row, 0x0006FFFF);
  EXPECT_EQ(Names.GetName(row, 1), nullptr);
  EXPECT_STREQ(Names.GetName(row, 0), L"Val");  // falls back on high
  // A later use adds the missing half; the two numbers are unrelated.
  EXPECT_EQ(Names.GetIndex(L"Width", 2), 0x00070006);
  EXPECT_STREQ(Names.GetName(0x00070006, 2), L"Width");
  EXPECT_EQ(Names.GetIdx(row), 7);
  EXPECT_EQ(Names.GetName(0x00500050, 0), nullptr);  // never handed out
  int joined = Names.GetIndex(L"Col", L"Type", 3);
  EXPECT_EQ(Names.GetIndex(L"ColType", 0), joined);
  EXPECT_EQ(Names.GetIndexN(L"ColTypeXYZ", 7, 0), joined);
  EXPECT_EQ(Names.GetIndexN(L"ColTyp", 6, 0), -1);
  wchar_t attr[] = {L'x', L'='};  // not terminated
  EXPECT_STREQ(Names.GetName(Names.GetIndexN(attr, 1, 1), 0), L"x");
  std::wstring a(4000, L'a'), b(4000, L'b');
  int longName = Names.GetIndex(a.c_str(), b.c_str(), 1);
  EXPECT_EQ(Names.GetIndexN((a + b + L"c").c_str(), 8000, 0), longName);
}

TEST_F(IndextableTest, EntriesAndSlotsRunOut) {
  const int maxSlot = TIndextable::MaxSlot, maxEntries = TIndextable::MaxEntries;
  // Past the last low slot a name is still entered, with no number.
  for (int i = 0; i < maxEntries; i++)
    ASSERT_EQ(Names.GetIndex(Name(i).c_str(), 1), i <= maxSlot ? int(0xFFFF0000u | i) : -1) << i;
  EXPECT_EQ(Names.GetIndex(L"one too many", 3), -1);
  EXPECT_EQ(Names.GetCount(), maxEntries);
  // An entry above 32767 still gets and reads back a high slot.
  EXPECT_EQ(Names.GetIndex(L"n40000", 2), 0x0000FFFF);
  EXPECT_EQ(Names.GetIdx(0x0000FFFF), 40000);
  EXPECT_STREQ(Names.GetName(0x0000FFFF, 0), L"n40000");
  for (int i = 0; i < maxSlot; i++) Names.GetIndex(Name(i).c_str(), 2);
  EXPECT_EQ(Names.GetIndex(L"n0", 0), 1 << 16);
  // The high space is full: the low half stays as it was.
  EXPECT_EQ(Names.GetIndex(Name(maxSlot).c_str(), 2), int(0xFFFF0000u | maxSlot));
  EXPECT_STREQ(Names.GetName(maxSlot << 16, 2), Name(maxSlot - 1).c_str());
}

TEST_F(IndextableTest, RemoveAndClearKeepSlotNumbers) {
  for (int i = 0; i < 100; i++) Names.GetIndex(Name(i).c_str(), 3);
  int old = 5 << 16 | 5;
  Names.Remove(old);
  EXPECT_EQ(Names.GetIndex(L"n5", 0), -1);
  EXPECT_STREQ(Names.GetName(old, 0), L"n5");  // the slot stays taken
  EXPECT_EQ(Names.GetIndex(L"n5", 3), 100 << 16 | 100);
  Names.Clear();
  EXPECT_EQ(Names.GetName(old, 0), nullptr);
  // Numbering goes on beyond the fresh table's first arrays.
  EXPECT_EQ(Names.GetIndex(L"a", 1), int(0xFFFF0000u | 101));
  EXPECT_EQ(Names.GetIndex(L"b", 2), 101 << 16 | 0xFFFF);
  TProbeIndex full(255);  // as if all 30 chunks were taken
  std::tie(full.ChunkLast, full.ChunkSize, full.ChunkUsed) = std::make_tuple(29, 256, 255);
  EXPECT_EQ(full.GetIndexN(L"abc", 3, 3), -1);
  EXPECT_EQ(full.GetCount(), 0);
}
