// Formulas: compiled code, evaluation, aggregates over children, and the order in which a grid calculates.
#include <cstdio>
#include <cstring>

#include "GridTest.h"

namespace {

class CalcTest : public GridTest {
protected:
  void SetUp() override {
    GridTest::SetUp();
    Create(L"<Grid><Cols><C Name='A'/><C Name='B'/></Cols><Body><B><I id='R1' A='5'>"
           L"<I id='K' A='x'/></I></B></Body></Grid>");
  }
  // Compiled code as text: operands, then operators by their token; "error" for a syntax error.
  std::wstring Compile(const std::wstring& formula, int size = TGridCalc::MaxCode) {
    std::vector<wchar_t> text(formula.begin(), formula.end());
    text.push_back(0);
    std::vector<char> code(size);
    int length = grid->ParseFormula(text.data(), code.data(), size);
    return length ? Show(code.data(), length) : L"error";
  }
  std::wstring Show(const char* code, int length) {
    std::wstring s;
    const char* p = code;
    auto word = [&](int at) { int v; memcpy(&v, p + at, 4); return v; };
    auto name = [&](int index) { const wchar_t* n = grid->Tree->GetName(index, 1); return std::wstring(n ? n : L"?"); };
    for (int op; (op = (unsigned char)*p++) != OpEnd;) {
      if (!s.empty()) s += L' ';
      if (op == OpNumber) {
        double d;
        memcpy(&d, p, 8), p += 8;
        wchar_t number[32];
        swprintf(number, 32, L"%g", d);
        s += number;
      } else if (op == OpString) {
        int n = (word(0) - 8) / 4;
        std::wstring literal(n, L' ');
        memcpy(&literal[0], p + 4, n * 4);
        s += L"'" + literal + L"'", p += word(0);
      } else if (op == OpCell || op == OpParentCell) {
        s += (op == OpParentCell ? L"parent." : L"") + name(word(0)), p += 4;
      } else if (op == OpRowCell) {
        s += std::wstring(grid->Tree->Ids.GetKey(word(0))) + L"." + name(word(4)), p += 8;
      } else {
        int token = (unsigned char)*p++;
        s += op == OpAggregate ? L"agg" + std::to_wstring(token) : op == OpAggregateArgs ? L"args" + std::to_wstring(token)
           : op == OpUnary ? L"u" + std::wstring(1, (wchar_t)token) : std::wstring(1, (wchar_t)token);
      }
    }
    EXPECT_EQ(p - code, length);
    return s;
  }
  // Runs a formula on a row into cell Z (which holds "old" before); the stored value as n:<number> or s:<text>.
  std::wstring Eval(const wchar_t* formula, const wchar_t* id = L"R1", int arenaSize = TNodeCalc::ArenaBytes) {
    TNode* row = Row(id);
    int z = grid->Tree->GetIndex(L"Z", 1);
    row->SetString(z, L"old");
    std::wstring text = formula;
    char code[TGridCalc::MaxCode];
    if (!grid->ParseFormula(&text[0], code)) return L"error";
    std::vector<char> arena(arenaSize);
    static_cast<TNodeCalc*>(row)->Calculate(z, code, arena.data(), arenaSize);
    return (row->GetTypeBase(z) == TString ? L"s:" : L"n:") + std::wstring(row->GetString(z));
  }
  static std::wstring Repeat(const std::wstring& s, int n) {
    std::wstring r;
    while (n-- > 0) r += s;
    return r;
  }
};

TEST_F(CalcTest, CompiledCode) {
  const struct { const wchar_t* Formula; const wchar_t* Code; } cases[] = {
      {L"2+3*4", L"2 3 4 * +"}, {L"(2+3)*4", L"2 3 + 4 *"}, {L"2*3+4", L"2 3 * 4 +"}, {L"1-2-3", L"1 2 - 3 -"},
      {L"-A*2", L"A u# 2 *"}, {L"- - A", L"u# A u#"}, {L"!!A", L"u! A u!"}, {L"+A", L"A +"}, {L"1 2", L"1 2"},
      {L"a?b:c?d:e", L"a b c ? d e ?"}, {L"a?b", L"a b"}, {L"a&&b||c", L"a b { c }"}, {L"a&b^c|d", L"a b & c ^ d |"},
      {L"a=b", L"a b ="}, {L"a==b", L"a b ="}, {L"a!=b", L"a b @"}, {L"a<=b", L"a b ["}, {L"a>=b", L"a b ]"},
      {L"a [ b", L"a b ["}, {L"a ] b @ c", L"a b ] c @"}, {L"a { b } c", L"a b { c }"}, {L"# a", L"a u#"},
      {L"~a", L"a u~"}, {L"1,2", L"1 2 ,"}, {L"'it' + \"'s\"", L"'it' ''s' +"}, {L"''", L"''"},
      {L"1e-3", L"0.001"}, {L"1-3", L"1 3 -"}, {L"1e", L"1"}, {L"0x10", L"16 x10"}, {L"2.5E+2*2", L"250 2 *"},
      {L"sum()", L"agg1"}, {L"sum('A')", L"'A' args1"}, {L"sum ( 'A' , 'B' )", L"'A' 'B' , args1"},
      {L"foo('A')", L"'A' args0"}, {L"foo()+1", L"1 + agg0"}, {L"SUM(1)", L"1 args0"}, {L"min()*max()", L"agg8 agg7 *"},
      {L"countblank(A)", L"A args5"}, {L"Get(Parent,'A')", L"parent.A"}, {L"Get( R9 , \"B\" ) + 1", L"R9.B 1 +"},
      {L"Get(R1,'A'", L"R1.A"}, {L"Get(R1,'A' junk) * 2", L"R1.A 2 *"},
      // An operator read below level 0 waits under the end and is never written.
      {L"(a))+((b)", L"a b"},
      {L"", L""}, {L"'abc", L"error"}, {L".5", L"error"}, {L"$", L"error"}, {L"a\u00e9", L"error"}, {L"(1", L"error"},
      {L"1)", L"error"}, {L"Get(R1 'A')", L"error"}, {L"Get(R1,A)", L"error"}, {L"Get(R1,'A)", L"error"}};
  for (auto& c : cases) EXPECT_EQ(Compile(c.Formula), c.Code) << c.Formula;
  char code[TGridCalc::MaxCode];
  wchar_t empty[] = L"";
  EXPECT_EQ(grid->ParseFormula(empty, code), 1);
  // A failed Get form leaves the text cut behind the word; names enter the tables even then.
  wchar_t text[] = L"1+Get(R7 'A')";
  EXPECT_EQ(grid->ParseFormula(text, code), 0);
  EXPECT_STREQ(text, L"1+Get");
  wchar_t kept[] = L"A + B";
  EXPECT_GT(grid->ParseFormula(kept, code), 0);
  EXPECT_STREQ(kept, L"A + B");
}

TEST_F(CalcTest, CompilerLimitsRefuseWhatWouldOverrun) {
  const struct { std::wstring Formula; bool Compiles; } cases[] = {
      {Repeat(L"(", 127) + L"1" + Repeat(L")", 127), true}, {Repeat(L"(", 128) + L"1" + Repeat(L")", 128), false},
      {Repeat(L")", 128) + Repeat(L"(", 128), true}, {Repeat(L")", 129) + Repeat(L"(", 129), false},
      {Repeat(L"f()", 256), true}, {Repeat(L"f()", 257), false},
      {L"'" + std::wstring(253, L'x') + L"'", true}, {L"'" + std::wstring(254, L'x') + L"'", false},
      {L"'" + std::wstring(9000, L'x') + L"'", false}, {L"1" + Repeat(L"+1", 92), true},
      {L"1" + Repeat(L"+1", 93), false}};
  for (auto& c : cases) EXPECT_EQ(Compile(c.Formula) != L"error", c.Compiles) << c.Formula.substr(0, 40);
  // The buffer's size is the limit: a code that fits exactly compiles.
  EXPECT_EQ(Compile(L"1", 10), L"1");
  EXPECT_EQ(Compile(L"1", 9), L"error");
}

TEST_F(CalcTest, EveryOperatorOnNumbersAndTexts) {
  Row(L"R1")->SetString(L"B", L"2.5");
  const struct { const wchar_t* Formula; const wchar_t* Result; } cases[] = {
      {L"2+3*4", L"n:14"}, {L"7-10", L"n:-3"}, {L"1/0", L"n:0"}, {L"1/4", L"n:0.25"}, {L"5%0", L"n:0"},
      {L"5.9%2.9", L"n:1"}, {L"-7%3", L"n:-1"}, {L"7%0.5", L"n:0"}, {L"-A", L"n:-5"}, {L"A*B", L"n:12.5"},
      {L"'a'+1.5", L"s:a1.5"}, {L"1+'2'", L"s:12"}, {L"'3'*'4'", L"n:12"}, {L"'v'+1/3", L"s:v0.3333"},
      {L"A+B", L"s:52.5"}, {L"'x'+A+B", L"s:x52.5"}, {L"''+''", L"s:"}, {L"'2'=='2.0'", L"n:1"},
      {L"'abc'<'abd'", L"n:0"}, {L"'abc'=='xyz'", L"n:1"}, {L"!'abc'", L"n:1"}, {L"!''", L"n:1"}, {L"!0.5", L"n:0"},
      {L"!A", L"n:0"}, {L"0.5?1:2", L"n:2"}, {L"2?'x':'y'", L"s:x"}, {L"1?2:3?4:5", L"n:4"}, {L"0?2:0?4:5", L"n:5"},
      {L"1?2", L"n:2"}, {L"1,2", L"n:2"}, {L"1 2", L"n:2"}, {L"0.5&&1", L"n:0"}, {L"2&&-1", L"n:1"},
      {L"0||0.5", L"n:0"}, {L"3||0", L"n:1"}, {L"6&3", L"n:2"}, {L"6|3", L"n:7"}, {L"6^3", L"n:5"},
      {L"3>2", L"n:1"}, {L"3<2", L"n:0"}, {L"3>=3", L"n:1"}, {L"3<=2", L"n:0"}, {L"3!=3", L"n:0"}, {L"3==3", L"n:1"},
      // Out of range truncates to the smallest integer, which is true; its remainder by -1 is 0.
      {L"1e20&&1", L"n:1"}, {L"-2147483648%-1", L"n:0"}, {L"Get(Parent,'A')", L"n:0"}, {L"Get(R1,'A')+1", L"n:6"},
      // Failures store nothing: too short a stack, an undefined value, a missing row alone.
      {L"- - 1", L"s:old"}, {L"foo()+1", L"s:old"}, {L"~1", L"s:old"}, {L"1+~1", L"s:old"}, {L"~1,2", L"n:2"},
      {L"Get(Nobody,'A')", L"s:old"}, {L"Z+'!'", L"s:old!"}, {L"Z", L"s:old"}};
  for (auto& c : cases) EXPECT_EQ(Eval(c.Formula), c.Result) << c.Formula;
  EXPECT_EQ(Eval(L"Get(Parent,'A')*2", L"K"), L"n:10");
  EXPECT_EQ(Eval(L"A+'!'", L"K"), L"s:x!");
  // Joined texts must fit the arena; beyond it the cell keeps its value.
  EXPECT_EQ(Eval(L"'abc'+'def'", L"R1", 28), L"s:abcdef");
  EXPECT_EQ(Eval(L"'abc'+'def'", L"R1", 27), L"s:old");
  Row(L"R1")->SetString(L"B", std::wstring(4000, L'y').c_str());
  EXPECT_EQ(Eval(L"B+B"), L"s:" + std::wstring(8000, L'y'));
  EXPECT_EQ(Eval(L"B+B+B+B+B"), L"s:old");
}

TEST_F(CalcTest, AggregatesLeaveFilteredChildrenOut) {
  Create(L"<Grid><Cols><C Name='A'/><C Name='B'/></Cols><Body><B>"
         L"<I id='P'><I id='c1' A='1' B='b'/><I id='c2' A='2'/><I id='c3' A='100' B='b' _0F='8'/>"
         L"<I id='g' AggChildren='1' A='1000'><I id='g1' A='3'/><I id='g2' A='10'/></I></I>"
         L"<I id='N'><I id='e' AggChildren='1'/><I id='n1' A='-5'/></I>"
         L"<I id='H'><I id='h1' A='7' _0F='8'/></I>"
         L"<I id='r2' A='20' _0F='8'/><I id='r3' A='30'/></B></Body>"
         L"<Foot><I id='F' Calculated='1'/></Foot></Grid>");
  const struct { const wchar_t* Id; const wchar_t* Formula; const wchar_t* Result; } cases[] = {
      {L"P", L"sum('A')", L"n:16"}, {L"P", L"sumsq('A')", L"n:114"}, {L"P", L"count()", L"n:4"},
      {L"P", L"counta('B')", L"n:1"}, {L"P", L"countblank('B')", L"n:3"}, {L"P", L"product('A')", L"n:60"},
      {L"P", L"max('A')", L"n:10"}, {L"P", L"min('A')", L"n:1"}, {L"P", L"foo('A')", L"n:0"},
      {L"P", L"sum('NoSuchColumn')", L"n:0"}, {L"P", L"count('NoSuchColumn')", L"n:4"}, {L"P", L"sum(1)", L"n:0"},
      {L"P", L"sum('A','B')+1", L"n:17"}, {L"H", L"max('A')", L"n:0"}, {L"H", L"min('A')", L"n:0"},
      // An AggChildren row with nothing counted brings the fold back to 0 midway.
      {L"N", L"max('A')", L"n:0"}, {L"N", L"min('A')", L"n:-5"},
      // Childless under a row: the start value, unclamped.
      {L"c1", L"sum('A')", L"n:0"}, {L"c1", L"product('A')", L"n:1"}, {L"c1", L"max('A')", L"n:-1e+300"},
      // Childless outside groups: the root rows of every page; count without a column stops at its start.
      {L"F", L"sum('A')", L"n:30"}, {L"F", L"count()", L"n:4"}, {L"F", L"count('A')", L"n:4"},
      {L"F", L"sumsq('A')", L"n:900"}, {L"F", L"count(1)", L"n:0"}, {L"r3", L"count('A')", L"n:4"}};
  for (auto& c : cases) EXPECT_EQ(Eval(c.Formula, c.Id), c.Result) << c.Id << L" " << c.Formula;
}

TEST_F(CalcTest, OrdersRunInTheirSequence) {
  Create(L"<Grid><Cols><C Name='A'/><C Name='B'/><C Name='X' Formula='Y+1'/><C Name='Y' Formula='5'/></Cols>"
         L"<Body><B><I id='d' Y='2'/>"
         L"<I id='ba' Calculated='1' CalcOrder='B,A' AFormula='B+1' BFormula='A*10' A='1'/>"
         L"<I id='ab' Calculated='1' CalcOrder='A,*B' AFormula='B+1' BFormula='A*10' B='1'/>"
         L"<I id='loop' Calculated='1' AFormula='B+1' BFormula='A+1'/>"
         L"<I id='own' CalcOrder='Y,X' Y='2'/></B></Body></Grid>");
  grid->CalcChildren(Page(0));
  const struct { const wchar_t* Id; const wchar_t* Cells; } cases[] = {
      {L"d", L"3,5"}, {L"ba", L"11,10"}, {L"ab", L"2,1"}, {L"loop", L"1,2"}, {L"own", L"6,5"}};
  auto cells = [&](const wchar_t* id, const wchar_t* a, const wchar_t* b) {
    return Attr(Row(id), a) + L"," + Attr(Row(id), b);
  };
  for (auto& c : cases) {
    bool columns = c.Id == std::wstring(L"d") || c.Id == std::wstring(L"own");
    EXPECT_EQ(cells(c.Id, columns ? L"X" : L"A", columns ? L"Y" : L"B"), c.Cells) << c.Id;
  }
  grid->CalcRow(Row(L"loop"));  // each pass runs each formula once
  EXPECT_EQ(cells(L"loop", L"A", L"B"), L"3,4");
  // Rows with and without Calculated keep the same list apart by its key.
  EXPECT_STREQ(grid->CalcOrderTable.GetKey(Row(L"ba")->GetIntBase(grid->CalcOrderIndex)), L"B,A");
  EXPECT_STREQ(grid->CalcOrderTable.GetKey(Row(L"d")->GetIntBase(grid->CalcOrderIndex)), L"*X,Y");
  int order[TGridCalc::MaxOrderInts];
  EXPECT_EQ(grid->ParseCalcOrder(L"A,*B,,Y", order, false), 9 * 4);
  EXPECT_EQ(order[0], grid->Tree->GetIndex(L"A", 0));
  EXPECT_EQ(order[7], grid->Cols.Get(L"Y", 0));
  EXPECT_EQ(order[8], 0);
}

TEST_F(CalcTest, AggregateCallsBecomeCellsOfTheirOwn) {
  const struct { const wchar_t* Formula; const wchar_t* List; const wchar_t* Call; } cases[] = {
      {L"sum('A')", L",Asum", L"sum('A')"}, {L"sum('A','B')*2", L",A_Bsum", L"sum('A','B')"},
      {L"sum(A)", L",_Asum", L"sum(A)"}, {L"count()", L",count", L"count()"}, {L"max()", L",Cmax", L"max(\"C\")"},
      {L"mysum(1)", L",_1sum", L"sum(1)"}, {L"sum('A', 'B')", L",A_ 'B'sum", L"sum('A', 'B')"},
      {L"counta ('a.b')", L",a_bcounta", L"counta ('a.b')"}, {L"sum('A')+sum('A')", L",Asum", L"sum('A')"},
      {L"min('')", L",Cmin", L"min(\"C\")"}, {L"sum", L"", nullptr}};
  int c = grid->Tree->GetIndex(L"C", 1);
  for (auto& t : cases) {
    TNode* node = grid->Tree->CreateElement(L"I");
    wchar_t list[TGridCalc::MaxOrderText + 1] = L"";
    wchar_t* end = list;
    grid->AddAggCalcOrderFormula(node, list, t.Formula, end, c);
    EXPECT_EQ(std::wstring(list), t.List) << t.Formula;
    EXPECT_EQ(end, list + wcslen(list));
    if (t.Call) {
      int index = node->GetIntBase(node->GetIndex(L"#Formula", t.List + 1, 0));
      EXPECT_STREQ(grid->FormulaTable.GetKey(index), t.Call) << t.Formula;
    }
    TNode::Delete(node);
  }
  // Two rows with one CalcOrder but different aggregates get different lists.
  Create(L"<Grid><Cols><C Name='A'/></Cols><Body><B>"
         L"<I id='s' Calculated='1' CalcOrder='A' AFormula='sum()'><I A='2'/><I A='3'/></I>"
         L"<I id='m' Calculated='1' CalcOrder='A' AFormula='max()'><I A='2'/><I A='3'/></I></B></Body></Grid>");
  grid->CalcChildren(Page(0));
  EXPECT_EQ(Attr(Row(L"s"), L"A") + L"," + Attr(Row(L"s"), L"Asum") + L"," + Attr(Row(L"m"), L"Amax"), L"5,5,3");
  EXPECT_STREQ(grid->CalcOrderTable.GetKey(Row(L"s")->GetIntBase(grid->CalcOrderIndex)), L"A,Asum");
  EXPECT_STREQ(grid->CalcOrderTable.GetKey(Row(L"m")->GetIntBase(grid->CalcOrderIndex)), L"A,Amax");
}

TEST_F(CalcTest, OrderLimitsRefuseWhatWouldOverrun) {
  std::wstring names;
  for (int i = 0; i < 300; i++) names += (i ? L"," : L"") + std::wstring(1, (wchar_t)(L'a' + i % 26)) + std::to_wstring(i / 26);
  std::wstring fits = L"A" + Repeat(L",*", 510), tooLong = L"A" + Repeat(L",*", 512);
  const struct { std::wstring Order; bool Runs; } cases[] = {
      {fits, true}, {tooLong, false}, {names + L",A", false}, {names.substr(0, 700) + L",A", true}};
  for (auto& c : cases) {
    Create(L"<Grid><Cols><C Name='A' Formula='7'/></Cols><Body><B><I id='r' CalcOrder='" + c.Order +
           L"'/></B></Body></Grid>");
    grid->CalcChildren(Page(0));
    EXPECT_EQ(Attr(Row(L"r"), L"A"), c.Runs ? L"7" : L"-") << c.Order.size();
  }
  // Aggregates that would outgrow the order's buffer are left out, the rest of the row still runs.
  std::wstring order = L"A," + std::wstring(1010, L'x');
  Create(L"<Grid><Cols><C Name='A'/></Cols><Body><B><I id='r' Calculated='1' CalcOrder='" + order +
         L"' AFormula=\"1+sum('bb')+sum('cc')\"/></B></Body></Grid>");
  grid->CalcChildren(Page(0));
  EXPECT_EQ(Attr(Row(L"r"), L"A"), L"1");
  EXPECT_STREQ(grid->CalcOrderTable.GetKey(Row(L"r")->GetIntBase(grid->CalcOrderIndex)), (order + L",bbsum").c_str());
}

TEST_F(CalcTest, RecalcRowWalksAsItsMaskSays) {
  const struct { const wchar_t* Id; int Mask; const wchar_t* Counts; } cases[] = {
      {L"p", 1, L"1,0,0,0"}, {L"p", 8, L"0,10,0,0"}, {L"p", 16, L"0,10,1,0"}, {L"p", 24, L"0,10,1,0"},
      {L"p", 25, L"1,10,1,0"}, {L"p", 2, L"0,0,0,1"}, {L"g", 2, L"0,10,0,1"}, {L"g", 4, L"1,10,0,1"},
      {L"g", 7, L"1,10,1,1"}};
  for (auto& c : cases) {
    Create(L"<Grid><Cols><C Name='N' Formula='N+1'/></Cols><Body><B>"
           L"<I id='p'><I id='c' Calculated='1' NFormula='N+10'><I id='g'/></I></I></B></Body></Grid>");
    grid->RecalcRow(Row(c.Id), c.Mask);
    std::wstring counts;
    for (TNode* node : {Row(L"p"), Row(L"c"), Row(L"g"), Page(0)}) counts += (counts.empty() ? L"" : L",") + std::to_wstring(node->GetInt(L"N"));
    EXPECT_EQ(counts, c.Counts) << c.Id << L" " << c.Mask;
  }
}

TEST_F(CalcTest, BodyCarriesCalculatedRowsAndPageAggregates) {
  Create(L"<Grid><Cfg Paging='3' PageLength='2' NoPager='1'/><Cols><C Name='B' Type='Int'/><C Name='C' Type='Float'/>"
         L"<C Name='T' Type='Float' Formula='B*C'/></Cols>"
         L"<Foot><I id='Total' Calculated='1' BFormula='sum()' CFormula='max()'/></Foot>"
         L"<Solid><I id='S' Kind='Space' Cells='K' Calculated='1' KFormula='count()'/></Solid>"
         L"<Body><B><I id='1' B='2' C='1.5'/><I id='2' B='3' C='4'/><I id='3' B='1' C='0.25' _0F='8'/>"
         L"<I id='4' B='10' C='-1'/></B></Body></Grid>");
  EXPECT_EQ(Take(grid->GetBody(nullptr, nullptr)),
            L"<Grid><IO/><Cfg RootCount=\"3\"/><Root CDef=\"R\"/><Par><P Name=\"P\" List=\"Bsum,Cmax,count\"/>"
            L"</Par><Body>\"\"P\"2       \"5\"4\"2\"10\"-1\"1</Body></Grid>");
  EXPECT_EQ(Attr(Row(L"1"), L"T") + L"," + Attr(Row(L"3"), L"T") + L"," + Attr(Row(L"4"), L"T"), L"3,0.25,-10");
  EXPECT_EQ(Attr(grid->AggNode, L"Calculated") + L"," + Attr(grid->AggNode, L"Bsum"), L"1,-");
  // The fixed row itself is calculated over the whole body when it is asked for.
  grid->CalcRow(grid->FixedRows.Items[0]);
  EXPECT_EQ(Attr(Row(L"Total"), L"B") + L"," + Attr(Row(L"Total"), L"C"), L"15,4");
  // Without a calculated fixed row the template stays empty and pages run the column formulas.
  Create(L"<Grid><Cfg Paging='3'/><Cols><C Name='T' Formula='7'/></Cols><Body><B><I id='1'/></B></Body></Grid>");
  EXPECT_EQ(Xml(grid->AggNode), L"<B/>");
  Take(grid->GetBody(nullptr, nullptr));
  EXPECT_EQ(Attr(Page(0), L"T") + L"," + Attr(Row(L"1"), L"T"), L"7,7");
}

}  // namespace
