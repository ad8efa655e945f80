// Display text of cells by type, the text format, lists and wildcards.
#include "GridTest.h"

namespace {

using FormatTest = CellTest;

TEST_F(FormatTest, CellTextByType) {
  const wchar_t* cases[][4] = {  // type, format, value, text; numbers to the tree's precision
      {L"Bool", nullptr, L"7", L"1"}, {L"Bool", nullptr, nullptr, L"0"}, {L"Bool", L";No;Yes", L"1", L"Yes"},
      {L"Boolean", L";No;Yes", L"5", L""}, {L"Bool", L";No;Yes", L"-1", L""}, {L"Int", L";x", nullptr, L"0"},
      {L"Integer", nullptr, L"-2.9", L"-2"}, {L"Float", nullptr, L"2.50", L"2.5"},
      {L"Float", nullptr, L"-1e300", L"-1e+300"}, {L"Float", nullptr, L"1.99999", L"2"},
      {L"Float", nullptr, L"2.567", L"2.57"}, {L"Date", nullptr, nullptr, L""},
      {L"Date", L"yyyy-MM-dd", L"86400000", L"1970-01-02"}, {L"Radio", L";;;;;;;Off;On", L"1", L"On"},
      {L"Radio", L";;;;;;;Off;On", L"2", L""}, {L"Radio", L";;;;;;;Off;On", L"2147483647", L""},
      {L"Radio", L";;;;;;;Off;On", L"-7", L""}, {L"Text", L";2;[;]", L"abC", L"[ABC]"},
      {L"Lines", L";1;x", L"abC", L"xabc"}, {L"Html", L";2", L"abC", L"abC"},
      {L"TextArea", L"|0|<|>|not used", L"abC", L"<abC>"}, {L"int", nullptr, L"2.9", L"2.9"},
      {nullptr, nullptr, L"abC", L"abC"}, {L"Enum", nullptr, L"2", L"c"}, {L"Enum", nullptr, L"0", L"a"},
      {L"Enum", nullptr, L"3", L""}, {L"Enum", nullptr, L"-1", L""}, {L"Bool", L";n;y", L"1", L"y"}};
  tree.GetIndex(L"C", 1);
  tree.Precision = 100;
  def->SetString(L"CEnum", L",a,b,c");
  for (const auto& c : cases) {
    Set(def, {{L"CType", c[0]}, {L"CFormat", c[1]}});
    Set(row, {{L"C", c[2]}});
    EXPECT_EQ(Cell(), c[3]) << (c[0] ? c[0] : L"-") << " " << (c[2] ? c[2] : L"-");
  }
  EXPECT_STREQ(row->GetStringFormat(nullptr, row->GetIndex(L"C", 0)), L"y");  // by index
  EXPECT_STREQ(row->GetStringFormat(nullptr, -1), L"");
  EXPECT_STREQ(row->GetStringFormat(L"Unknown", -1), L"");
  Set(def, {{L"CType", L"Text"}, {L"CFormat", nullptr}});
  EXPECT_EQ(row->GetStringFormat(L"C", -1), row->GetString(L"C"));  // no format: the stored text itself
}

TEST_F(FormatTest, RelatedColumnsChooseTheEnumList) {
  Set(def, {{L"CType", L"Enum"}, {L"CEnum", L",a,b,c"}, {L"CRelated", L"X,Y"}, {L"CEnum3_4", L"|p|q"},
            {L"CEnum3_0", L"|none"}});
  Set(row, {{L"C", L"1"}, {L"X", L"3"}, {L"Y", L"4"}});
  EXPECT_EQ(Cell(), L"q");
  Set(row, {{L"C", L"0"}, {L"Y", nullptr}});  // absent: 0
  EXPECT_EQ(Cell(), L"none");
  // A list name longer than EnumSuffixLength gives no list, not a cut name.
  std::wstring related, suffix = L"CEnum";
  for (int i = 0; i < 50; i++) {
    const std::wstring col = L"X" + std::to_wstring(i);
    row->SetInt(col.c_str(), -1000000000);
    related += (i ? L"," : L"") + col;
    suffix += (i ? L"_" : L"") + std::wstring(L"-1000000000");
  }
  Set(def, {{L"CRelated", related.c_str()}, {suffix.c_str(), L",x"}});
  EXPECT_EQ(Cell(), L"");
}

TEST_F(FormatTest, FormatStringCasePrefixSuffix) {
  const wchar_t* text = L"MiXed";
  EXPECT_EQ(row->FormatString(text, nullptr), text);
  EXPECT_EQ(row->FormatString(text, L""), text);
  EXPECT_NE(row->FormatString(text, L";"), text);  // any format: a new block
  // Formats that end at item 1, at a separator, or at item 0 are read from blocks of their exact size.
  const wchar_t* cases[][2] = {{L";1;x", L"xmixed"},   {L";1;", L"mixed"},      {L";2", L"MIXED"},
                               {L";", L"MiXed"},       {L";2;;!", L"MIXED!"},   {L"-3-(-)-", L"(MiXed)"},
                               {L";2;[;];x", L"[MIXED]"}, {L"; +02;<", L"<MIXED"}, {L";-1;<", L"<MiXed"},
                               {L";12", L"MiXed"},     {L";1x;<", L"<mixed"}};
  for (auto& c : cases) EXPECT_STREQ(row->FormatString(text, Exact(c[0]).data()), c[1]) << c[0];
}

TEST_F(FormatTest, ListItemsIndexesAndWildcards) {
  const wchar_t* items[] = {L"", L"a", L"", L"c", L""};
  for (int i = -1; i < 4; i++) EXPECT_STREQ(row->GetArrayItemComma(L"a,,c", i), items[i + 1]) << i;
  std::vector<wchar_t> exact = Exact(L"a,b,");
  for (int i = 0; i < 4; i++) EXPECT_STREQ(row->GetArrayItemComma(exact.data(), i), i == 1 ? L"b" : i ? L"" : L"a");
  EXPECT_STREQ(row->GetArrayItemComma(nullptr, 0), L"");
  EXPECT_STREQ(row->GetArrayItemFirst(L"", 0), L"");
  EXPECT_STREQ(row->GetArrayItemFirst(L"|a,b|c", 0), L"a,b");
  EXPECT_STREQ(row->GetArrayItem(L"xy", 1, 0), L"");
  const std::wstring big(TTree::TmpSize + 500, L'z');  // beyond the ring
  EXPECT_EQ(row->GetArrayItemComma((L"a," + big).c_str(), 1), big);

  const struct { const wchar_t *List, *Item; wchar_t Separator; int Index; } indexes[] = {
      {L"a,bc,d", L"bc", L',', 1}, {L"a,bc,d", L"d", L',', 2}, {L"a,bc,d", L"b", L',', -1},
      {L"a,bc,d", L"bcd", L',', -1}, {L"a,bc", L"", L',', -1}, {nullptr, L"a", L',', -1}, {L"ab", L"b", 0, -1}};
  for (auto& c : indexes) EXPECT_EQ(TDataFormat::GetArrayIndex(c.List, c.Item, c.Separator), c.Index) << c.Item;

  const struct { const wchar_t *Pattern, *Text; bool Match; } wildcards[] = {
      {L"a*c", L"abbc", true}, {L"a?c", L"ac", false}, {L"a?c", L"abc", true}, {L"*", L"", true}, {L"**", L"", true},
      {L"", L"", true}, {L"", L"a", false}, {L"a", L"ab", false}, {L"A*", L"abc", false}, {L"*ab", L"aab", true},
      {L"*x?", L"xxxy", true}, {L"ab*", L"ab", true}, {L"a*b*c", L"axbxbyc", true}, {L"a*b*c", L"axbxbyd", false}};
  for (auto& c : wildcards) EXPECT_EQ(TDataFormat::WCmp(c.Pattern, c.Text), c.Match) << c.Pattern << " " << c.Text;
}

// Values packed behind a byte lie unaligned, so every text read (date masks and Format texts too) takes a
// scratch copy; wherever the ring comes round in a call, the text is right.
TEST_F(FormatTest, ResultsSurviveTheRingComingRound) {
  TNode* f = Format();
  for (TNode* n : {def, f, row}) n->SetByte(L"Pad", 1);
  Set(def, {{L"CRelated", L"Xa,Yb"}, {L"CEnum12_34", L";first;second"}});
  Set(row, {{L"Xa", L"12"}, {L"Yb", L"34"}});
  Set(f, {{L"DateSeparator", L"-"}, {L"AMDesignator", L"am"}, {L"ShortDayNames", L"Su,Mo,Tu,We,Th,Fr,Sa"}});
  ASSERT_NE(row->GetPos(row->GetIndex(L"Xa", 0), TString) % sizeof(wchar_t), 0);
  ASSERT_NE(f->GetPos(f->GetIndex(L"AMDesignator", 0), TString) % sizeof(wchar_t), 0);
  const wchar_t* cases[][4] = {{L"Text", L";2;<<;>>", L"a longer cell text", L"<<A LONGER CELL TEXT>>"},
                               {L"Radio", L";;;;;;;zero;one;two", L"2", L"two"}, {L"Enum", L"", L"1", L"second"},
                               {L"Date", L"yyyy/MM/dd tt ddd", L"1110207845000", L"2005-03-07 am Mo"}};
  for (auto& c : cases) {
    Set(def, {{L"CType", c[0]}, {L"CFormat", c[1]}});
    Set(row, {{L"C", c[2]}});
    for (int back = 1; back < 300; back++) {
      tree.TmpPos = tree.Tmp + TTree::TmpSize - back;
      EXPECT_EQ(Cell(), c[3]) << c[0] << ", cursor " << back << " before the end";
    }
  }
  // Callers' texts in the block that wrapped the ring, where the next block starts as well.
  auto wrapped = [&](const wchar_t* text) {
    tree.TmpPos = tree.Tmp + TTree::TmpSize - 5;
    return wcscpy(row->GetTmp(20), text);
  };
  EXPECT_STREQ(row->FormatString(wrapped(L"abc"), L";2;[;]"), L"[ABC]");
  EXPECT_STREQ(row->GetArrayItemFirst(wrapped(L",abc,de"), 0), L"abc");
  // A text longer than the ring, whose copy would sit in the tree's big block.
  const std::wstring big(TTree::TmpSize + TTree::TmpMargin + 100, L'b');
  Set(def, {{L"CType", L"Text"}, {L"CFormat", L";2;<;>"}});
  row->SetString(L"C", big.c_str());
  EXPECT_EQ(Cell(), L"<" + std::wstring(big.size(), L'B') + L">");
}

}  // namespace
