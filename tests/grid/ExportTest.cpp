// Export: the HTML sheet of the grid's rows, byte for byte.
#include <algorithm>

#include "GridTest.h"

namespace {

const std::wstring Head =
    L"<html xmlns:o=\"urn:schemas-microsoft-com:office:office\" xmlns:x=\"urn:schemas-microsoft-com:office:excel\" "
    L"xmlns=\"http://www.w3.org/TR/REC-html40\"><head><meta http-equiv=Content-Type content=\"text/html; "
    L"charset=utf-8\"></head><body><style>td {white-space:nowrap} br {mso-data-placement:same-cell;} .sd "
    L"{mso-number-format:\"Short Date\";} .st {mso-number-format:\"Short Time\";} .gd {mso-number-format:\"General "
    L"Date\";}</style><!--[if gte mso 9]><xml><o:OfficeDocumentSettings><o:Colors><o:Color><o:Index>37</o:Index>"
    L"<o:RGB>#F0F0E0</o:RGB></o:Color><o:Color><o:Index>38</o:Index><o:RGB>#F6F6F6</o:RGB></o:Color></o:Colors>"
    L"</o:OfficeDocumentSettings></xml><![endif]-->";
const std::wstring Outline =
    L"<!--[if gte mso 9]><xml><x:ExcelWorkbook><x:ExcelWorksheets><x:ExcelWorksheet><x:Name>Grid</x:Name>"
    L"<x:WorksheetOptions><x:NoSummaryRowsBelowDetail/></x:WorksheetOptions></x:ExcelWorksheet></x:ExcelWorksheets>"
    L"</x:ExcelWorkbook></xml><![endif]-->";
const std::wstring Table =
    L"\r\n\r\n<table border=\"1\" bordercolor=\"silver\" "
    L"style='table-layout:fixed;border-collapse:collapse;border:1px solid black'>";
const std::wstring Caption = L"<td style='border-bottom:1px solid black;background:#F0F0E0;font-weight:bold;'>";

size_t Count(const std::wstring& text, const std::wstring& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::wstring::npos; at = text.find(part, at + 1)) n++;
  return n;
}

class ExportTest : public GridTest {
protected:
  std::wstring Export(const std::wstring& request) { return Take(grid->GetExport(request.c_str(), nullptr)); }
  // The table rows of a document, from the first row to the table's end.
  static std::wstring Rows(const std::wstring& doc) {
    size_t from = doc.find(L"\r\n<tr"), to = doc.find(L"\r\n</table>");
    return from == std::wstring::npos || to == std::wstring::npos ? L"<none>" : doc.substr(from, to - from);
  }
  // Rows as the texts of their cells: "a|b/c|d"; markup inside cells goes too.
  static std::wstring Brief(const std::wstring& doc) {
    std::wstring rows = Rows(doc), out;
    bool tag = false;
    for (size_t i = 0; i < rows.size(); i++) {
      if (!rows.compare(i, 5, L"</td>") || !rows.compare(i, 5, L"</TD>")) out += L'|';
      else if (!rows.compare(i, 2, L"\r\n")) out += i ? L"/" : L"", i++;
      if (rows[i] == L'<') tag = true;
      else if (rows[i] == L'>') tag = false;
      else if (!tag && rows[i] != L'\n') out += rows[i];
    }
    size_t at;
    while ((at = out.find(L"|/")) != std::wstring::npos) out.erase(at, 1);
    if (!out.empty() && out.back() == L'|') out.pop_back();
    return out;
  }
  // One column X of the given definition and one body row; the row's cell
  // as written, options from the grid's Cfg.
  std::wstring Cell(const std::wstring& column, const std::wstring& row, int options) {
    Create(L"<Grid><Cfg ExportType='" + std::to_wstring(options) +
           L"' BaseUrl='http://h/?a&amp;' /><Lang><Text Picture='Pic&lt;'/></Lang><Header CanExport='0'/><Cols><C Name='X' " +
           column + L"/></Cols><Body><B><I id='r' " + row + L"/></B></Body></Grid>");
    std::wstring rows = Rows(Export(L"<Grid><Cols><C Name='X'/></Cols></Grid>"));
    return rows.size() > 15 ? rows.substr(6, rows.size() - 11) : rows;
  }
};

TEST_F(ExportTest, DocumentHeadAndTailByteForByte) {
  const struct { const wchar_t* Cfg; const wchar_t* Request; std::wstring Expected; } cases[] = {
      {L"", L"<Grid><Cols><C Name='A'/></Cols></Grid>",
       Head + Table + L"<col width=\"40\">\r\n<tr>" + Caption + L"Cap</td></tr>\r\n<tr><td>v</td></tr>" +
           L"\r\n</table>\r\n\r\n</body></html>"},
      // Prefix and postfix raw; the outline's worksheet options follow the prefix.
      {L"ExportPrefix='&lt;p&gt;' ExportPostfix='&lt;/p&gt;&amp;'",
       L"<Grid><Cfg ExportType='OUTLINE indent'/><Cols><C Name='A'/></Cols></Grid>",
       Head + L"<p>" + Outline + Table + L"<col width=\"40\">\r\n<tr>" + Caption +
           L"Cap</td></tr>\r\n<tr style='mso-outline-level:0;mso-outline-parent:collapsed;;'><td>v</td></tr>" +
           L"\r\n</table>\r\n\r\n</p>&</body></html>"},
      // No columns: the frame stays whole.
      {L"", L"<Grid/>",
       Head + Table + L"\r\n<tr></tr>\r\n<tr></tr>\r\n</table>\r\n\r\n</body></html>"},
  };
  for (auto& c : cases) {
    Create(std::wstring(L"<Grid><Cfg ") + c.Cfg + L"/><Header A='Cap'/><Cols><C Name='A' Width='40'/></Cols>" +
           L"<Body><B><I A='v'/></B></Body></Grid>");
    int length = -1;
    wchar_t* text = grid->GetExport(c.Request, &length);
    EXPECT_EQ(length, text ? (int)wcslen(text) : -2);
    EXPECT_EQ(Take(text), c.Expected) << c.Request;
  }
  EXPECT_EQ(Take(grid->GetExport(L"<Grid", nullptr)), L"<null>");
  EXPECT_EQ(Take(grid->GetExport(L"", nullptr)), L"<null>");
}

TEST_F(ExportTest, OptionWords) {
  const struct { const wchar_t* Words; int Options; } cases[] = {
      {L"", 32},                        // no "indent": no indentation
      {L"filtered,indent", 1},
      {L"outline", 16 | 32},
      {L"unfiltered", 1 | 32},          // words are found inside longer ones
      {L"expanded strings hidden dates indent", 2 | 4 | 8 | 64},
      {L"outlineindentfiltered", 1 | 16},
  };
  for (auto& c : cases) EXPECT_EQ(TGridExport::OptionsOfWords(c.Words), c.Options) << c.Words;
}

TEST_F(ExportTest, OptionsComeFromTheRequestOrTheGridsCfg) {
  const struct { const wchar_t* Grid; const wchar_t* Request; bool Outline; bool Dates; const wchar_t* Stored; } cases[] = {
      {L"16", L"", true, true, L"16"},
      {L"16", L"ExportType='date'", true, true, L"16"},  // short: the grid's integer holds
      {L"80", L"ExportType='Outline'", true, true, L"80"},
      {L"0", L"ExportType='Dates,Outline'", true, false, L"0"},
      {L"DATES strings", L"", false, false, L"dates strings"},  // lower-cased where it is stored
  };
  for (auto& c : cases) {
    Create(std::wstring(L"<Grid><Cfg ExportType='") + c.Grid +
           L"'/><Cols><C Name='D' Type='Date' Format='dd.MM.yyyy'/></Cols><Body><B><I D='86400000'/></B></Body></Grid>");
    std::wstring doc = Export(std::wstring(L"<Grid><Cfg ") + c.Request + L"/><Cols><C Name='D'/></Cols></Grid>");
    EXPECT_EQ(doc.find(Outline) != std::wstring::npos, c.Outline) << c.Grid << L" " << c.Request;
    EXPECT_EQ(doc.find(L"x:num='25570'") != std::wstring::npos, c.Dates) << c.Grid << L" " << c.Request;
    EXPECT_EQ(std::wstring(grid->Cfg->GetString(L"ExportType")), c.Stored);
  }
}

TEST_F(ExportTest, ColumnsByVisibleWidthAndCanExport) {
  const struct { const wchar_t* Request; const wchar_t* Widths; const wchar_t* Rows; } cases[] = {
      {L"<C Name='A'/><C Name='B'/><C Name='C'/><C Name='D'/>", L"10,40,", L"A|D/a|d"},
      {L"<C Name='B' Visible='1' Width='5'/>", L"5,", L"B/b"},
      {L"<C Name='A' Width='99'/>", L"10,", L"A/a"},  // Width counts only beside Visible
      {L"<C Name='A' Visible='0' Width='99'/>", L"", L"/"},
      {L"<C Name='C' Visible='1'/>", L"", L"/"},
      {L"<C Name='C' CanExport='1'/>", L"30,", L"C/c"},
      {L"<C Name='D' CanExport='0'/>", L"", L"/"},
      {L"<C Name='Nope'/><C Name='D'/><C Name='A'/>", L"40,10,", L"D|A/d|a"},
  };
  for (auto& c : cases) {
    Create(L"<Grid><Cols><C Name='A' Width='10'/><C Name='B' Width='20' Visible='0'/><C Name='C' Width='30' "
           L"CanExport='0'/><C Name='D' Width='40'/></Cols><Body><B><I A='a' B='b' C='c' D='d'/></B></Body></Grid>");
    std::wstring doc = Export(std::wstring(L"<Grid><Cols>") + c.Request + L"</Cols></Grid>"), widths;
    for (size_t at = doc.find(L"<col width=\""); at != std::wstring::npos; at = doc.find(L"<col width=\"", at + 1))
      widths += doc.substr(at + 12, doc.find(L'"', at + 12) - at - 12) + L",";
    EXPECT_EQ(widths, c.Widths) << c.Request;
    EXPECT_EQ(Brief(doc), c.Rows) << c.Request;
  }
}

TEST_F(ExportTest, HeaderRowsWithSpans) {
  const std::wstring cols = L"<LeftCols><C Name='A'/><C Name='B'/></LeftCols><Cols><C Name='C'/><C Name='D'/>"
                            L"<C Name='E'/></Cols><RightCols><C Name='F'/></RightCols>";
  auto td = [](int span, const wchar_t* text) {
    return L"<TD COLSPAN=" + std::to_wstring(span) + L" style='background:#F0F0E0;'>" + text + L"</TD>";
  };
  std::wstring captions = L"\r\n<tr>";
  for (const wchar_t* name : {L"A", L"B", L"C", L"D", L"E", L"F"}) captions += Caption + name + L"</td>";
  captions += L"</tr>";
  const struct { const wchar_t* Header; const wchar_t* Request; std::wstring Expected; } cases[] = {
      // Left's first caption gives up one column of its span.
      {L"Rows='2' Left00='L' Left00Span='2' Mid00='M&lt;b&gt;' Mid00Span='2' Mid01='R' Right00Span='5'", L"",
       L"\r\n<tr>" + td(1, L"L") + td(1, L"&nbsp;") + td(2, L"M<b>") + td(1, L"R") + td(1, L"&nbsp;") + L"</tr>" +
           captions},
      {L"Rows='2' Main='0' Mid10Span='3'", L"",
       captions + L"\r\n<tr>" + td(1, L"&nbsp;") + td(1, L"&nbsp;") + td(3, L"&nbsp;") + td(1, L"&nbsp;") + L"</tr>"},
      // A hidden column inside a span isn't counted; the first hidden one ends the section's captions.
      {L"Rows='2' Mid00Span='2' Left00Span='0'", L"<Cols><C Name='C'/><C Name='D' Visible='0'/><C Name='E'/></Cols>",
       L"\r\n<tr>" + td(1, L"&nbsp;") + td(1, L"&nbsp;") + L"</tr>\r\n<tr>" + Caption + L"C</td>" + Caption +
           L"E</td></tr>"},
      {L"Rows='2'", L"<Cols><C Name='C'/><C Name='D' Visible='0'/><C Name='E'/></Cols>",
       L"\r\n<tr>" + td(1, L"&nbsp;") + L"</tr>\r\n<tr>" + Caption + L"C</td>" + Caption + L"E</td></tr>"},
      // A span of 0 or less skips its number only.
      {L"Rows='3' Mid00Span='-1' Mid01Span='3' Mid10Span='0'", L"<Cols><C Name='C'/><C Name='D'/><C Name='E'/></Cols>",
       L"\r\n<tr>" + td(3, L"&nbsp;") + L"</tr>\r\n<tr>" + td(1, L"&nbsp;") + td(1, L"&nbsp;") + td(1, L"&nbsp;") +
           L"</tr>\r\n<tr>" + Caption + L"C</td>" + Caption + L"D</td>" + Caption + L"E</td></tr>"},
      {L"Rows='2' CanExport='0'", L"", L"<none>"},
      {L"Rows='1' C='Cee'", L"<Cols><C Name='C'/></Cols>", L"\r\n<tr>" + Caption + L"Cee</td></tr>"},
  };
  for (auto& c : cases) {
    Create(std::wstring(L"<Grid><Header ") + c.Header + L"/>" + cols + L"</Grid>");
    std::wstring doc = Export(std::wstring(L"<Grid>") + (*c.Request ? c.Request : cols.c_str()) + L"</Grid>");
    EXPECT_EQ(Rows(doc), c.Expected) << c.Header;
  }
}

TEST_F(ExportTest, SectionsInOrderWithTheirKinds) {
  // A Pager kept by Kind 'I' is skipped in Head by its name, written in Foot.
  const std::wstring layout =
      L"<Grid><Header A='cap'/><Cols><C Name='A'/></Cols><Head><I A='h1'/><Header A='Hcap'/><User A='u'/>"
      L"<Pager Kind='I' A='hp'/><Filter id='F1' A='f' AFilter='1'/><I A='h2'/></Head><Body><B><I A='b1'/></B><B><I A='b2'/></B>"
      L"</Body><Foot><I A='f1'/><Pager Kind='I' A='fp'/><I id='F2' Kind='Filter' A='ff' AFilter='9'/></Foot></Grid>";
  const struct { const wchar_t* Type; const wchar_t* Rows; } cases[] = {
      {L"", L"cap/h1/Hcap/  f/h2/b1/b2/f1/fp/ *ff"},
      {L"filtered", L"cap/h1/Hcap/h2/b1/b2/f1/fp"},
  };
  for (auto& c : cases) {
    Create(layout);
    std::wstring doc = Export(std::wstring(L"<Grid><Cfg ExportType='indent ") + c.Type + L"'/><Cols><C Name='A'/></Cols></Grid>");
    EXPECT_EQ(Brief(doc), c.Rows) << c.Type;
  }
  Create(layout);
  std::wstring rows = Rows(Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>"));
  EXPECT_NE(rows.find(L"<td style='background:#F6F6F6;'>h1</td>"), std::wstring::npos);
  EXPECT_NE(rows.find(L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>h2</td>"), std::wstring::npos);
  EXPECT_NE(rows.find(L"<td style='background:#F6F6F6;border-top:1px solid black;'>f1</td>"), std::wstring::npos);
  EXPECT_NE(rows.find(L"<td>b2</td>"), std::wstring::npos);
}

TEST_F(ExportTest, CalculatesFixedRows) {
  Create(L"<Grid><Cols><C Name='A' Type='Int'/></Cols><Body><B><I A='2'/><I A='5'/></B></Body>"
         L"<Foot><I Calculated='1' AFormula='sum()'/></Foot></Grid>");
  EXPECT_EQ(Brief(Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>")), L"A/2/5/7");
}

TEST_F(ExportTest, OutlineAndIndentation) {
  // r2 is collapsed under the expanded r1; r4 has no Expanded at all.
  const std::wstring layout =
      L"<Grid><Cfg MainCol='A'/><Header CanExport='0'/><Cols><C Name='A'/></Cols><Body><B><I id='r1' A='1' "
      L"Expanded='1'><I id='r2' A='2' Expanded='0'><I id='r3' A='3' Expanded='1'/></I></I><I id='r4' A='4'/></B>"
      L"</Body></Grid>";
  const std::wstring pad30 = L"<td style='padding-left:30px;'>", pad60 = L"<td style='padding-left:60px;'>";
  const std::wstring collapsed = L"mso-outline-parent:collapsed;;";
  const struct { int Options; std::wstring Rows; } cases[] = {
      {0, L"\r\n<tr><td>1</td></tr>\r\n<tr>" + pad30 + L"2</td></tr>\r\n<tr><td>4</td></tr>"},
      {32, L"\r\n<tr><td>1</td></tr>\r\n<tr><td>2</td></tr>\r\n<tr><td>4</td></tr>"},
      {2, L"\r\n<tr><td>1</td></tr>\r\n<tr>" + pad30 + L"2</td></tr>\r\n<tr>" + pad60 +
              L"3</td></tr>\r\n<tr><td>4</td></tr>"},
      {16 | 32, L"\r\n<tr style='mso-outline-level:0;'><td>1</td></tr>\r\n<tr style='mso-outline-level:1;" + collapsed +
                    L"'><td>2</td></tr>\r\n<tr style='mso-outline-level:2;display:none;'><td>3</td></tr>"
                    L"\r\n<tr style='mso-outline-level:0;" + collapsed + L"'><td>4</td></tr>"},
      {16 | 2 | 32, L"\r\n<tr style='mso-outline-level:0;'><td>1</td></tr>\r\n<tr style='mso-outline-level:1;'><td>2"
                        L"</td></tr>\r\n<tr style='mso-outline-level:2;'><td>3</td></tr>"
                        L"\r\n<tr style='mso-outline-level:0;'><td>4</td></tr>"},
  };
  for (auto& c : cases) {
    Create(layout);
    grid->Cfg->SetInt(L"ExportType", c.Options);
    EXPECT_EQ(Rows(Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>")), c.Rows) << c.Options;
  }
  // CanExport 0 and Visible 0 take the subtree along; filtered rows go with option 1.
  Create(layout);
  grid->Cfg->SetInt(L"ExportType", 2);
  Row(L"r2")->SetInt(L"CanExport", 0);
  Row(L"r3")->SetInt(L"CanExport", 1);
  Row(L"r4")->Flags |= FFiltered;
  EXPECT_EQ(Brief(Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>")), L"1");
  grid->Cfg->SetInt(L"ExportType", 3);
  Row(L"r2")->SetInt(L"CanExport", 1);
  Row(L"r1")->SetInt(L"Visible", 1);
  Row(L"r3")->SetInt(L"Visible", 0);
  EXPECT_EQ(Brief(Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>")), L"1/2/4");
}

TEST_F(ExportTest, ValueBranches) {
  const struct { const wchar_t* Column; const wchar_t* Row; int Options; const wchar_t* Cell; } cases[] = {
      {L"Type='Bool'", L"X='1'", 0, L"<td>1</td>"},
      {L"Type='Bool'", L"", 0, L"<td>0</td>"},
      {L"Type='Bool' Format='|no|yes'", L"X='1'", 0, L"<td>yes</td>"},
      {L"Type='Bool' Format='|no|yes'", L"X='5'", 0, L"<td></td>"},
      {L"Type='Int'", L"X='12'", 0, L"<td x:num='12'>12</td>"},
      {L"Type='Float'", L"X='-1.25'", 0, L"<td x:num='-1.25'>-1.25</td>"},
      {L"Type='Int'", L"X='0'", 0, L"<td x:num='0'>0</td>"},
      {L"Type='Int' EmptyValue='-'", L"", 0, L"<td x:str='-'>-</td>"},
      {L"Type='Int' EmptyValue='-'", L"XEmptyValue='n/a'", 0, L"<td x:str='n/a'>n/a</td>"},
      {L"Type='Int' EmptyValue='-' CanEmpty='0'", L"", 0, L"<td x:num='0'>0</td>"},
      {L"Type='Date' Format='dd.MM.yyyy'", L"X='86400000'", 0, L"<td class='sd' x:num='25570'>02.01.1970</td>"},
      {L"Type='Date' Format='dd.MM.yyyy HH:mm'", L"X='129600000'", 0,
       L"<td class='gd' x:num='25570.5'>02.01.1970 12:00</td>"},
      {L"Type='Date' Format='dd.MM.yyyy'", L"X='86400000'", 64, L"<td class='sd'>02.01.1970</td>"},
      {L"Type='Date' EmptyValue='none'", L"X='0'", 0, L"<td x:str='none'>none</td>"},
      {L"Type='Date' EmptyValue='none'", L"", 0, L"<td x:str='none'>none</td>"},
      {L"Type='Text'", L"X='a&lt;b&amp;c&quot;d&gt;&#233;'", 0, L"<td>a&lt;b&amp;c&quot;d>\u00e9</td>"},
      {L"Type='Text'", L"X='007'", 4, L"<td x:str=\"007\">007</td>"},
      {L"Type='Text'", L"", 4, L"<td x:str=''></td>"},
      {L"Type='Enum' Enum='|zero|o&amp;ne'", L"X='1'", 0, L"<td>o&amp;ne</td>"},
      {L"Type='Lines'", L"X='a&#x0D;&#x0A;&lt;b'", 4, L"<td style='white-space:normal;'>a<br>&lt;b</td>"},
      {L"Type='Lines'", L"X='a&lt;b'", 4, L"<td style='white-space:normal;' x:str=\"a&lt;b\">a&lt;b</td>"},
      {L"Type='Html'", L"X='x'", 0, L"<td></td>"},
      {L"Type='Text'", L"X='x' XExportValue='=&lt;b&gt;1'", 0, L"<td>=<b>1</td>"},
      {L"Type='Text'", L"X='x' XVisible='0'", 0, L"<td></td>"},
      {L"Type='Int' ExportFormat='#,##0.00'", L"X='2'", 0, L"<td style=' mso-number-format:#,##0.00;' x:num='2'>2</td>"},
  };
  for (auto& c : cases) EXPECT_EQ(Cell(c.Column, c.Row, c.Options), c.Cell) << c.Column << L" " << c.Row;
}

TEST_F(ExportTest, DateClassesBySpelling) {
  const struct { const wchar_t* Format; const wchar_t* Class; } cases[] = {
      {L"", L"sd"}, {L"d", L"sd"}, {L"M", L"sd"}, {L"t", L"st"}, {L"T", L"st"}, {L"x", L"gd"},
      {L"Tdd", L"st"}, {L"HH:mm", L"st"}, {L"dd.MM.yyyy", L"sd"}, {L"MMMM", L"sd"}, {L"yyyy m", L"gd"},
      {L"d.M.yy H:mm", L"gd"},
  };
  for (auto& c : cases) {
    std::wstring cell = Cell(std::wstring(L"Type='Date' Format='") + c.Format + L"'", L"X='86400000'", 0);
    EXPECT_EQ(cell.substr(0, 14), std::wstring(L"<td class='") + c.Class + L"'") << c.Format;
  }
}

TEST_F(ExportTest, LinksAndImages) {
  const struct { const wchar_t* Column; const wchar_t* Row; const wchar_t* Cell; } cases[] = {
      {L"Type='Link'", L"X='|u?a&amp;b|Go &lt;'", L"<td><A HREF=\"u?a&amp;b\">Go &lt;</A></td>"},
      // Without text the address is shown again, base and pieces included, escaped once.
      {L"Type='Link' Format='|(|)|&lt;i&gt;|&lt;/i&gt;|1'", L"X='|u&amp;'",
       L"<td><i><A HREF=\"http://h/?a&amp;(u&amp;)\">http://h/?a&amp;(u&amp;)</A></i></td>"},
      {L"Type='Link' Format='|(|)|||2'", L"X='|u|t'", L"<td><A HREF=\"(u)\">t</A></td>"},
      {L"Type='Link'", L"", L"<td x:str=''></td>"},
      {L"Type='Img' Format='|||&lt;p&gt;|&lt;/p&gt;|[|]|2'", L"X='|a|b|c|d|e|pic.png'",
       L"<td><p><A HREF=\"http://h/?a&amp;[pic.png]\">Pic<</A></p></td>"},
      {L"Type='Img'", L"X='||||||javascript:go()'", L"<td><A HREF=\"\">Pic<</A></td>"},
      {L"Type='Img'", L"X='|a|b'", L"<td x:str=''></td>"},
  };
  for (auto& c : cases) EXPECT_EQ(Cell(c.Column, c.Row, 0), c.Cell) << c.Column << L" " << c.Row;
}

TEST_F(ExportTest, FilterRowMarks) {
  const std::wstring red = L"<b style='color:red;'>";
  const struct { int Filter; std::wstring Cell; } cases[] = {
      {0, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'></td>"},
      {1, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>" + red + L"  </b>a&b</td>"},
      {2, L"<td style='background:#F6F6F6;border-bottom:1px solid black;text-decoration:line-through;'>" + red +
              L"  </b>a&b</td>"},
      {3, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>" + red + L" &lt; </b>a&b</td>"},
      {6, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>" + red + L" &gt;= </b>a&b</td>"},
      {7, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>a&b" + red + L"* </b></td>"},
      {10, L"<td style='background:#F6F6F6;border-bottom:1px solid black;text-decoration:line-through;'>" + red +
               L" *</b>a&b</td>"},
      {11, L"<td style='background:#F6F6F6;border-bottom:1px solid black;'>" + red + L" *</b>a&b" + red +
               L"* </b></td>"},
  };
  for (auto& c : cases) {
    Create(L"<Grid><Header CanExport='0'/><Cols><C Name='X'/></Cols><Head><Filter X='a&amp;b' XFilter='" +
           std::to_wstring(c.Filter) + L"'/></Head></Grid>");
    std::wstring rows = Rows(Export(L"<Grid><Cols><C Name='X'/></Cols></Grid>"));
    EXPECT_EQ(rows, L"\r\n<tr>" + c.Cell + L"</tr>") << c.Filter;
  }
}

TEST_F(ExportTest, SpansAndSections) {
  const std::wstring request = L"<Grid><LeftCols><C Name='A'/></LeftCols><Cols><C Name='B' Visible='0'/><C Name='C'/>"
                               L"</Cols><RightCols><C Name='D'/><C Name='E'/></RightCols></Grid>";
  const std::wstring left = L"<td style='border-right:1px solid black;background:#F6F6F6;'>",
                     right = L"<td style='border-left:1px solid black;background:#F6F6F6;'>",
                     plain = L"<td style='background:#F6F6F6;'>";
  const struct { const wchar_t* Row; std::wstring Cells; } cases[] = {
      {L"", left + L"a</td><td>c</td>" + right + L"d</td>" + plain + L"e</td>"},
      {L"BSpan='2'", left + L"a</td><td>c</td>" + right + L"d</td>" + plain + L"e</td>"},  // not Spanned
      // From the hidden B: its value, C's style.
      {L"Spanned='1' BSpan='2'", left + L"a</td><td>b</td>" + right + L"d</td>" + plain + L"e</td>"},
      {L"Spanned='1' ASpan='3'", L"<td colspan=2>a</td>" + right + L"d</td>" + plain + L"e</td>"},
      // The style goes by the span's last column.
      {L"Spanned='1' ASpan='2'", L"<td>a</td><td>c</td>" + right + L"d</td>" + plain +
                                     L"e</td>"},
      {L"Spanned='1' DSpan='9'", left + L"a</td><td>c</td><td colspan=2 style='background:#F6F6F6;'>d</td>"},
      {L"Spanned='1' BSpan='1'", left + L"a</td><td>c</td>" + right + L"d</td>" + plain + L"e</td>"},
  };
  for (auto& c : cases) {
    Create(std::wstring(L"<Grid><Header CanExport='0'/><Cols><C Name='A'/><C Name='B'/><C Name='C'/><C Name='D'/>"
                        L"<C Name='E'/></Cols><Body><B><I A='a' B='b' C='c' D='d' E='e' ") +
           c.Row + L"/></B></Body></Grid>");
    EXPECT_EQ(Rows(Export(request)), L"\r\n<tr>" + c.Cells + L"</tr>") << c.Row;
  }
}

TEST_F(ExportTest, GroupColumnsEmptyOnDataRows) {
  Create(L"<Grid><Cfg GroupTree='1' Grouped='1' Group='AB,B' ExportType='2'/><Header CanExport='0'/><Cols>"
         L"<C Name='A'/><C Name='B'/><C Name='AB'/></Cols><Body><B><I id='g' A='1' B='2' AB='3'><I A='4' B='5' AB='6'/>"
         L"</I></B></Body></Grid>");
  grid->Tree->GetElem(L"g")->Flags |= FGrouped;
  EXPECT_EQ(Brief(Export(L"<Grid><Cols><C Name='A'/><C Name='B'/><C Name='AB'/></Cols></Grid>")), L"1|2|3/4||");
}

// Beyond each fixed room the text stays whole or is cut safely; run under ASan.
TEST_F(ExportTest, LimitsExceeded) {
  std::wstring big(100000, L'x'), longName(300, L'n'), name127(127, L'm');
  Create(L"<Grid><Cfg ExportPrefix='" + big + L"' ExportPostfix='" + big + L"'/><Header Rows='2000000' Mid00='" + big +
         L"'/><Cols><C Name='A'/><C Name='" + longName + L"'/><C Name='" + name127 +
         L"'/></Cols><Body><B><I A='&amp;" + big + L"'/></B></Body></Grid>");
  std::wstring request = L"<Grid><Cols><C Name='" + longName + L"'/><C Name='" + name127 + L"'/>";
  for (int i = 0; i < 700; i++) request += L"<C Name='A'/>";
  std::wstring doc = Export(request + L"</Cols></Grid>");
  EXPECT_EQ(Count(doc, L"<col "), (size_t)TGridExport::MaxExportCols);
  EXPECT_EQ(Count(doc, L"\r\n<tr>"), (size_t)TGridExport::MaxHeaderRows + 1);
  // Prefix, postfix, captions and cells whole; a search that starts at a rare character stays fast.
  EXPECT_NE(doc.find(L"-->" + big + L"\r\n\r\n<table"), std::wstring::npos);
  EXPECT_NE(doc.find(L"\r\n\r\n" + big + L"</body></html>"), std::wstring::npos);
  EXPECT_EQ(Count(doc, L"<TD COLSPAN=1 style='background:#F0F0E0;'>x"), 1u);  // only row 0 names Mid00
  EXPECT_EQ(Count(doc, L"<td>&amp;" + big + L"</td>"), 511u);
  EXPECT_EQ(doc.find(Caption + longName), std::wstring::npos);
  EXPECT_NE(doc.find(Caption + name127 + L"</td>"), std::wstring::npos);
  // Spans of 0 pass no column: the captions stop at 500 per section.
  std::wstring cols;
  for (int i = 0; i < 600; i++) cols += L"<C Name='c" + std::to_wstring(i) + L"'/>";
  std::wstring spans;
  for (int i = 0; i < 600; i++) spans += L" Mid0" + std::to_wstring(i) + L"Span='0'";
  Create(L"<Grid><Header Rows='2'" + spans + L"/><Cols>" + cols + L"</Cols></Grid>");
  EXPECT_EQ(Count(Export(L"<Grid><Cols>" + cols + L"</Cols></Grid>"), L"<TD COLSPAN"), 0u);
  Create(L"<Grid><Header Rows='2'/><Cols>" + cols + L"</Cols></Grid>");
  EXPECT_EQ(Count(Export(L"<Grid><Cols>" + cols + L"</Cols></Grid>"), L"<TD COLSPAN"),
            (size_t)TGridExport::MaxCaptionCells);
}

TEST_F(ExportTest, DeepTreeWithoutRecursion) {
  Create(L"<Grid><Cfg MainCol='A' ExportType='2'/><Header CanExport='0'/><Cols><C Name='A'/></Cols>"
         L"<Body><B><I id='top' A='0'/><I A='next'/></B></Body></Grid>");
  const int depth = 200000;
  TNode* parent = Row(L"top");
  for (int i = 1; i <= depth; i++) {
    TNode* child = grid->Tree->CreateElement(L"I");
    child->Base = parent->Base;
    child->SetString(L"A", L"v");
    parent = parent->AppendChild(child);
  }
  std::wstring doc = Export(L"<Grid><Cols><C Name='A'/></Cols></Grid>");
  EXPECT_EQ(Count(doc, L"\r\n<tr>"), (size_t)depth + 2);
  EXPECT_NE(doc.find(L"padding-left:" + std::to_wstring(depth * 30LL) + L"px;'>v</td></tr>\r\n<tr><td>next"),
            std::wstring::npos);
}

TEST_F(ExportTest, FillRowAndFillHeaderOnTheirOwn) {
  Create(L"<Grid><Header A='H'/><Cols><C Name='A'/></Cols><Body><B><I id='r' A='a' Expanded='1'><I A='b'/></I></B>"
         L"</Body></Grid>");
  TExportCol col = {L"A", true, false, 10, 1, false, false, false, true, false};
  wchar_t* buffer = (wchar_t*)malloc(16 * sizeof(wchar_t));
  wchar_t* end = buffer + 16;
  wchar_t* out = grid->FillRow(buffer, end, buffer, Row(L"r"), &col, 1, 0, L"", 0, false);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(std::wstring(buffer, out), L"\r\n<tr><td>a</td></tr>\r\n<tr><td>b</td></tr>");
  EXPECT_EQ(*out, 0);
  free(buffer);
  wchar_t header[256];
  wchar_t* tail = grid->FillHeader(header, nullptr, &col, 1);
  EXPECT_EQ(std::wstring(header, tail), L"\r\n<tr>" + Caption + L"A</td></tr>");
}

}  // namespace
