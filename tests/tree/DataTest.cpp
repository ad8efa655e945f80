// The packed attribute record: room and growth of the value area, slot
// widening, reading through to the base record, conversions, scratch ring,
// comparison, copying and merging.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tree/Data.h"
#include "tree/Node.h"
#include "tree/Tree.h"

namespace {

class DataTest : public ::testing::Test {
protected:
  void SetUp() override { TData::Initialize(); }
  void TearDown() override {
    for (TNode* n : made) TNode::Delete(n);
  }
  TNode* Make(const wchar_t* name = L"r") {
    TNode* n = tree.CreateElement(name);
    made.push_back(n);
    return n;
  }
  // A name entered at tree level: on a fresh tree it gets the same slot
  // number in both spaces, 6 for the first one.
  int Idx(const wchar_t* name) { return tree.GetIndex(name, 1); }

  TTree tree;
  std::vector<TNode*> made;
};

TEST_F(DataTest, NewRecordReadsEverythingAsAbsent) {
  TNode* n = Make(nullptr);
  const int a = Idx(L"A");
  EXPECT_EQ(n->GetInt(a), 0);
  EXPECT_EQ(n->GetDouble(a), 0.0);
  EXPECT_STREQ(n->GetString(a), L"");
  EXPECT_FALSE(n->Has(a));
  // -1 is no name: absent for getters, refused by setters.
  EXPECT_EQ(n->GetIndex(L"Unknown", 0), -1);
  EXPECT_EQ(n->SetInt(-1, 5), -1);
  EXPECT_EQ(n->SetType(-1, TString, 8), -1);
  EXPECT_EQ(n->SlotCount, 0);
}

TEST_F(DataTest, StringRoomIsThePowerOfTwoStrictlyAboveTheSize) {
  TNode* n = Make(L"r");  // "r" with its terminator is 8 bytes: room 16
  EXPECT_EQ(n->GetLength(INameIndex), 16);
  EXPECT_EQ(n->Used, 16);
  EXPECT_EQ(n->Capacity, 32);
  EXPECT_EQ(n->SlotCount, 8);
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  n->SetString(a, L"");
  EXPECT_EQ(n->GetLength(a), 8);
  n->SetString(b, L"x");
  EXPECT_EQ(n->GetLength(b), 16);
  n->SetString(c, L"abc");  // exactly 16 bytes
  EXPECT_EQ(n->GetLength(c), 32);
  const int used = n->Used, pos = n->GetPos(c, TString);
  n->SetString(c, L"ab");
  EXPECT_EQ(n->GetPos(c, TString), pos);
  EXPECT_EQ(n->Used, used);
  EXPECT_STREQ(n->GetString(c), L"ab");
  n->SetString(c, L"abcdef", 3);
  EXPECT_STREQ(n->GetString(c), L"abc");
  n->SetStringMax(c, L"abcdef", 2);
  EXPECT_STREQ(n->GetString(c), L"ab");
}

TEST_F(DataTest, OtherTypeKeepsTheRoomWhileNullGivesItUp) {
  TNode* n = Make();
  const int a = Idx(L"A");
  n->SetString(a, L"abcdef");  // 28 bytes, room 32
  const int pos = n->GetPos(a, TString), used = n->Used;
  EXPECT_EQ(n->SetInt(a, 5), 5);
  EXPECT_EQ(n->GetPos(a, TInt), pos);
  EXPECT_EQ(n->GetPos(a, TString), -1);
  EXPECT_EQ(n->GetLength(a), 32);
  n->SetString(a, L"abcdefg");  // 32 bytes fit the kept room
  EXPECT_EQ(n->GetPos(a, TString), pos);
  EXPECT_EQ(n->Used, used);
  n->SetNull(a);
  EXPECT_FALSE(n->Has(a));
  EXPECT_EQ(n->Used, used);
  n->SetString(a, L"abcdefg");  // a null slot has no room: appended
  EXPECT_EQ(n->GetPos(a, TString), used);
  EXPECT_EQ(n->Used, used + 64);
  EXPECT_STREQ(n->GetString(a), L"abcdefg");
}

TEST_F(DataTest, GrowingValueMovesTheLaterValuesDown) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B");
  n->SetString(a, L"ab");  // room 16 at 16
  n->SetInt(b, 7);         // at 32
  EXPECT_EQ(n->GetPos(b, TInt), 32);
  n->SetString(a, L"abcdefgh");  // 36 bytes: taken out, appended with room 64
  EXPECT_EQ(n->GetPos(b, TInt), 16);
  EXPECT_EQ(n->GetPos(a, TString), 20);
  EXPECT_EQ(n->Used, 84);
  EXPECT_EQ(n->GetInt(b), 7);
  EXPECT_STREQ(n->GetString(a), L"abcdefgh");
}

TEST_F(DataTest, CapacityGrowthCountsTheNewSizeTwice) {
  TNode* n = Make();                 // Used 16, Capacity 32
  const std::wstring s(29, L'x');    // 120 bytes, room 128
  n->SetString(Idx(L"A"), s.c_str());
  EXPECT_EQ(n->Used, 144);
  EXPECT_EQ(n->Capacity, 512);       // 144 + 120 exceeds 256
  EXPECT_EQ(n->SlotWidth, 4);        // reaching 512 widens the slots
  EXPECT_EQ(n->GetString(Idx(L"A")), s);
  EXPECT_STREQ(n->GetName(), L"r");
}

TEST_F(DataTest, SlotTableGrowsToTheNextMultipleOfFour) {
  TNode* n = Make();
  EXPECT_EQ(n->SlotCount, 8);
  n->SetByte(8, 1);
  EXPECT_EQ(n->SlotCount, 12);
  n->SetByte(13, 2);
  EXPECT_EQ(n->SlotCount, 16);
  EXPECT_EQ(n->GetInt(13), 2);
  EXPECT_EQ(n->GetTypeBase(40), TNone);
  TNode* row = Make(L"I");
  row->Flags |= FSpec;
  row->SetByte((10 << 16) | 0xFFFF, 3);  // a row takes the high half
  EXPECT_EQ(row->SlotCount, 12);
  EXPECT_EQ(row->GetInt(10 << 16), 3);
}

TEST_F(DataTest, TableWidensOnceAndKeepsPositions) {
  TNode* n = Make();
  std::vector<int> idx;
  for (int i = 0; i < 15; i++) {
    idx.push_back(Idx((L"S" + std::to_wstring(i)).c_str()));
    n->SetString(idx[i], L"ab");  // room 16 each
  }
  EXPECT_EQ(n->Used, 256);
  EXPECT_EQ(n->Capacity, 256);
  EXPECT_EQ(n->SlotWidth, 2);
  const int x = Idx(L"X");
  n->SetInt(x, 123456);  // its position 256 needs the wide form
  EXPECT_EQ(n->SlotWidth, 4);
  EXPECT_EQ(n->Capacity, 512);
  EXPECT_EQ(n->GetPos(x, TInt), 256);
  EXPECT_EQ(n->GetInt(x), 123456);
  for (int i = 0; i < 15; i++) {
    EXPECT_EQ(n->GetPos(idx[i], TString), 16 + 16 * i);
    EXPECT_EQ(n->GetLength(idx[i]), 16);
    EXPECT_STREQ(n->GetString(idx[i]), L"ab");
  }
  n->SetNull(x);
  EXPECT_EQ(n->SlotWidth, 4);
}

TEST_F(DataTest, RowReadsItsOwnHalfAndFallsThroughToItsBase) {
  TNode* def = Make(L"D");
  TNode* row = Make(L"I");
  row->Flags |= FSpec;
  row->Base = def;
  def->SetInt(L"X", 5);  // a layout record gives the name a low slot only
  const int x = tree.GetIndex(L"X", 0);
  EXPECT_EQ(x >> 16 & 0xFFFF, 0xFFFF);
  EXPECT_EQ(row->GetInt(x), 5);
  EXPECT_EQ(row->GetIntBase(x), 0);
  EXPECT_TRUE(row->Has(x));
  EXPECT_FALSE(row->HasBase(x));
  row->SetInt(L"X", 9);  // now the name gets its high slot
  const int x2 = tree.GetIndex(L"X", 0);
  EXPECT_NE(x2 >> 16 & 0xFFFF, 0xFFFF);
  EXPECT_EQ(x2 & 0xFFFF, x & 0xFFFF);
  EXPECT_EQ(row->GetInt(x2), 9);
  EXPECT_EQ(def->GetInt(x2), 5);
  // Only one level of Base is followed.
  TNode* top = Make(L"T");
  top->SetString(L"Y", L"y");
  def->Base = top;
  EXPECT_STREQ(def->GetString(L"Y"), L"y");
  EXPECT_STREQ(row->GetString(L"Y"), L"");
}

TEST_F(DataTest, NumbersAndTextsConvertByStoredType) {
  TNode* n = Make();
  const int a = Idx(L"A");
  n->SetInt(a, 7);
  EXPECT_STREQ(n->GetString(a), L"7");
  n->SetByte(a, -5);
  EXPECT_EQ(n->GetTypeBase(a), TByte);
  EXPECT_EQ(n->GetInt(a), -5);
  EXPECT_EQ(n->GetDouble(a), -5.0);
  EXPECT_STREQ(n->GetString(a), L"-5");
  n->SetString(a, L"12abc");
  EXPECT_EQ(n->GetInt(a), 12);
  n->SetString(a, L"2.5e1x");
  EXPECT_EQ(n->GetDouble(a), 25.0);
  EXPECT_EQ(n->GetInt(a), 2);
  n->SetDouble(a, 2.9);
  EXPECT_EQ(n->GetInt(a), 2);
  n->SetDouble(a, -2.9);
  EXPECT_EQ(n->GetInt(a), -2);
  n->SetDouble(a, 0.123456);
  EXPECT_STREQ(n->GetString(a), L"0.1235");
  tree.Precision = 100;
  n->SetDouble(a, 2.125);
  EXPECT_STREQ(n->GetString(a), L"2.13");
  n->SetInt(a, 3);
  EXPECT_EQ(n->GetDouble(a), 3.0);
}

TEST_F(DataTest, ArrayIsCarriedButNotConverted) {
  TNode* def = Make(L"D");
  TNode* row = Make(L"I");
  row->Base = def;
  const int a = Idx(L"A");
  def->SetInt(a, 4);
  const int used = row->Used;
  const int items[2] = {10, 20};
  row->SetArray(a, items, 2);
  EXPECT_EQ(row->GetTypeBase(a), TArray);
  EXPECT_EQ(row->Used, used + 12);
  EXPECT_EQ(row->GetLength(a), 4);  // size class 2 whatever the count
  int got[3];
  memcpy(got, row->GetArrayBase(a), sizeof got);
  EXPECT_EQ(got[0], 2);
  EXPECT_EQ(got[1], 10);
  EXPECT_EQ(got[2], 20);
  EXPECT_EQ(row->GetIntBase(a), 0);
  // The plain getters read the base for a type they can't convert.
  EXPECT_EQ(row->GetInt(a), 4);
  EXPECT_STREQ(row->GetString(a), L"4");
}

TEST_F(DataTest, BufferFormCutsLongStringsOnly) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  n->SetString(a, L"abcd");  // room 32
  wchar_t buf[64];
  EXPECT_EQ(n->GetStringBase(a, buf, 3), 3);  // one more than written
  EXPECT_STREQ(buf, L"ab");
  EXPECT_EQ(n->GetStringBase(a, buf, 0), 4);
  EXPECT_STREQ(buf, L"abcd");
  EXPECT_EQ(n->GetStringBase(a, buf, 4), 4);
  EXPECT_STREQ(buf, L"abcd");
  n->SetInt(b, 12345);  // numbers ignore the limit
  EXPECT_EQ(n->GetStringBase(b, buf, 2), 5);
  EXPECT_STREQ(buf, L"12345");
  buf[0] = L'z';
  EXPECT_EQ(n->GetStringBase(c, buf, 10), 0);
  EXPECT_STREQ(buf, L"");
  EXPECT_EQ(n->GetStringBase(c, nullptr, 10), 0);
  TNode* row = Make(L"I");
  row->Base = n;
  EXPECT_EQ(row->GetString(a, buf, 0), 4);
  EXPECT_STREQ(buf, L"abcd");
  EXPECT_EQ(row->GetStringBase(a, buf, 0), 0);
}

TEST_F(DataTest, ToStringRoundsToThePrecision) {
  const struct { double value; int precision; const wchar_t* text; } cases[] = {
      {0, 10000, L"0"},          {0.00001, 10000, L"1e-05"},   {-0.00001, 10000, L"-1e-05"},
      {-0.5, 10000, L"-0.5"},    {1.99999, 10000, L"2"},       {-0.99999, 10000, L"-1"},
      {1.0005, 10000, L"1.0005"}, {1e18, 10000, L"1e+18"},     {-1e18, 10000, L"-1e+18"},
      {1e17, 10000, L"100000000000000000"},                    {0.05, 10000, L"0.05"},
      {-0.05, 10000, L"-0.05"},  {-1.5, 10000, L"-1.5"},       {123456.25, 10000, L"123456.25"},
      {0.0001, 10000, L"0.0001"}, {0.125, 100, L"0.13"},       {1234.5678, 100, L"1234.57"},
      {2.5, 1, L"3"},            {-7, 10000, L"-7"},
  };
  for (const auto& c : cases) {
    wchar_t buf[128];
    wmemset(buf, L'#', 128);
    const wchar_t* end = TData::ToString(c.value, buf, c.precision);
    EXPECT_STREQ(buf, c.text) << c.value;
    EXPECT_EQ(end, buf + wcslen(buf)) << c.value;
  }
}

TEST_F(DataTest, ScratchRingWrapsToItsStart) {
  TNode* n = Make();
  wchar_t* start = tree.Tmp;
  tree.TmpPos = start;
  EXPECT_EQ(n->GetTmp(100), start);
  EXPECT_EQ(n->GetTmp(10), start + 101);
  EXPECT_EQ(tree.TmpPos, start + 112);
  // The call that reaches the end mark gets the start; so does the next one.
  EXPECT_EQ(n->GetTmp(16300), start);
  EXPECT_EQ(tree.TmpPos, start);
  EXPECT_EQ(n->GetTmp(5), start);
  EXPECT_EQ(n->GetTmp(5), start + 6);
  tree.TmpPos = start;
  EXPECT_EQ(n->GetTmp(TTree::TmpSize - 2), start);  // one cell short of the mark
  EXPECT_EQ(tree.TmpPos, start + TTree::TmpSize - 1);
  tree.TmpPos = start;
  EXPECT_EQ(n->GetTmp(TTree::TmpSize - 1), start);  // exactly up to the mark
  EXPECT_EQ(tree.TmpPos, start);
}

TEST_F(DataTest, CompareNeedsEqualTypesAndValues) {
  TNode* x = Make(L"x");
  TNode* y = Make(L"y");
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  EXPECT_TRUE(x->Compare(a, y, a));  // both absent
  x->SetInt(a, 7);
  y->SetByte(b, 7);
  EXPECT_FALSE(x->Compare(a, y, b));  // integer and byte differ in type
  y->SetInt(b, 7);
  EXPECT_TRUE(x->Compare(a, y, b));
  x->SetString(c, L"q");
  y->SetString(c, L"Q");
  EXPECT_FALSE(x->Compare(c, y, c));
  x->SetDouble(a, 0.1 + 0.2);
  y->SetDouble(b, 0.3);
  EXPECT_FALSE(x->Compare(a, y, b));
  y->SetDouble(b, 0.1 + 0.2);
  EXPECT_TRUE(x->Compare(a, y, b));
  const int items[1] = {1};
  x->SetArray(b, items, 1);
  y->SetArray(a, items, 1);
  EXPECT_FALSE(x->Compare(b, y, a));
  TNode* row = Make(L"I");
  row->Base = y;
  y->SetString(c, L"q");
  EXPECT_TRUE(row->Compare(c, x, c));
}

TEST_F(DataTest, CmpStringComparesTheText) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  n->SetInt(a, 7);
  EXPECT_TRUE(n->CmpString(a, L"7"));
  EXPECT_FALSE(n->CmpString(a, L"07"));
  EXPECT_FALSE(n->CmpString(a, nullptr));
  EXPECT_TRUE(n->CmpString(c, L""));
  n->SetString(b, L"Yes");
  EXPECT_TRUE(n->CmpString(b, L"No", L"Yes"));
  EXPECT_TRUE(n->CmpString(b, L"a", L"b", L"c", L"d", L"Yes"));
  EXPECT_FALSE(n->CmpString(b, L"a", L"yes"));
}

TEST_F(DataTest, CopyModes) {
  TNode* src = Make(L"S");
  TNode* dst = Make(L"T");
  TNode* def = Make(L"D");
  src->Base = def;
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  src->SetInt(a, 5);
  dst->SetString(a, L"x");
  dst->Copy(a, src, a, 0, false);  // mode 0 keeps an own value
  EXPECT_STREQ(dst->GetString(a), L"x");
  dst->Copy(a, src, a, 1, false);
  EXPECT_EQ(dst->GetTypeBase(a), TInt);
  EXPECT_EQ(dst->GetInt(a), 5);
  dst->SetString(b, L"keep");  // the source has no B
  dst->Copy(b, src, b, 1, false);
  dst->Copy(b, src, b, 0, false);
  EXPECT_STREQ(dst->GetString(b), L"keep");
  dst->Copy(b, src, b, 2, false);
  EXPECT_FALSE(dst->Has(b));
  def->SetDouble(c, 1.5);  // only the source's base has C
  dst->Copy(c, src, c, 1, false);
  EXPECT_FALSE(dst->Has(c));
  dst->Copy(c, src, c, 1, true);
  EXPECT_EQ(dst->GetTypeBase(c), TDouble);
  EXPECT_EQ(dst->GetDouble(c), 1.5);
  const int items[1] = {3};
  src->SetArray(b, items, 1);
  dst->Copy(b, src, b, 1, false);
  EXPECT_FALSE(dst->Has(b));
}

TEST_F(DataTest, MergeCopiesFromTheIdUpward) {
  TNode* src = Make(L"S");
  TNode* dst = Make(L"T");
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C"), d = Idx(L"D2");
  src->SetString(IIdIndex, L"7");
  src->SetString(ITextIndex, L"text");
  src->SetInt(a, 1);
  src->SetInt(b, 2);
  dst->SetInt(b, 9);
  dst->Merge(src, 0);
  EXPECT_STREQ(dst->GetName(), L"T");
  EXPECT_FALSE(dst->Has(ITextIndex));
  EXPECT_STREQ(dst->GetId(), L"7");
  EXPECT_EQ(dst->GetInt(a), 1);
  EXPECT_EQ(dst->GetInt(b), 9);
  dst->Merge(src, 1);
  EXPECT_EQ(dst->GetInt(b), 2);
  const int items[2] = {4, 5};
  src->SetArray(c, items, 2);
  src->SetArray(d, items, 0);  // an empty array is not merged
  dst->Merge(src, 1);
  EXPECT_EQ(dst->GetTypeBase(c), TArray);
  EXPECT_FALSE(dst->HasBase(d));
}

TEST_F(DataTest, MergeTranslatesNamesBetweenTreesAndSpaces) {
  TTree other;
  other.GetIndex(L"Z", 1);  // the numbering differs between the trees
  TNode* src = other.CreateElement(L"S");
  src->SetString(L"A", L"a");
  src->SetInt(L"B", 2);
  TNode* dst = Make(L"T");
  dst->Merge(src, 1);
  EXPECT_STREQ(dst->GetString(L"A"), L"a");
  EXPECT_EQ(dst->GetInt(L"B"), 2);
  EXPECT_STREQ(dst->GetName(), L"T");
  TNode::Delete(src);
  // Into a high-space row of the same tree: the name gets its high slot.
  TNode* layout = Make(L"C");
  layout->SetString(L"L", L"l");
  TNode* row = Make(L"I");
  row->Flags |= FSpec;
  row->Merge(layout, 1);
  EXPECT_STREQ(row->GetString(L"L"), L"l");
  EXPECT_NE(tree.GetIndex(L"L", 0) >> 16 & 0xFFFF, 0xFFFF);
}

TEST_F(DataTest, MergeFromAHighSpaceSourceWritesOverTheName) {
  // Names of a high-space source are looked up by the plain slot number, which
  // reads high slot 0: every value lands on the target's name, the last wins.
  TNode* row = Make(L"I");
  row->Flags |= FSpec;
  row->SetString(Idx(L"A"), L"first");
  row->SetString(Idx(L"B"), L"last");
  TNode* dst = Make(L"T");
  dst->Merge(row, 1);
  EXPECT_STREQ(dst->GetName(), L"last");
  EXPECT_FALSE(dst->Has(Idx(L"A")));
  EXPECT_FALSE(dst->Has(Idx(L"B")));
  // Two records of the same tree and space need no translation.
  TNode* row2 = Make(L"J");
  row2->Flags |= FSpec;
  row2->Merge(row, 1);
  EXPECT_STREQ(row2->GetName(), L"J");
  EXPECT_STREQ(row2->GetString(Idx(L"A")), L"first");
  EXPECT_STREQ(row2->GetString(Idx(L"B")), L"last");
}

TEST_F(DataTest, DuplicateIsAnImageOutsideTheIdTable) {
  TNode* def = Make(L"D");
  TNode* row = Make(L"I");
  row->Base = def;
  row->Flags |= FFiltered;
  row->SetId(L"7");
  row->SetString(Idx(L"A"), L"a");
  row->AppendChild(tree.CreateElement(L"k"));
  TNode* dup = row->Duplicate();
  ASSERT_NE(dup, nullptr);
  EXPECT_EQ(dup->Tree, &tree);
  EXPECT_EQ(dup->Base, def);
  EXPECT_EQ(dup->Flags, row->Flags);
  EXPECT_EQ(dup->Used, row->Used);
  EXPECT_STREQ(dup->GetId(), L"7");
  EXPECT_EQ(dup->FirstChild, nullptr);
  dup->SetString(Idx(L"A"), L"changed");
  EXPECT_STREQ(row->GetString(Idx(L"A")), L"a");
  EXPECT_EQ(tree.GetElem(L"7"), row);
  TNode::Delete(dup);  // the id is removed by its text
  EXPECT_EQ(tree.GetElem(L"7"), nullptr);
}

TEST_F(DataTest, GetIndexesListsOwnValuesInTheRecordsForm) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");  // slots 6, 7, 8
  n->SetString(IIdIndex, L"1");
  n->SetString(ITextIndex, L"t");
  n->SetInt(a, 1);
  n->SetInt(b, 2);
  n->SetNull(b);
  n->SetInt(c, 3);
  int* out = nullptr;
  ASSERT_EQ(n->GetIndexes(out), 3);
  EXPECT_EQ(out[0], 3);
  EXPECT_EQ(out[1], 6);
  EXPECT_EQ(out[2], 8);
  TNode* row = Make(L"I");
  row->Flags |= FSpec;
  row->SetInt(a, 4);
  row->SetString(IIdIndex, L"x");
  ASSERT_EQ(row->GetIndexes(out), 2);
  EXPECT_EQ(out[0], 3 << 16);
  EXPECT_EQ(out[1], 6 << 16);
  EXPECT_EQ(row->GetInt(out[1]), 4);
}

TEST_F(DataTest, SetIdMovesTheRecordInTheIdTable) {
  TNode* n = Make();
  n->SetId(L"a");
  EXPECT_EQ(tree.GetElem(L"a"), n);
  n->SetId(L"b");
  EXPECT_EQ(tree.GetElem(L"a"), nullptr);
  EXPECT_EQ(tree.GetElem(L"b"), n);
  EXPECT_STREQ(n->GetId(), L"b");
}

}  // namespace
