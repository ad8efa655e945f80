// Answers to the browser: the body with its row pipeline, pages, the cell query.
#include <algorithm>

#include "GridTest.h"

namespace {

class GetTest : public GridTest {
protected:
  // A grid of root rows with ids 1..count and A = id % 7.
  void Rows(const std::wstring& cfg, int count) {
    std::wstring text = L"<Grid><Cfg " + cfg + L"/><Cols><C Name='A' Type='Int'/><C Name='B'/></Cols><Body><B>";
    for (int i = 1; i <= count; i++)
      text += L"<I id='" + std::to_wstring(i) + L"' A='" + std::to_wstring(i % 7) + L"'/>";
    Create(text + L"</B></Body></Grid>");
  }
  // The length given back must be the text's.
  static std::wstring Checked(wchar_t* text, const int& length) {
    EXPECT_EQ((size_t)length, text ? wcslen(text) : 0);
    return Take(text);
  }
  std::wstring Body(const wchar_t* request) { int n = -1; return Checked(grid->GetBody(request, &n), n); }
  std::wstring Page(const wchar_t* request) { int n = -1; return Checked(grid->GetPage(request, &n), n); }
  std::wstring Cells(const wchar_t* id, const wchar_t* column, int flags, const wchar_t* format = nullptr) {
    int n = -1;
    return Checked(grid->GetCells(id, column, flags, format, &n), n);
  }
};

const wchar_t* const NothingRan = L"UpdateSort,UpdateFilter,UpdateGroup,";

TEST_F(GetTest, PlainResponseHasAllRowsOnOnePage) {
  Create(L"<Grid><Body><B><I id='1' A='x'/></B><B><I id='2'/></B></Body></Grid>");
  EXPECT_EQ(Body(nullptr), L"<Grid><IO/><Body _0F=\"16\"><B CDef=\"R\" _0F=\"16\"><I id=\"1\" A=\"x\" _0F=\"17\"/>"
                           L"<I id=\"2\" _0F=\"17\"/></B></Body></Grid>");
  EXPECT_EQ(Body(L""), Body(nullptr));

  // Page length 1 runs the pipeline but answers plain.
  Rows(L"Paging='3' PageLength='1' NoPager='1'", 3);
  EXPECT_EQ(Body(L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>"),
            L"<Grid><IO/><Body PagesCreated=\"1\" _0F=\"16\"><B CDef=\"R\" _0F=\"16\"><I id=\"3\" A=\"3\" _0F=\"17\"/>"
            L"</B><B _0F=\"16\"><I id=\"2\" A=\"2\" _0F=\"17\"/></B><B _0F=\"16\"><I id=\"1\" A=\"1\" _0F=\"17\"/></B>"
            L"</Body></Grid>");
}

TEST_F(GetTest, CompressedResponseIsExact) {
  Rows(L"Paging='3' PageLength='2' IdChars='0123456789'", 5);
  std::wstring first = Body(L"<Grid><IO Session='s'/><Cfg Sort='A' Sorting='1' Focused='3' FocusedCol='A'/></Grid>");
  EXPECT_EQ(first,
            L"<Grid><IO Session=\"s\"/><Cfg LastId=\"5\" Focused=\"1\" FocusedPos=\"0\" FocusedCol=\"A\" "
            L"RootCount=\"5\"/><Root CDef=\"R\"/><Par><P Name=\"P\" List=\"Name00,Name01,Name02,Name10,Name11,"
            L"Name12,Name20,Name21,Name22\"/></Par><Body>\"\"P\"3       \"\"\"\"1\"\"\"2\"\"\"\"\"\"3\"\"\"4\"\"\"5"
            L"\"\"\"\"\"\"\"\"</Body></Grid>");
  // Attributes of the last page, by type; the other pages give theirs or nothing.
  TNode* last = grid->Body->LastChild;
  last->SetString(L"#Work", L"x");
  last->SetInt(L"Calculated", 1);
  last->SetString(L"S", L"a\"<b");
  last->SetDouble(L"D", 1.5);
  grid->Body->FirstChild->SetInt(L"S", 7);
  std::wstring second = Body(L"<Grid><Cfg Sort='A' Sorting='1' NoPager='1'/></Grid>");
  // The page names stay from the first run: nothing changed, so no recut.
  EXPECT_NE(second.find(L"Name22,S,D\"/></Par><Body>\"\"P\"3       \"\"\"\"1\"\"\"2\"\"\"7\"\"\"\"\"3\"\"\"4\"\"\"\"\"5"
                        L"\"\"\"\"\"\"\"\"\"a&quot;&lt;b\"1.5</Body></Grid>"),
            std::wstring::npos);
}

// Page texts go out escaped when they must, else as stored, whatever their
// length or place in the record.
TEST_F(GetTest, PageTableTextsAsStored) {
  const struct { std::wstring value, out; } cases[] = {
      {L"", L""}, {L"x", L"x"}, {L"a&b", L"a&amp;b"}, {L"a>b", L"a&gt;b"}, {L"\u00e9\u4e2d", L"\u00e9\u4e2d"},
      {std::wstring(300, L'w'), std::wstring(300, L'w')}, {L"'q'", L"'q'"},
  };
  for (auto& c : cases) {
    for (int shift = 0; shift < 2; shift++) {
      Rows(L"Paging='3' PageLength='2' NoPager='1'", 3);
      Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
      TNode* last = grid->Body->LastChild;
      if (shift) last->SetInt(L"Z", 1);  // moves the text behind a value of another width
      last->SetString(L"S", c.value.c_str());
      std::wstring body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
      std::wstring tail = L"\"" + c.out + L"</Body></Grid>";
      EXPECT_EQ(body.substr(body.size() - std::min(body.size(), tail.size())), tail) << c.value << shift;
    }
  }
}

TEST_F(GetTest, EachRequestStatesGroupAndFiltersAfresh) {
  Create(L"<Grid><Cfg Group='A' GroupCols='A' Sort='A'/><Cols><C Name='A'/><C Name='B'/></Cols>"
         L"<Head><Filter id='F' A='1' AFilter='1' B='2' Other='3'/></Head><Body><B/></Body></Grid>");
  // Cleared even when the request then does not parse.
  EXPECT_EQ(Take(grid->GetBody(L"<Grid><Cfg", nullptr)), L"<null>");
  EXPECT_EQ(Xml(grid->Cfg) + Xml(Row(L"F")), L"<Cfg Sort=\"A\"/><Filter id=\"F\" Other=\"3\" Kind=\"Filter\"/>");
}

TEST_F(GetTest, UnchangedSettingsRunNothingAndChangesRerun) {
  Rows(L"Paging='3' PageLength='2' NoPager='1'", 5);
  const wchar_t* down = L"<Grid><Cfg Sort='-A' Sorting='1'/></Grid>";
  Body(down);
  EXPECT_EQ(Pages(), L"5,4|3,2|1");
  grid->Calls.clear();
  Body(down);
  EXPECT_EQ(grid->Calls, L"CopySession," + std::wstring(NothingRan));

  // A saved change with a sort in force sorts again.
  Row(L"5")->SetInt(L"A", 0);
  grid->Body->SetInt(L"UpdateState", 1);
  Body(down);
  EXPECT_FALSE(grid->Body->Has(L"UpdateState"));
  EXPECT_EQ(Pages(), L"4,3|2,1|5");
  Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  EXPECT_EQ(Pages(), L"5,1|2,3|4");

  // Without a sort, a saved change runs nothing.
  Body(L"<Grid><Cfg Sort=''/></Grid>");
  grid->Body->SetInt(L"UpdateState", 1);
  grid->Calls.clear();
  Body(nullptr);
  EXPECT_FALSE(grid->Body->Has(L"UpdateState"));
  EXPECT_EQ(grid->Calls, NothingRan);
}

// A row under a collapsed parent gives the parent's line, a filtered row that
// of its previous visible sibling; filtered rows hide their whole subtree.
TEST_F(GetTest, FocusedBecomesPageAndLineOfTheVisibleRow) {
  const wchar_t* cases[][3] = {  // focused row, filtered row, expected Focused and FocusedPos
      {L"21", nullptr, L"0,1"}, {L"32", nullptr, L"0,5"}, {L"32", L"31", L"0,3"}, {L"32", L"32", L"0,3"},
      {L"nope", nullptr, L"-,-"}};
  for (auto& c : cases) {
    Create(L"<Grid><Body><B><I id='1'/><I id='2' Expanded='0'><I id='21'/></I>"
           L"<I id='3'><I id='31'><I id='311'/></I><I id='32'/></I></B></Body></Grid>");
    if (c[1]) Row(c[1])->Flags |= FFiltered;
    Body((L"<Grid><Cfg Focused='" + std::wstring(c[0]) + L"'/></Grid>").c_str());
    EXPECT_EQ(Attr(grid->Cfg, L"Focused") + L"," + Attr(grid->Cfg, L"FocusedPos"), c[2]) << c[0] << " " << c[1];
  }
}

// 500 or more pages with names separate the table's fields by '>', else by '"'.
TEST_F(GetTest, PageTableSeparator) {
  Rows(L"Paging='3' PageLength='2'", 1000);
  std::wstring body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  size_t at = body.find(L"<Body>") + 6;
  std::wstring table = body.substr(at, body.size() - at - 14);
  EXPECT_EQ(table.substr(0, 14), L">\"\"P\"500     \"");
  EXPECT_EQ(std::count(table.begin() + 13, table.end(), L'"'), 5);
  EXPECT_EQ(std::count(table.begin() + 13, table.end(), L'>'), 500 * 9);

  Rows(L"Paging='3' PageLength='2'", 998);
  body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  EXPECT_NE(body.find(L"<Body>\"\"P\"499     \""), std::wstring::npos);
  table = body.substr(body.find(L"<Body>") + 6);
  EXPECT_EQ(std::count(table.begin(), table.end(), L'>'), 2);  // only </Body></Grid>
  EXPECT_EQ(std::count(table.begin(), table.end(), L'"'), 3 + 499 * 9);  // the header holds three

  Rows(L"Paging='3' PageLength='2' NoPager='1'", 1000);  // sorted, but no pager: no names
  body = Body(L"<Grid><Cfg Sort='A' Sorting='1'/></Grid>");
  EXPECT_NE(body.find(L"List=\"\"/></Par><Body>\"\"P\"500     </Body>"), std::wstring::npos);
}

TEST_F(GetTest, OnlyThe500FirstPageAttributesCount) {
  Rows(L"Paging='3' NoPager='1'", 1);
  Body(nullptr);
  for (int i = 0; i < 600; i++) grid->Body->LastChild->SetInt((L"X" + std::to_wstring(i)).c_str(), i);
  std::wstring body = Body(nullptr);
  // CDef of the page, its #CalcOrder and the #CDefGroup kept for ungrouping, the last two left out of
  // the list, come first, so the list ends at X496.
  EXPECT_NE(body.find(L"List=\"CDef,X0,"), std::wstring::npos);
  EXPECT_NE(body.find(L",X496\""), std::wstring::npos);
  EXPECT_EQ(body.find(L"X497"), std::wstring::npos);
}

TEST_F(GetTest, PageByPositionOrByRow) {
  Rows(L"Paging='3' PageLength='2' NoPager='1'", 3);
  Body(nullptr);
  EXPECT_EQ(Page(L"<Grid><Body><B Pos='1'/></Body></Grid>"),
            L"<Grid><Body><B Pos=\"1\" _0F=\"16\"><I id=\"3\" A=\"3\" _0F=\"17\"/></B></Body></Grid>");
  EXPECT_FALSE(grid->Body->LastChild->Has(L"Pos"));
  Row(L"2")->AppendChild(grid->Tree->CreateElement(L"I"))->SetId(L"21");
  EXPECT_EQ(Page(L"<Grid><Body><X id='2'/></Body></Grid>"),
            L"<Grid><Body><B id=\"2\" A=\"2\" _0F=\"17\"><I id=\"21\" _0F=\"16\"/></B></Body></Grid>");
  EXPECT_STREQ(Row(L"2")->GetName(), L"I");
  for (const wchar_t* bad : {L"<Grid><Body><B Pos='2'/></Body></Grid>", L"<Grid><Body><B id='none'/></Body></Grid>",
                             L"<Grid><Body><B/></Body></Grid>", L"<Grid><Cfg/></Grid>", L"<Grid><Body>"})
    EXPECT_EQ(Page(bad), L"<null>") << bad;
  EXPECT_EQ(Page(nullptr), L"<null>");

  // Attribute values escape all but the closing angle.
  Row(L"1")->SetString(L"V", L"a&b<c>d\"e");
  wchar_t out[128];
  *grid->FillAttr(out, Row(L"1"), L"V") = 0;
  EXPECT_STREQ(out, L" V=\"a&amp;b&lt;c>d&quot;e\"");
}

TEST_F(GetTest, CellQueryModesAndFlags) {
  Create(L"<Grid><Cols><C Name='A'/><C Name='N' Type='Int'/></Cols><Body><B>"
         L"<I id='1' A='b' N='10' K='x' F='1' FType='Bool' FFormat=';No;Yes'><I id='11' A='z'/></I>"
         L"<I id='2' A='C' N='9' F='0' FType='Bool' FFormat=';Off;On'/>"
         L"<I id='3' A='b' K='x'/><I id='4' A=''/><I id='5' A='a'/></B></Body>"
         L"<Head><I id='h' A='head'/></Head><Foot><I id='f' A='foot'/></Foot></Grid>");
  // Flags: 0 one cell, 1 siblings, 2 all rows, 3 and fixed rows; 4 display text; sorted 8 by number,
  // 16 by text without case, 24 as written; 32 distinct; 64 no empty cells.
  const struct { const wchar_t *Id, *Column; int Flags; const wchar_t *Format, *Expected; } cases[] = {
      {L"2", L"A", 0, nullptr, L"C"}, {L"2", L"N", 0, nullptr, L"9"}, {L"none", L"A", 0, nullptr, L""},
      {L"2", L"", 0, nullptr, L""}, {L"2", nullptr, 1, nullptr, L""}, {L"none", L"A", 1, nullptr, L""},
      {L"2", L"Unknown", 1, nullptr, L"|||||"}, {L"2", L"A", 1, nullptr, L"|b|C|b||a"},
      {L"11", L"A", 1, nullptr, L"|z"}, {nullptr, L"A", 2, nullptr, L"|b|z|C|b||a"},
      {nullptr, L"A", 3, nullptr, L"|b|z|C|b||a|head|foot"},
      {nullptr, L"A", 2 | 32 | 64, nullptr, L"|C|a|b|z"}, {nullptr, L"A", 2 | 16 | 32 | 64, nullptr, L"|a|b|C|z"},
      {nullptr, L"A", 2 | 24, nullptr, L"||C|a|b|b|z"}, {nullptr, L"N", 2 | 24 | 64, nullptr, L"|10|9"},
      {nullptr, L"N", 2 | 8 | 64, nullptr, L"|9|10"}, {L"1", L"F", 0, nullptr, L"1"}, {L"1", L"F", 4, nullptr, L"Yes"},
      // Each row's display text follows its own format.
      {nullptr, L"F", 2 | 64, nullptr, L"|1|0"}, {nullptr, L"F", 2 | 4 | 64, nullptr, L"|Yes|Off"},
      // The format gives the separator and a filter: column, value.
      {L"1", L"A", 1, L",", L",b,C,b,,a"}, {nullptr, L"A", 2, L",K,x", L",b,b"}, {L"1", L"id", 1, L";K;x", L";1;3"},
      {nullptr, L"A", 2, L",K,y", L""},
  };
  for (auto& c : cases)
    EXPECT_EQ(Cells(c.Id, c.Column, c.Flags, c.Format), c.Expected) << (c.Id ? c.Id : L"-") << " " << c.Flags;
}

TEST_F(GetTest, CellQueryOfLongTextsAndManyRows) {
  std::wstring head(25, L'm');
  Create(L"<Grid><Body><B><I A='" + head + L"z'/><I A='" + head + L"y'/><I A='" + head + L"z'/></B></Body></Grid>");
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 32), L"|" + head + L"y|" + head + L"z");  // compared whole

  std::wstring text = L"<Grid><Body><B>", expected;
  for (int i = 0; i < 3000; i++) {
    std::wstring value = L"v" + std::to_wstring(100000 + i) + std::wstring(13, L'x');
    text += L"<I A='" + value + L"'/>";
    expected += L"|" + value;
  }
  Create(text + L"</B></Body></Grid>");
  ASSERT_GT(expected.size(), 24576u * 2);  // beyond the first block
  EXPECT_EQ(Cells(nullptr, L"A", 2), expected);
  EXPECT_EQ(Cells(nullptr, L"A", 2 | 24), expected);
}

}  // namespace
