// Display text of cells by type, the text format, lists and wildcards.
#include "GridTest.h"

namespace {

using FormatTest = CellTest;

TEST_F(FormatTest, CellTextByType) {
  const struct {
    const wchar_t *Type, *Format, *Value, *Text;
  } cases[] = {
      {L"Bool", nullptr, L"7", L"1"},        {L"Bool", nullptr, nullptr, L"0"},
      {L"Bool", L";No;Yes", L"1", L"Yes"},   {L"Boolean", L";No;Yes", L"5", L""},
      {L"Bool", L";No;Yes", L"-1", L""},     {L"Int", L";x", nullptr, L"0"},
      {L"Integer", nullptr, L"-2.9", L"-2"}, {L"Float", nullptr, L"2.50", L"2.5"},
      {L"Float", nullptr, L"1.99999", L"2"}, {L"Float", nullptr, L"-1e300", L"-1e+300"},
      {L"Date", nullptr, nullptr, L""},      {L"Date", L"yyyy-MM-dd", L"86400000", L"1970-01-02"},
      {L"Radio", L";;;;;;;Off;On", L"1", L"On"}, {L"Radio", L";;;;;;;Off;On", L"2", L""},
      {L"Radio", L";;;;;;;Off;On", L"2147483647", L""}, {L"Radio", L";;;;;;;Off;On", L"-7", L""},
      {L"Text", L";2;[;]", L"abC", L"[ABC]"}, {L"Lines", L";1;x", L"abC", L"xabc"},
      {L"TextArea", L"|0|<|>|not used", L"abC", L"<abC>"}, {L"int", nullptr, L"2.9", L"2.9"},
      {L"Html", L";2", L"abC", L"abC"},      {nullptr, nullptr, L"abC", L"abC"},
  };
  tree.GetIndex(L"C", 1);
  for (const auto& c : cases) {
    c.Type ? def->SetString(L"CType", c.Type) : def->SetNull(L"CType");
    c.Format ? def->SetString(L"CFormat", c.Format) : def->SetNull(L"CFormat");
    c.Value ? row->SetString(L"C", c.Value) : row->SetNull(L"C");
    EXPECT_EQ(Cell(), c.Text) << (c.Type ? c.Type : L"-") << " " << (c.Value ? c.Value : L"-");
  }
  tree.Precision = 100;
  def->SetString(L"CType", L"Float");
  row->SetDouble(L"C", 2.567);
  EXPECT_EQ(Cell(), L"2.57");
  def->SetString(L"CType", L"Text");
  def->SetNull(L"CFormat");
  row->SetString(L"C", L"abC");
  EXPECT_EQ(row->GetStringFormat(L"C", -1), row->GetString(L"C"));  // no format: the stored text itself
}

TEST_F(FormatTest, EnumItemsAndRelatedLists) {
  def->SetString(L"CType", L"Enum");
  def->SetString(L"CEnum", L",a,b,c");
  const int values[] = {2, 0, 3, -1};
  const wchar_t* texts[] = {L"c", L"a", L"", L""};
  for (int i = 0; i < 4; i++) {
    row->SetInt(L"C", values[i]);
    EXPECT_EQ(Cell(), texts[i]) << values[i];
  }
  def->SetString(L"CRelated", L"X,Y");
  def->SetString(L"CEnum3_4", L"|p|q");
  def->SetString(L"CEnum3_0", L"|none");
  row->SetInt(L"C", 1);
  row->SetInt(L"X", 3);
  row->SetString(L"Y", L"4");
  EXPECT_EQ(Cell(), L"q");
  row->SetNull(L"Y");  // absent: 0
  row->SetInt(L"C", 0);
  EXPECT_EQ(Cell(), L"none");
  // A list name longer than EnumSuffixLength gives no list, not a cut name.
  std::wstring related, suffix = L"Enum";
  for (int i = 0; i < 50; i++) {
    const std::wstring col = L"X" + std::to_wstring(i);
    row->SetInt(col.c_str(), -1000000000);
    related += (i ? L"," : L"") + col;
    suffix += (i ? L"_" : L"") + std::wstring(L"-1000000000");
  }
  def->SetString(L"CRelated", related.c_str());
  def->SetString((L"C" + suffix).c_str(), L",x");
  EXPECT_EQ(Cell(), L"");
}

TEST_F(FormatTest, ColumnByNameOrIndex) {
  def->SetString(L"CType", L"Bool");
  def->SetString(L"CFormat", L";n;y");
  row->SetInt(L"C", 1);
  EXPECT_STREQ(row->GetStringFormat(nullptr, row->GetIndex(L"C", 0)), L"y");
  EXPECT_STREQ(row->GetStringFormat(nullptr, -1), L"");
  EXPECT_STREQ(row->GetStringFormat(L"Unknown", -1), L"");
}

TEST_F(FormatTest, FormatStringCasePrefixSuffix) {
  const wchar_t* text = L"MiXed";
  EXPECT_EQ(row->FormatString(text, nullptr), text);
  EXPECT_EQ(row->FormatString(text, L""), text);
  EXPECT_NE(row->FormatString(text, L";"), text);  // any format: a new block
  // Formats that end at item 1, at a separator, or at item 0 are read from
  // blocks of their exact size.
  const struct {
    const wchar_t *Format, *Text;
  } cases[] = {{L";1;x", L"xmixed"}, {L";1;", L"mixed"}, {L";2", L"MIXED"}, {L";", L"MiXed"},
               {L";2;;!", L"MIXED!"}, {L"-3-(-)-", L"(MiXed)"}, {L";2;[;];x", L"[MIXED]"},
               {L"; +02;<", L"<MIXED"}, {L";-1;<", L"<MiXed"}, {L";12", L"MiXed"}, {L";1x;<", L"<mixed"}};
  for (const auto& c : cases) {
    std::vector<wchar_t> format = Exact(c.Format);
    EXPECT_STREQ(row->FormatString(text, format.data()), c.Text) << c.Format;
  }
}

TEST_F(FormatTest, ListItemsAndIndexes) {
  const wchar_t* list = L"a,,c";
  const wchar_t* items[] = {L"", L"a", L"", L"c", L""};
  for (int i = -1; i < 4; i++) EXPECT_STREQ(row->GetArrayItemComma(list, i), items[i + 1]) << i;
  EXPECT_STREQ(row->GetArrayItemComma(nullptr, 0), L"");
  EXPECT_STREQ(row->GetArrayItemFirst(L"", 0), L"");
  EXPECT_STREQ(row->GetArrayItemFirst(L"|a,b|c", 0), L"a,b");
  EXPECT_STREQ(row->GetArrayItem(L"xy", 1, 0), L"");
  std::vector<wchar_t> exact = Exact(L"a,b,");
  for (int i = 0; i < 4; i++) EXPECT_STREQ(row->GetArrayItemComma(exact.data(), i), i == 1 ? L"b" : i ? L"" : L"a");
  const std::wstring big(TTree::TmpSize + 500, L'z');  // beyond the ring
  EXPECT_EQ(row->GetArrayItemComma((L"a," + big).c_str(), 1), big);

  EXPECT_EQ(TDataFormat::GetArrayIndex(L"a,bc,d", L"bc", L','), 1);
  EXPECT_EQ(TDataFormat::GetArrayIndex(L"a,bc,d", L"d", L','), 2);
  EXPECT_EQ(TDataFormat::GetArrayIndex(L"a,bc,d", L"b", L','), -1);
  EXPECT_EQ(TDataFormat::GetArrayIndex(L"a,bc,d", L"bcd", L','), -1);
  EXPECT_EQ(TDataFormat::GetArrayIndex(L"a,bc", L"", L','), -1);
  EXPECT_EQ(TDataFormat::GetArrayIndex(nullptr, L"a", L','), -1);
  EXPECT_EQ(TDataFormat::GetArrayIndex(L"ab", L"b", 0), -1);
}

TEST_F(FormatTest, Wildcards) {
  const struct {
    const wchar_t *Pattern, *Text;
    bool Match;
  } cases[] = {{L"a*c", L"abbc", true},   {L"a?c", L"ac", false},       {L"a?c", L"abc", true},
               {L"*", L"", true},         {L"**", L"", true},           {L"", L"", true},
               {L"", L"a", false},        {L"a", L"ab", false},         {L"A*", L"abc", false},
               {L"*ab", L"aab", true},    {L"a*b*c", L"axbxbyc", true}, {L"a*b*c", L"axbxbyd", false},
               {L"*x?", L"xxxy", true},   {L"ab*", L"ab", true}};
  for (const auto& c : cases) EXPECT_EQ(TDataFormat::WCmp(c.Pattern, c.Text), c.Match) << c.Pattern << " " << c.Text;
}

// Values packed behind a byte lie unaligned, so every text read takes a
// scratch copy; wherever the ring comes round in a call, the text is right.
TEST_F(FormatTest, ResultsSurviveTheRingComingRound) {
  def->SetByte(L"Pad", 1);
  row->SetByte(L"Pad", 1);
  def->SetString(L"CRelated", L"Xa,Yb");
  def->SetString(L"CEnum12_34", L";first;second");
  row->SetString(L"Xa", L"12");
  row->SetString(L"Yb", L"34");
  ASSERT_NE(row->GetPos(row->GetIndex(L"Xa", 0), TString) % sizeof(wchar_t), 0);
  const struct {
    const wchar_t *Type, *Format, *Value, *Text;
  } cases[] = {{L"Text", L";2;<<;>>", L"a longer cell text", L"<<A LONGER CELL TEXT>>"},
               {L"Radio", L";;;;;;;zero;one;two", L"2", L"two"},
               {L"Enum", L"", L"1", L"second"}};
  for (const auto& c : cases) {
    def->SetString(L"CType", c.Type);
    def->SetString(L"CFormat", c.Format);
    row->SetString(L"C", c.Value);
    for (int back = 1; back < 300; back++) {
      tree.TmpPos = tree.Tmp + TTree::TmpSize - back;
      EXPECT_EQ(Cell(), c.Text) << c.Type << ", cursor " << back << " before the end";
    }
  }
  // Callers' texts in the block that wrapped the ring, where the next block
  // starts as well.
  auto wrapped = [&](const wchar_t* text) {
    tree.TmpPos = tree.Tmp + TTree::TmpSize - 5;
    return wcscpy(row->GetTmp(20), text);
  };
  EXPECT_STREQ(row->FormatString(wrapped(L"abc"), L";2;[;]"), L"[ABC]");
  EXPECT_STREQ(row->GetArrayItemFirst(wrapped(L",abc,de"), 0), L"abc");
  // A text longer than the ring, whose copy would sit in the tree's big block.
  const std::wstring big(TTree::TmpSize + TTree::TmpMargin + 100, L'b');
  def->SetString(L"CType", L"Text");
  def->SetString(L"CFormat", L";2;<;>");
  row->SetString(L"C", big.c_str());
  EXPECT_EQ(Cell(), L"<" + std::wstring(big.size(), L'B') + L">");
}

}  // namespace
