// Filter rows compiled into conditions that hide body rows, and what the responses leave out.
#include "GridTest.h"

namespace {

using TAttrs = std::vector<std::pair<std::wstring, std::wstring>>;

const std::vector<std::wstring> Fruit = {L"T='apple' N='0' D='500'", L"T='Apricot' N='1' D='1500'",
                                         L"T='banana' N='2.5'",       L"T='cherry pie' N='3'",
                                         L"T='' N='4'",               L"T='Pie' N='7'"};

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
  // Replaces the conditions of F, then compiles and runs them; what UpdateFilter said.
  bool Apply(const TAttrs& attributes) {
    grid->ClearFilters();
    for (auto& a : attributes) Row(L"F")->SetString(a.first.c_str(), a.second.c_str());
    bool changed = grid->UpdateFilter();
    grid->Filter();
    return changed;
  }
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
  std::wstring Body(const std::wstring& filters) {
    return Take(grid->GetBody((L"<Grid><Filters><I id='F' " + filters + L"/></Filters></Grid>").c_str(), nullptr));
  }
};

TEST_F(FilterTest, TextOperatorsCompareTheShownTextWithoutCase) {
  const struct { const wchar_t* Value; const wchar_t* Op; bool List; const wchar_t* Shown; } cases[] = {
      {L"APPLE", L"1", false, L"r0"},
      {L"apple", L"2", false, L"r1,r2,r3,r4,r5"},
      {L"b", L"3", false, L"r0,r1,r4"},
      {L"banana", L"4", false, L"r0,r1,r2,r4"},
      {L"banana", L"5", false, L"r3,r5"},
      {L"banana", L"6", false, L"r2,r3,r5"},
      {L"AP", L"7", false, L"r0,r1"},
      {L"", L"7", false, L"r0,r1,r2,r3,r4,r5"},
      {L"ap", L"8", false, L"r2,r3,r4,r5"},
      {L"ie", L"9", false, L"r3,r5"},
      {L"ie", L"10", false, L"r0,r1,r2,r4"},  // the empty text is shorter than the tail: it passes
      {L"an", L"11", false, L"r2"},
      {L"an", L"12", false, L"r0,r1,r3,r4,r5"},
      {L"apple", L"13", false, L""},
      {L"apple", L"-1", false, L""},
      // A positive operator takes any value of a list, a negative one needs all.
      {L"apple;banana", L"1", true, L"r0,r2"},
      {L"apple;banana", L"2", true, L"r1,r3,r4,r5"},
      {L"ap;;ch", L"7", true, L"r0,r1,r3"},
      {L"ap;ch", L"8", true, L"r2,r4,r5"},
      {L"pie;na", L"9", true, L"r2,r3,r5"},
      {L"", L"1", true, L"r4"},  // no item: a single empty value
  };
  Make(Fruit);
  for (auto& c : cases) {
    TAttrs attributes = {{L"T", c.Value}, {L"TFilter", c.Op}};
    if (c.List) attributes.push_back({L"TRange", L"1"});
    Apply(attributes);
    EXPECT_EQ(Shown(), c.Shown) << c.Value << L" " << c.Op;
  }
}

TEST_F(FilterTest, NumberOperatorsAndRanges) {
  const struct { const wchar_t* Col; const wchar_t* Value; const wchar_t* Op; bool Range; const wchar_t* Shown; } cases[] = {
      {L"N", L"3", L"1", false, L"r3"},
      {L"N", L"3", L"2", false, L"r0,r1,r2,r4,r5"},
      {L"N", L"3", L"3", false, L"r0,r1,r2"},
      {L"N", L"3", L"4", false, L"r0,r1,r2,r3"},
      {L"N", L"3", L"5", false, L"r4,r5"},
      {L"N", L"3", L"6", false, L"r3,r4,r5"},
      {L"N", L"3", L"7", false, L"r0,r1,r2,r3,r4,r5"},   // text operators let every row pass
      {L"N", L"3", L"13", false, L"r0,r1,r2,r3,r4,r5"},
      {L"N", L"x", L"1", false, L"r0"},                  // not a number: read as 0
      {L"N", L"1~3;7", L"1", true, L"r1,r2,r3,r5"},
      {L"N", L"1~3;7", L"2", true, L"r0,r4"},
      {L"N", L"1~3;7", L"11", true, L"r1,r2,r3,r5"},     // any other operator means inside
      {L"N", L"4~1", L"1", true, L""},
      {L"D", L"1000", L"3", false, L"r0,r2,r3,r4,r5"},   // a date compares its number, absent as 0
  };
  Make(Fruit);
  for (auto& c : cases) {
    std::wstring col = c.Col;
    TAttrs attributes = {{col, c.Value}, {col + L"Filter", c.Op}};
    if (c.Range) attributes.push_back({col + L"Range", L"1"});
    Apply(attributes);
    EXPECT_EQ(Shown(), c.Shown) << c.Col << L" " << c.Value << L" " << c.Op;
  }
}

TEST_F(FilterTest, SeparatorsComeFromTheFormatElement) {
  const struct { const wchar_t* Lang; const wchar_t* Numbers; const wchar_t* Texts; const wchar_t* Shown; } cases[] = {
      {L"", L"1~3;7", L"apple;banana", L"r1,r2,r3,r5/r0,r2"},
      {L"<Lang><Format ValueSeparator=',|' RangeSeparator=':~'/></Lang>", L"1:3|7,0", L"apple|pie,banana",
       L"r0,r1,r2,r3,r5/r0,r2,r5"},
      // A Format element without them has none: the whole text is one value.
      {L"<Lang><Format/></Lang>", L"1~3;7", L"apple;banana", L"r1/"},
  };
  for (auto& c : cases) {
    Make(Fruit, L"", c.Lang);
    Apply({{L"N", c.Numbers}, {L"NFilter", L"1"}, {L"NRange", L"1"}});
    std::wstring shown = Shown() + L"/";
    Apply({{L"T", c.Texts}, {L"TFilter", L"1"}, {L"TRange", L"1"}});
    EXPECT_EQ(shown + Shown(), c.Shown) << c.Lang;
  }
}

TEST_F(FilterTest, CaseWhiteCharsCodesAndFilterValue) {
  const struct { TAttrs Filter; const wchar_t* Shown; } cases[] = {
      {{{L"C", L"apple"}, {L"CFilter", L"1"}}, L"r1"},
      {{{L"C", L"apple"}, {L"CFilter", L"1"}, {L"CCaseSensitive", L"0"}}, L"r0,r1,r2"},
      {{{L"T", L"apple"}, {L"TFilter", L"1"}, {L"TCaseSensitive", L"1"}}, L"r1,r2"},
      {{{L"W", L"ap-p le"}, {L"WFilter", L"1"}}, L"r0,r1"},
      {{{L"K", L"CAFE"}, {L"KFilter", L"1"}}, L"r0,r1"},
      {{{L"K", L"café;x"}, {L"KFilter", L"1"}, {L"KRange", L"1"}}, L"r0,r1"},
  };
  for (auto& c : cases) {
    // A fresh grid each time: a cell whose first text stays counts as kept, its settings included.
    Make({L"T='Apple' C='Apple' W='a-p p-le' K='Café'", L"T='apple' C='apple' W='apple' K='cafe'",
          L"T='zzz' TFilterValue='apple' C='APPLE' W='aple' K='cafes'"},
         L"<C Name='C' CaseSensitive='1'/><C Name='W' WhiteChars=' -'/><C Name='K' CharCodes='|é|e'/>");
    Apply(c.Filter);
    EXPECT_EQ(Shown(), c.Shown) << c.Filter[0].first << L" " << c.Filter[0].second;
  }
}

TEST_F(FilterTest, CanFilterDecidesWhichRowsAreTestedAndFollowTheirChildren) {
  Make({L"CanFilter='3' T='x'><I id='c1' T='apple'/><I id='c2' T='pear'/></I><I id='p2' CanFilter='2' T='x'>"
        L"<I id='c3' T='apple'/><I id='c4' T='pear'/></I><I id='p3' CanFilter='2'><I id='c5' T='pear'/></I>"
        L"<I id='p4' CanFilter='0' T='x'><I id='c6' T='apple'/><I id='c7' T='pear'/></I>"
        L"<I id='p5' T='apple'><I id='c8' T='pear'/></I><I id='p6' T='x'"});
  Row(L"c1")->Flags |= FFiltered;
  Apply({{L"T", L"apple"}, {L"TFilter", L"1"}});
  // r0 fails and hides its children, which keep their flags; p3 goes with its last child.
  EXPECT_EQ(Shown(), L"c2,p2,c3,p4,c6,p5");
  Apply({});  // no condition clears every tested row
  EXPECT_EQ(Shown(), L"r0,c1,c2,p2,c3,c4,p3,c5,p4,c6,c7,p5,c8,p6");

  // A row's <column>CanFilter of 0 skips the cell only where the column's CanFilter is 2.
  for (const wchar_t* canFilter : {L"2", L"1"}) {
    Make({L"T='x' TCanFilter='0'", L"T='x' TCanFilter='1'", L"T='apple'"});
    grid->Cols.GetNode(L"T", 0)->SetString(L"CanFilter", canFilter);
    Apply({{L"T", L"apple"}, {L"TFilter", L"1"}});
    EXPECT_EQ(Shown(), *canFilter == L'2' ? L"r0,r2" : L"r2") << canFilter;
  }
}

TEST_F(FilterTest, ConditionsOfSeveralRowsAndColumnsMustAllPass) {
  Make(Fruit, L"", L"<Head><Filter id='G' N='3' NFilter='4'/></Head>");
  Row(L"F")->SetString(L"N", L"0");
  Row(L"F")->SetString(L"NFilter", L"5");
  Row(L"F")->SetString(L"T", L"p");
  Row(L"F")->SetString(L"TFilter", L"11");
  EXPECT_TRUE(grid->UpdateFilter());
  grid->Filter();
  EXPECT_EQ(grid->FilterCount, 3);
  EXPECT_EQ(Shown(), L"r1,r3");
}

TEST_F(FilterTest, UpdateFilterReportsWhatChanged) {
  const struct { TAttrs Filter; bool Changed; } steps[] = {
      {{{L"T", L"apple"}, {L"TFilter", L"1"}}, true},
      {{{L"T", L"apple"}, {L"TFilter", L"1"}}, false},
      {{{L"T", L"APPLE"}, {L"TFilter", L"1"}}, true},   // raw against normal form: a change
      {{{L"T", L"apple"}, {L"TFilter", L"2"}}, true},
      {{{L"T", L"apple"}, {L"TFilter", L"2"}, {L"N", L"3"}, {L"NFilter", L"5"}}, true},
      {{{L"T", L"apple"}, {L"TFilter", L"2"}, {L"N", L"3"}, {L"NFilter", L"5"}}, false},
      {{{L"T", L"apple"}, {L"TFilter", L"2"}, {L"N", L"4"}, {L"NFilter", L"5"}}, true},
      {{{L"T", L"apple"}, {L"TFilter", L"2"}}, true},   // a dropped condition
      {{{L"N", L"1~3"}, {L"NFilter", L"1"}, {L"NRange", L"1"}}, true},
      {{{L"N", L"1~3"}, {L"NFilter", L"1"}, {L"NRange", L"1"}}, false},
      {{{L"N", L"1~3;7"}, {L"NFilter", L"1"}, {L"NRange", L"1"}}, true},
      {{{L"T", L"a;b"}, {L"TFilter", L"1"}, {L"TRange", L"1"}}, true},
      {{{L"T", L"a;c"}, {L"TFilter", L"1"}, {L"TRange", L"1"}}, false},  // a list compares its first value
      {{{L"T", L"a;c;d"}, {L"TFilter", L"1"}, {L"TRange", L"1"}}, true},
      {{}, true},
      {{}, false},
  };
  Make(Fruit);
  int i = 0;
  for (auto& s : steps) EXPECT_EQ(Apply(s.Filter), s.Changed) << i++;
}

TEST_F(FilterTest, BodyRunsTheFilterOnlyWhenItChanged) {
  Make(Fruit);
  Body(L"N='3' NFilter='3'");
  EXPECT_EQ(Shown(), L"r0,r1,r2");
  Row(L"r4")->Flags &= ~FFiltered;  // a trace that a run of the filter would wipe out
  Body(L"N='3' NFilter='3'");
  EXPECT_EQ(Shown(), L"r0,r1,r2,r4");
  grid->Body->SetInt(L"UpdateState", 1);
  Body(L"N='3' NFilter='3'");
  EXPECT_EQ(Shown(), L"r0,r1,r2");
  Body(L"N='3' NFilter='6'");
  EXPECT_EQ(Shown(), L"r3,r4,r5");
  Body(L"");
  EXPECT_EQ(Shown(), L"r0,r1,r2,r3,r4,r5");
}

TEST_F(FilterTest, FilteredRowsLeaveThePagesAndTheResponse) {
  Make({L"T='a' N='1'", L"T='b' N='9'", L"T='c' N='2'", L"T='d' N='9'", L"T='e' N='9'", L"T='f' N='3'",
        L"T='g' N='4'"});
  grid->Cfg->SetInt(L"NoPager", 0);
  std::wstring body = Body(L"N='9' NFilter='2'");
  EXPECT_EQ(Pages(), L"r0,r1,r2,r3,r4|r5,r6");
  EXPECT_EQ(grid->Cfg->GetInt(L"RootCount"), 4);
  EXPECT_NE(body.find(L"RootCount=\"4\""), std::wstring::npos) << body;
  EXPECT_NE(body.find(L"\"\"P\"2 "), std::wstring::npos) << body;
  // The plain response leaves them out; the cell query reads every row, as it reads attributes only.
  grid->Cfg->SetInt(L"PageLength", 1);
  body = Body(L"N='9' NFilter='2'");
  EXPECT_EQ(body.find(L"r1"), std::wstring::npos) << body;
  EXPECT_NE(body.find(L"r5"), std::wstring::npos) << body;
  EXPECT_EQ(Take(grid->GetCells(L"r0", L"T", 2, nullptr, nullptr)), L"|a|b|c|d|e|f|g");
}

// Values beyond the fixed room are cut, never written past it.
TEST_F(FilterTest, RequestsBeyondTheLimitsAreCut) {
  std::wstring cols, filters;
  for (int i = 0; i < 60; i++) {
    cols += L"<C Name='X" + std::to_wstring(i) + L"' Type='Int'/>";
    filters += L" X" + std::to_wstring(i) + L"='0' X" + std::to_wstring(i) + L"Filter='1'";
  }
  const std::wstring longText(3000, L'a'), longItems = std::wstring(100, L'a') + L";" + std::wstring(100, L'b'),
                     manyItems = L"a;b;c;d;e;f;g;h;i;j;k;l;m;n;o;p;q;r;s;t;u;v;w;x;y;z";
  std::wstring manyRanges;
  for (int i = 0; i < 400; i++) manyRanges += L"1~2;";
  Make({L"T='" + longText + L"' N='1' W='" + longText + L"'", L"T='" + longText + L"' N='5'"},
       cols + L"<C Name='W' WhiteChars='-' CaseSensitive='1' LocaleCompare='1'/>");
  std::vector<unsigned long long> expanding(65536, 0x0061006200630064ull);  // each character gives four
  grid->LocaleTable = expanding.data();
  const struct { std::wstring Filter; int Count; int Cells; const wchar_t* Shown; } cases[] = {
      {filters, 0, 50, L"r0,r1"},
      {L"T='" + longText + L"' TFilter='1'", 1, 1, L"r0,r1"},
      {L"T='" + manyItems + L"' TFilter='1' TRange='1'", 20, 1, L""},
      {L"N='" + manyRanges + L"' NFilter='1' NRange='1'", 40, 1, L"r0"},
      {L"W='" + longItems + L"' WFilter='11' WRange='1'", 1, 1, L"r0"},
      {L"W='" + longText + L"' WFilter='1'", 1, 1, L"r0"},
  };
  for (auto& c : cases) {
    Body(c.Filter);
    EXPECT_EQ(grid->FilterCount, c.Cells) << c.Filter.substr(0, 40);
    EXPECT_EQ(grid->FilterCells[0].Count, c.Count) << c.Filter.substr(0, 40);
    EXPECT_EQ(Shown(), c.Shown) << c.Filter.substr(0, 40);
  }
  grid->LocaleTable = nullptr;
}

}  // namespace
