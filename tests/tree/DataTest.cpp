// The packed attribute record: room and growth of the value area, slot
// widening, reading through to the base record, conversions, scratch ring,
// comparison, copying and merging.
#include <cstring>
#include <tuple>
#include <vector>

#include "TreeTest.h"

namespace {

class DataTest : public TreeTest {
protected:
  void TearDown() override {
    for (TNode* n : made) TNode::Delete(n);
  }
  TNode* Make(const wchar_t* name = L"r", TNode* base = nullptr, bool row = false) {
    TNode* n = tree.CreateElement(name);
    n->Base = base;
    if (row) n->Flags |= FSpec;
    made.push_back(n);
    return n;
  }
  // A name entered at tree level: on a fresh tree the first gets slot 6 in both spaces.
  int Idx(const std::wstring& name) { return tree.GetIndex(name.c_str(), 1); }

  std::vector<TNode*> made;
};

TEST_F(DataTest, StringRoomIsThePowerOfTwoStrictlyAboveTheSize) {
  TNode* n = Make(L"r");  // "r" with its terminator is 8 bytes: room 16
  EXPECT_EQ(Room(n), "16/32/8/2");
  // -1 is no name: absent for getters, refused by setters.
  EXPECT_TRUE(n->SetInt(-1, 5) == -1 && n->SetType(-1, TString, 8) == -1 && !n->Has(-1));
  int c = -1;
  for (const auto& k : {std::make_pair(L"", 8), std::make_pair(L"x", 16), std::make_pair(L"abc", 32)}) {
    n->SetString(c = Idx(std::wstring(L"S") + k.first), k.first);  // "abc" is exactly 16 bytes
    EXPECT_EQ(n->GetLength(c), k.second) << k.first;
  }
  const std::string room = Room(n) + "@" + std::to_string(n->GetPos(c, TString));
  n->SetString(c, L"abcdef", 2);  // shorter: stays in place
  EXPECT_EQ(Room(n) + "@" + std::to_string(n->GetPos(c, TString)), room);
  EXPECT_STREQ(n->GetString(c), L"ab");
  n->SetStringMax(c, L"abcdef", 3);
  EXPECT_STREQ(n->GetString(c), L"abc");
}

TEST_F(DataTest, OtherTypeKeepsTheRoomWhileNullGivesItUp) {
  TNode* n = Make();
  const int a = Idx(L"A");
  n->SetString(a, L"abcdef");  // 28 bytes, room 32
  const int pos = n->GetPos(a, TString), used = n->Used;
  n->SetInt(a, 5);
  EXPECT_EQ(std::make_pair(n->GetPos(a, TInt), n->GetLength(a)), std::make_pair(pos, 32));
  n->SetString(a, L"abcdefg");  // 32 bytes fit the kept room
  EXPECT_EQ(n->GetPos(a, TString), pos);
  n->SetNull(a);
  EXPECT_FALSE(n->Has(a));
  n->SetString(a, L"abcdefg");  // a null slot has no room: appended
  EXPECT_EQ(std::make_pair(n->GetPos(a, TString), n->Used), std::make_pair(used, used + 64));
}

TEST_F(DataTest, GrowingValueMovesTheLaterValuesDown) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B");
  n->SetString(a, L"ab");  // room 16 at 16
  n->SetInt(b, 7);         // at 32
  n->SetString(a, L"abcdefgh");  // 36 bytes: taken out, appended with room 64
  EXPECT_EQ(std::make_tuple(n->GetPos(b, TInt), n->GetPos(a, TString), n->Used), std::make_tuple(16, 20, 84));
  EXPECT_EQ(n->GetInt(b), 7);
  // Capacity growth counts the new size twice: 144 + 120 exceeds 256, and
  // reaching 512 widens the slots.
  TNode* m = Make();
  const std::wstring s(29, L'x');  // 120 bytes, room 128
  m->SetString(a, s.c_str());
  EXPECT_EQ(Room(m), "144/512/8/4");
  EXPECT_EQ(m->GetString(a), s);
  EXPECT_STREQ(m->GetName(), L"r");
}

TEST_F(DataTest, SlotTableGrowsByFoursAndWidensOnce) {
  TNode* n = Make();
  n->SetByte(13, 2);
  EXPECT_EQ(n->GetTypeBase(40), TNone);
  TNode* row = Make(L"I", nullptr, true);
  row->SetByte((10 << 16) | 0xFFFF, 3);  // a row takes the high half
  EXPECT_EQ(row->GetInt(10 << 16), 3);
  EXPECT_EQ((std::pair<int, int>(n->SlotCount, row->SlotCount)), std::make_pair(16, 12));
  TNode* w = Make();
  auto s = [&](int i) { return Idx(L"S" + std::to_wstring(i)); };
  for (int i = 0; i < 15; i++) w->SetString(s(i), L"ab");
  EXPECT_EQ(Room(w), "256/256/24/2");
  w->SetInt(Idx(L"X"), 123456);  // its position 256 needs the wide form
  EXPECT_EQ(Room(w) + "=" + std::to_string(w->GetInt(Idx(L"X"))), "260/512/24/4=123456");
  for (int i = 0; i < 15; i++) EXPECT_EQ(w->GetPos(s(i), TString), 16 + 16 * i);
  EXPECT_STREQ(w->GetString(s(14)), L"ab");
}

TEST_F(DataTest, RowReadsItsOwnHalfAndOneLevelOfBase) {
  TNode *def = Make(L"D"), *row = Make(L"I", def, true);
  def->SetInt(L"X", 5);  // a layout record gives the name a low slot only
  const int x = tree.GetIndex(L"X", 0);
  EXPECT_EQ(x >> 16 & 0xFFFF, 0xFFFF);
  EXPECT_EQ(row->GetInt(x), 5);
  EXPECT_FALSE(row->HasBase(x));
  row->SetInt(L"X", 9);  // now the name gets its high slot
  const int x2 = tree.GetIndex(L"X", 0);
  EXPECT_EQ(x2 & 0xFFFF, x & 0xFFFF);
  EXPECT_EQ(row->GetInt(x2), 9);
  EXPECT_EQ(def->GetInt(x2), 5);
  def->Base = Make(L"T");
  def->Base->SetString(L"Y", L"y");
  EXPECT_STREQ(row->GetString(L"Y"), L"");
  // An array is carried but not converted: the plain getters read the base.
  const int r = Idx(L"R"), items[2] = {10, 20}, used = row->Used;
  def->SetInt(r, 4);
  row->SetArray(r, items, 2);
  EXPECT_EQ(row->Used, used + 12);
  EXPECT_EQ(row->GetLength(r), 4);  // size class 2 whatever the count
  int got[3];                       // the count, then the items
  memcpy(got, row->GetArrayBase(r), sizeof got);
  EXPECT_EQ(std::vector<int>(got, got + 3), (std::vector<int>{2, 10, 20}));
  EXPECT_STREQ(row->GetString(r), L"4");
}

TEST_F(DataTest, NumbersAndTextsConvertByStoredType) {
  TNode* n = Make();
  const int a = Idx(L"A");
  n->SetByte(a, -5);
  EXPECT_STREQ(n->GetString(a), L"-5");
  n->SetString(a, L"2.5e1x");
  EXPECT_EQ(std::make_pair(n->GetDouble(a), n->GetInt(a)), std::make_pair(25.0, 2));
  n->SetDouble(a, -2.9);
  EXPECT_EQ(n->GetInt(a), -2);
  // Doubles are written rounded to the tree's precision.
  const struct { double value; const wchar_t* text; int precision = 10000; } cases[] = {
      {0, L"0"}, {0.00001, L"1e-05"}, {-0.00001, L"-1e-05"}, {-0.5, L"-0.5"}, {1.99999, L"2"},
      {-0.99999, L"-1"}, {1.0005, L"1.0005"}, {1e18, L"1e+18"}, {-1e18, L"-1e+18"},
      {1e17, L"100000000000000000"}, {0.05, L"0.05"}, {-0.05, L"-0.05"}, {-1.5, L"-1.5"},
      {123456.25, L"123456.25"}, {0.0001, L"0.0001"}, {-7, L"-7"}, {0.125, L"0.13", 100},
      {1234.5678, L"1234.57", 100}, {2.5, L"3", 1},
  };
  for (const auto& c : cases) {
    wchar_t buf[128];
    wmemset(buf, L'#', 128);
    EXPECT_EQ(TData::ToString(c.value, buf, c.precision), buf + wcslen(c.text)) << c.value;
    EXPECT_STREQ(buf, c.text) << c.value;
    tree.Precision = c.precision;
    n->SetDouble(a, c.value);
    EXPECT_STREQ(n->GetString(a), c.text) << c.value;
  }
}

TEST_F(DataTest, BufferFormCutsLongStringsOnly) {
  TNode* n = Make();
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C");
  n->SetString(a, L"abcd");  // room 32
  n->SetInt(b, 12345);
  // A cut returns one more than it wrote; numbers ignore the limit.
  const struct { int index, limit, length; const wchar_t* text; } cases[] = {
      {a, 3, 3, L"ab"}, {a, 0, 4, L"abcd"}, {a, 4, 4, L"abcd"}, {b, 2, 5, L"12345"}, {c, 10, 0, L""},
  };
  for (const auto& k : cases) {
    wchar_t buf[64] = {L'z'};
    EXPECT_EQ(n->GetStringBase(k.index, buf, k.limit), k.length) << k.text;
    EXPECT_STREQ(buf, k.text);
  }
  EXPECT_EQ(n->GetStringBase(c, nullptr, 10), 0);
  wchar_t buf[64];
  TNode* row = Make(L"I", n);  // only the plain form reads through the base
  EXPECT_EQ(std::make_pair(row->GetString(a, buf, 0), row->GetStringBase(a, buf, 0)), std::make_pair(4, 0));
}

TEST_F(DataTest, ScratchRingWrapsToItsStart) {
  TNode* n = Make();
  const int size = TTree::TmpSize;
  // {from the start, length, offset returned, offset after}: the call that
  // reaches the end mark gets the start, and so does the next one.
  const struct { bool reset; int length, at, after; } steps[] = {
      {true, 100, 0, 101}, {false, 10, 101, 112}, {false, 16300, 0, 0}, {false, 5, 0, 6}, {false, 5, 6, 12},
      {true, size - 2, 0, size - 1},  // one cell short of the mark
      {true, size - 1, 0, 0},         // exactly up to the mark
  };
  for (const auto& k : steps) {
    if (k.reset) tree.TmpPos = tree.Tmp;
    EXPECT_EQ(n->GetTmp(k.length) - tree.Tmp, k.at) << k.length;
    EXPECT_EQ(tree.TmpPos - tree.Tmp, k.after) << k.length;
  }
}

TEST_F(DataTest, CompareNeedsEqualTypesAndValues) {
  TNode *x = Make(L"x"), *y = Make(L"y");
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C"), items[1] = {1};
  EXPECT_TRUE(x->Compare(a, y, a));  // both absent
  x->SetInt(a, 7);
  y->SetByte(b, 7);
  EXPECT_FALSE(x->Compare(a, y, b));  // integer and byte differ in type
  y->SetInt(b, 7);
  EXPECT_TRUE(x->Compare(a, y, b));
  // CmpString compares the text form.
  EXPECT_TRUE(y->CmpString(b, L"7") && !y->CmpString(b, L"07") && !y->CmpString(b, nullptr));
  x->SetString(c, L"q");
  y->SetString(c, L"Q");
  EXPECT_FALSE(x->Compare(c, y, c));
  EXPECT_TRUE(y->CmpString(c, L"a", L"b", L"c", L"d", L"Q"));
  x->SetDouble(a, 0.1 + 0.2);
  y->SetDouble(b, 0.3);
  EXPECT_FALSE(x->Compare(a, y, b));
  x->SetArray(b, items, 1);
  y->SetArray(a, items, 1);
  EXPECT_FALSE(x->Compare(b, y, a));
  y->SetString(c, L"q");
  EXPECT_TRUE(Make(L"I", y)->Compare(c, x, c));  // through the base
}

TEST_F(DataTest, CopyModes) {
  TNode *def = Make(L"D"), *src = Make(L"S", def), *dst = Make(L"T");
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C"), d = Idx(L"D"), items[1] = {3};
  src->SetInt(a, 5);
  dst->SetString(a, L"x");
  dst->SetString(b, L"keep");  // the source has no B: only mode 2 clears
  def->SetDouble(c, 1.5);      // only the source's base has C
  src->SetArray(d, items, 1);  // arrays are not copied
  // {index, mode, with base, the target's value after, "-" if none}
  const struct { int index, mode; bool base; const wchar_t* value; } steps[] = {
      {a, 0, false, L"x"}, {a, 1, false, L"5"}, {b, 1, false, L"keep"}, {b, 2, false, L"-"},
      {c, 1, false, L"-"}, {c, 1, true, L"1.5"}, {d, 1, false, L"-"}, {d, 2, true, L"-"},
  };
  for (const auto& k : steps) {
    dst->Copy(k.index, src, k.index, k.mode, k.base);
    EXPECT_STREQ(dst->Has(k.index) ? dst->GetString(k.index) : L"-", k.value) << k.index << "/" << k.mode;
  }
  EXPECT_EQ(dst->GetTypeBase(a), TInt);
  EXPECT_EQ(dst->GetTypeBase(c), TDouble);
}

TEST_F(DataTest, MergeCopiesFromTheIdUpward) {
  TNode *src = Make(L"S"), *dst = Make(L"T");
  const int a = Idx(L"A"), b = Idx(L"B"), c = Idx(L"C"), d = Idx(L"D2"), items[2] = {4, 5};
  src->SetString(IIdIndex, L"7");
  src->SetString(ITextIndex, L"text");
  src->SetInt(a, 1);
  src->SetInt(b, 2);
  dst->SetInt(b, 9);
  dst->Merge(src, 0);  // neither the name nor the text
  EXPECT_EQ(Xml(dst), L"<T id=\"7\" A=\"1\" B=\"9\"/>");
  src->SetArray(c, items, 2);
  src->SetArray(d, items, 0);  // an empty array is not merged
  dst->Merge(src, 1);
  EXPECT_EQ(Xml(dst), L"<T id=\"7\" A=\"1\" B=\"2\" C=\"\"/>");
  dst->SetNull(a);  // own values in the record's form, nulls left out
  int* out = nullptr;
  ASSERT_EQ(dst->GetIndexes(out), 3);
  EXPECT_EQ(std::vector<int>(out, out + 3), (std::vector<int>{3, 7, 8}));
}

TEST_F(DataTest, MergeTranslatesNamesBetweenSpaces) {
  // Into a high-space row of the same tree: the name gets its high slot.
  TNode *layout = Make(L"C"), *row = Make(L"I", nullptr, true);
  layout->SetString(L"L", L"l");
  row->Merge(layout, 1);
  EXPECT_STREQ(row->GetString(L"L"), L"l");
  EXPECT_NE(tree.GetIndex(L"L", 0) >> 16 & 0xFFFF, 0xFFFF);
  // Names of a high-space source are looked up by the plain slot number, which
  // reads high slot 0: every value lands on the target's name, the last wins.
  TNode *dst = Make(L"T"), *hi = Make(L"I", nullptr, true);
  hi->SetString(Idx(L"H1"), L"first");
  hi->SetString(Idx(L"H2"), L"last");
  dst->Merge(hi, 1);
  EXPECT_EQ(Xml(dst), L"<last/>");
  // Two records of the same tree and space need no translation.
  TNode* row2 = Make(L"J", nullptr, true);
  row2->Merge(hi, 1);
  EXPECT_EQ(Xml(row2), L"<J H1=\"first\" H2=\"last\"/>");
}

}  // namespace
