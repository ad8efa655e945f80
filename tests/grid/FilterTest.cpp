// Filter rows compiled into conditions that hide body rows, and what the responses leave out.
#include "GridTest.h"

namespace {

const std::vector<std::wstring> Fruit = {L"T='apple' N='0' D='500'", L"T='Apricot' N='1' D='1500'",
                                         L"T='banana' N='2.5'", L"T='cherry pie' N='3'", L"T='' N='4'",
                                         L"T='Pie' N='7'"};

class FilterTest : public GridTest {
protected:
  // Root rows r0, r1, ... that R lets be filtered, and the filter row F.
  void Make(const std::vector<std::wstring>& rows, const std::wstring& cols = L"", const std::wstring& more = L"") {
    std::wstring text = L"<Grid><Cfg Paging='3' PageLength='2' NoPager='1'/><Def><D Name='R' CanFilter='1'/></Def>"
                        L"<Cols><C Name='T' Type='Text'/><C Name='N' Type='Float'/><C Name='D' Type='Date'/>" +
                        cols + L"</Cols>" + more + L"<Head><Filter id='F'/></Head><Body><B>";
    for (size_t i = 0; i < rows.size(); i++) text += L"<I id='r" + std::to_wstring(i) + L"' " + rows[i] + L"/>";
    Create(text + L"</B></Body></Grid>");
  }
  static std::wstring Request(const std::wstring& filters) {
    return L"<Grid><Filters><I id='F' " + filters + L"/></Filters></Grid>";
  }
  std::wstring Body(const std::wstring& filters) { return Take(grid->GetBody(Request(filters).c_str(), nullptr)); }
  // Ids of the rows without FFiltered, depth first over all pages.
  std::wstring Shown() {
    std::wstring s;
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next) AddShown(page, s);
    return s;
  }
  static void AddShown(TNode* parent, std::wstring& s) {
    for (TNode* row = parent->FirstChild; row; row = row->Next) {
      if (!(row->Flags & FFiltered)) s += (s.empty() ? L"" : L",") + std::wstring(row->GetId());
      AddShown(row, s);
    }
  }
};

struct TCase {
  std::wstring Filter;
  const wchar_t* Shown;
};

TEST_F(FilterTest, OperatorsOnTextAndNumberCells) {
  const TCase cases[] = {
      {L"T='APPLE' TFilter='1'", L"r0"},  // without CaseSensitive both sides are lower-cased
      {L"T='apple' TFilter='2'", L"r1,r2,r3,r4,r5"}, {L"T='b' TFilter='3'", L"r0,r1,r4"},
      {L"T='banana' TFilter='4'", L"r0,r1,r2,r4"}, {L"T='banana' TFilter='5'", L"r3,r5"},
      {L"T='banana' TFilter='6'", L"r2,r3,r5"}, {L"T='AP' TFilter='7'", L"r0,r1"},
      {L"T='ap' TFilter='8'", L"r2,r3,r4,r5"}, {L"T='ie' TFilter='9'", L"r3,r5"},
      {L"T='ie' TFilter='10'", L"r0,r1,r2,r4"},  // a text shorter than the tail passes
      {L"T='an' TFilter='11'", L"r2"}, {L"T='an' TFilter='12'", L"r0,r1,r3,r4,r5"}, {L"T='a' TFilter='13'", L""},
      // A positive operator takes any value of a list, a negative one needs all.
      {L"T='apple;banana' TFilter='1' TRange='1'", L"r0,r2"},
      {L"T='apple;banana' TFilter='2' TRange='1'", L"r1,r3,r4,r5"},
      {L"T='ap;;ch' TFilter='7' TRange='1'", L"r0,r1,r3"}, {L"T='ap;ch' TFilter='8' TRange='1'", L"r2,r4,r5"},
      {L"N='3' NFilter='1'", L"r3"}, {L"N='3' NFilter='2'", L"r0,r1,r2,r4,r5"}, {L"N='3' NFilter='3'", L"r0,r1,r2"},
      {L"N='3' NFilter='4'", L"r0,r1,r2,r3"}, {L"N='3' NFilter='5'", L"r4,r5"}, {L"N='3' NFilter='6'", L"r3,r4,r5"},
      {L"N='3' NFilter='11'", L"r0,r1,r2,r3,r4,r5"}, {L"N='x' NFilter='1'", L"r0"},  // not a number reads as 0
      {L"N='1~3;7' NFilter='1' NRange='1'", L"r1,r2,r3,r5"}, {L"N='1~3;7' NFilter='2' NRange='1'", L"r0,r4"},
      {L"N='1~3;7' NFilter='11' NRange='1'", L"r1,r2,r3,r5"},  // any other operator: inside a range
      {L"D='1000' DFilter='3'", L"r0,r2,r3,r4,r5"},             // a date compares its number, absent as 0
  };
  for (auto& c : cases) {
    Make(Fruit);
    Body(c.Filter);
    EXPECT_EQ(Shown(), c.Shown) << c.Filter;
  }
}

TEST_F(FilterTest, SeparatorsComeFromTheFormatElement) {
  const struct { const wchar_t* Lang; TCase Numbers, Texts; } cases[] = {
      {L"", {L"N='1~3;7'", L"r1,r2,r3,r5"}, {L"T='apple;banana'", L"r0,r2"}},
      {L"<Lang><Format ValueSeparator=',|' RangeSeparator=':~'/></Lang>", {L"N='1:3|7,0'", L"r0,r1,r2,r3,r5"},
       {L"T='apple|pie,banana'", L"r0,r2,r5"}},
      {L"<Lang><Format/></Lang>", {L"N='1~3;7'", L"r1"}, {L"T='apple;banana'", L""}},  // none: one value
  };
  for (auto& c : cases) {
    Make(Fruit, L"", c.Lang);
    Body(c.Numbers.Filter + L" NFilter='1' NRange='1'");
    EXPECT_EQ(Shown(), c.Numbers.Shown) << c.Lang;
    Body(c.Texts.Filter + L" TFilter='1' TRange='1'");
    EXPECT_EQ(Shown(), c.Texts.Shown) << c.Lang;
  }
}

TEST_F(FilterTest, CaseWhiteCharsCodesAndFilterValue) {
  const TCase cases[] = {
      {L"C='apple' CFilter='1'", L"r1"}, {L"C='apple' CFilter='1' CCaseSensitive='0'", L"r0,r1,r2"},
      {L"T='apple' TFilter='1' TCaseSensitive='1'", L"r1,r2"}, {L"W='ap-p le' WFilter='1'", L"r0,r1"},
      {L"K='CAFE' KFilter='1'", L"r0,r1"}, {L"K='café;x' KFilter='1' KRange='1'", L"r0,r1"},
  };
  for (auto& c : cases) {
    Make({L"T='Apple' C='Apple' W='a-p p-le' K='Café'", L"T='apple' C='apple' W='apple' K='cafe'",
          L"T='zzz' TFilterValue='apple' C='APPLE' W='aple' K='cafes'"},
         L"<C Name='C' CaseSensitive='1'/><C Name='W' WhiteChars=' -'/><C Name='K' CharCodes='|é|e'/>");
    Body(c.Filter);
    EXPECT_EQ(Shown(), c.Shown) << c.Filter;
  }
}

TEST_F(FilterTest, CanFilterDecidesWhichRowsAreTestedAndFollowTheirChildren) {
  Make({L"CanFilter='3' T='x'><I id='c1' T='apple'/><I id='c2' T='pear'/></I><I id='p2' CanFilter='2' T='x'>"
        L"<I id='c3' T='apple'/><I id='c4' T='pear'/></I><I id='p3' CanFilter='2'><I id='c5' T='pear'/></I>"
        L"<I id='p4' CanFilter='0' T='x'><I id='c6' T='apple'/><I id='c7' T='pear'/></I>"
        L"<I id='p5' T='apple'><I id='c8' T='pear'/></I><I id='p6' T='x'"});
  Row(L"c1")->Flags |= FFiltered;
  Body(L"T='apple' TFilter='1'");
  // r0 fails and hides its children, which keep their flags; p3 goes with its last child.
  EXPECT_EQ(Shown(), L"c2,p2,c3,p4,c6,p5");
  Body(L"");  // no condition clears every tested row
  EXPECT_EQ(Shown(), L"r0,c1,c2,p2,c3,c4,p3,c5,p4,c6,c7,p5,c8,p6");

  // A row's <column>CanFilter of 0 skips the cell only where the column's CanFilter is 2.
  for (const wchar_t* canFilter : {L"2", L"1"}) {
    Make({L"T='x' TCanFilter='0'", L"T='x' TCanFilter='1'", L"T='apple'"}, L"", L"");
    grid->Cols.GetNode(L"T", 0)->SetString(L"CanFilter", canFilter);
    Body(L"T='apple' TFilter='1'");
    EXPECT_EQ(Shown(), *canFilter == L'2' ? L"r0,r2" : L"r2") << canFilter;
  }
  // Conditions of two filter rows on one column must both pass.
  Make(Fruit, L"", L"<Head><Filter id='G'/></Head>");
  Take(grid->GetBody(L"<Grid><Filters><I id='G' N='3' NFilter='4'/><I id='F' N='0' NFilter='5' T='p' TFilter='11'/>"
                     L"</Filters></Grid>", nullptr));
  EXPECT_EQ(grid->FilterCount, 3);
  EXPECT_EQ(Shown(), L"r1,r3");
}

TEST_F(FilterTest, OnlyAChangedFilterRunsAgain) {
  const struct { const wchar_t* Filter; bool Changed; } steps[] = {
      {L"T='apple' TFilter='1'", true}, {L"T='apple' TFilter='1'", false},
      {L"T='APPLE' TFilter='1'", true},  // raw text against the stored normal form
      {L"T='apple' TFilter='2' N='3' NFilter='5'", true}, {L"T='apple' TFilter='2' N='3' NFilter='5'", false},
      {L"T='apple' TFilter='2' N='4' NFilter='5'", true}, {L"T='apple' TFilter='2'", true},  // one dropped
      {L"N='1~3' NFilter='1' NRange='1'", true}, {L"N='1~3' NFilter='1'", false},
      {L"N='1~3;7' NFilter='1'", true}, {L"T='a;b' TFilter='1' TRange='1'", true},
      {L"T='a;c' TFilter='1'", false},  // a list compares its first value and its count
      {L"", true}, {L"", false},
  };
  Make(Fruit);
  for (auto& s : steps) {
    grid->ClearFilters();
    grid->AddCfg(Request(s.Filter).c_str());
    EXPECT_EQ(grid->UpdateFilter(), s.Changed) << s.Filter;
  }
  // Through the body: the same filter leaves the flags alone, unless a change of rows asks for a run.
  Make(Fruit);
  Body(L"N='3' NFilter='3'");
  Row(L"r4")->Flags &= ~FFiltered;  // a trace that a run would wipe out
  Body(L"N='3' NFilter='3'");
  EXPECT_EQ(Shown(), L"r0,r1,r2,r4");
  grid->Body->SetInt(L"UpdateState", 1);
  Body(L"N='3' NFilter='3'");
  EXPECT_EQ(Shown(), L"r0,r1,r2");
}

TEST_F(FilterTest, FilteredRowsLeaveThePagesAndTheResponse) {
  Make({L"N='1'", L"N='9'", L"N='2'", L"N='9'", L"N='9'", L"N='3'", L"N='4'"});
  std::wstring body = Body(L"N='9' NFilter='2'");
  EXPECT_EQ(Pages(), L"r0,r1,r2,r3,r4|r5,r6");
  EXPECT_NE(body.find(L"RootCount=\"4\"/>"), std::wstring::npos) << body;
  // The plain response leaves them out; the cell query reads every row, as it reads attributes only.
  grid->Cfg->SetInt(L"PageLength", 1);
  body = Body(L"N='9' NFilter='2'");
  EXPECT_EQ(body.find(L"r1"), std::wstring::npos) << body;
  EXPECT_NE(body.find(L"r5"), std::wstring::npos) << body;
  EXPECT_EQ(Take(grid->GetCells(L"r0", L"N", 2, nullptr, nullptr)), L"|1|9|2|9|9|3|4");
}

// Values beyond the fixed room are cut, never written past it.
TEST_F(FilterTest, RequestsBeyondTheLimitsAreCut) {
  std::wstring cols, sixty, ranges;
  for (int i = 0; i < 60; i++) {
    cols += L"<C Name='X" + std::to_wstring(i) + L"' Type='Int'/>";
    sixty += L" X" + std::to_wstring(i) + L"='0' X" + std::to_wstring(i) + L"Filter='1'";
  }
  for (int i = 0; i < 400; i++) ranges += L"1~2;";
  const std::wstring a(3000, L'a'), twoLong = std::wstring(100, L'a') + L";" + std::wstring(100, L'b'),
                     letters = L"a;b;c;d;e;f;g;h;i;j;k;l;m;n;o;p;q;r;s;t;u;v;w;x;y;z";
  Make({L"T='" + a + L"' N='1' W='" + a + L"'", L"T='" + a + L"' N='5'"},
       cols + L"<C Name='W' WhiteChars='-' CaseSensitive='1' LocaleCompare='1'/>");
  std::vector<unsigned long long> expanding(65536, 0x0061006200630064ull);  // each character gives four
  grid->LocaleTable = expanding.data();
  const struct { TCase Case; int Cells, Count; } cases[] = {
      {{sixty, L"r0,r1"}, 50, 0},
      {{L"T='" + a + L"' TFilter='1'", L"r0,r1"}, 1, 1},
      {{L"T='" + letters + L"' TFilter='1' TRange='1'", L""}, 1, 20},
      {{L"N='" + ranges + L"' NFilter='1' NRange='1'", L"r0"}, 1, 40},
      {{L"W='" + twoLong + L"' WFilter='11' WRange='1'", L"r0"}, 1, 1},  // the first value takes all the room
      {{L"W='" + a + L"' WFilter='1'", L"r0"}, 1, 1},
  };
  for (auto& c : cases) {
    Body(c.Case.Filter);
    EXPECT_EQ(grid->FilterCount, c.Cells) << c.Case.Filter.substr(0, 40);
    EXPECT_EQ(grid->FilterCells[0].Count, c.Count) << c.Case.Filter.substr(0, 40);
    EXPECT_EQ(Shown(), c.Case.Shown) << c.Case.Filter.substr(0, 40);
  }
  grid->LocaleTable = nullptr;
}

}  // namespace
