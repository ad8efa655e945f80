#include "grid/Export.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "grid/ExportWalk.h"
#include "tree/System.h"

// The output: one growing buffer written at one cursor. Each write checks
// its own room; a buffer that can't grow (or one that isn't ours to grow)
// stops all further writes, and the export ends with null.
struct TExportSink {
  // Keeps the length within an int, as the caller receives it.
  static const size_t MaxChars = INT_MAX / 2;

  TExportSink(wchar_t*& buffer, wchar_t*& end, wchar_t* out, bool grows)
      : Buffer(buffer), End(end), Out(out), Grows(grows) {}

  // Room for n more cells and a terminator behind Out.
  bool Room(size_t n) {
    if (Failed) return false;
    if (!Grows || (size_t)(End - Out) > n) return true;
    size_t offset = Out - Buffer;
    if (n > MaxChars || offset + n > MaxChars || !TNodeXml::Realloc(Out, Buffer, End, (int)n)) Failed = true;
    return !Failed;
  }
  void Put(const wchar_t* text, size_t n) {
    if (!Room(n)) return;
    wmemcpy(Out, text, n);
    Out += n;
  }
  void Put(const wchar_t* text) { Put(text, wcslen(text)); }
  template <size_t N>
  void Lit(const wchar_t (&text)[N]) { Put(text, N - 1); }
  void Char(wchar_t c) {
    if (Room(1)) *Out++ = c;
  }
  void Int(long long value) {
    if (Room(24)) Out = TData::IntToString(value, Out);
  }
  void Number(double value, int precision) {
    if (Room(320)) Out = TData::ToString(value, Out, precision);
  }
  // "&quot;" is the longest that one character becomes.
  void Escaped(const wchar_t* text, bool lines) {
    if (Room(wcslen(text) * 6 + 1)) Out = lines ? XmlCopyN(Out, text) : XmlCopy(Out, text);
  }
  void Zero() {
    if (Room(1)) *Out = 0;
  }

  wchar_t*& Buffer;
  wchar_t*& End;
  wchar_t* Out;
  bool Grows;
  bool Failed = false;
};

namespace {

using ExportWalk::IsPresentZero;

const wchar_t* const SectionTags[3] = {L"LeftCols", L"Cols", L"RightCols"};
const wchar_t* const OptionWords[7] = {L"filtered", L"expanded", L"strings", L"hidden",
                                       L"outline", L"indent", L"dates"};

bool Starts(const wchar_t* text, const wchar_t* prefix) { return wcsncmp(text, prefix, wcslen(prefix)) == 0; }

// The spreadsheet class of a date by the spelling of its format.
const wchar_t* DateClass(const wchar_t* format) {
  size_t length = wcslen(format);
  if (!length) return L"sd";
  if (length == 1) {
    if (wcschr(L"dDmM", format[0])) return L"sd";
    if (format[0] == L't' || format[0] == L'T') return L"st";
    return L"gd";
  }
  if (format[0] == L'T') return L"st";
  if (!wcspbrk(format, L"dMy")) return L"st";
  if (!wcspbrk(format, L"hHmst")) return L"sd";
  return L"gd";
}

}  // namespace

TGridExport::TGridExport() : VisibleIndex(-1), CanExportIndex(-1), SpannedIndex(-1) {}

void TGridExport::UpdateExport() {
  VisibleIndex = Tree->GetIndex(L"Visible", 0);
  CanExportIndex = Tree->GetIndex(L"CanExport", 0);
  SpannedIndex = Tree->GetIndex(L"Spanned", 0);
}

// ---- the document ----

wchar_t* TGridExport::GetExport(const wchar_t* xml, int* outLength) {
  if (outLength) *outLength = 0;
  std::unique_ptr<TExportCol[]> cols(new TExportCol[MaxExportCols]);
  int count = 0, options = 0;
  if (!ReadRequest(xml, cols.get(), count, options)) return nullptr;

  wchar_t* buffer = (wchar_t*)malloc(FirstBuffer * sizeof(wchar_t));
  if (!buffer) return nullptr;
  wchar_t* end = buffer + FirstBuffer;
  TExportSink sink(buffer, end, buffer, true);
  PrepareCells(cols.get(), count);
  WriteHead(sink, options, cols.get(), count);
  WriteHeader(sink, cols.get(), count);
  WriteFixedRows(sink, Tree->Root->GetChildByName(L"Head", false), true, cols.get(), count, options);
  for (TNode* page = Body->FirstChild; page; page = page->Next)
    for (TNode* row = page->FirstChild; row; row = row->Next)
      WriteRows(sink, row, cols.get(), count, options, L"", 0, false);
  WriteFixedRows(sink, Tree->Root->GetChildByName(L"Foot", false), false, cols.get(), count, options);
  sink.Lit(L"\r\n</table>\r\n\r\n");
  sink.Put(std::wstring(Cfg->GetString(L"ExportPostfix")).c_str());
  sink.Lit(L"</body></html>");
  sink.Zero();
  if (sink.Failed) {
    free(sink.Buffer);
    return nullptr;
  }
  if (outLength) *outLength = (int)(sink.Out - sink.Buffer);
  return sink.Buffer;
}

bool TGridExport::ReadRequest(const wchar_t* xml, TExportCol* cols, int& count, int& options) {
  if (!Tree->Root || !Cfg || !Body) return false;
  UpdateExport();
  std::unique_ptr<TTree> request(new TTree());
  if (!xml || !request->SetXml(xml) || !request->Root) return false;
  TNode* requestCfg = request->Root->GetChildByName(L"Cfg", false);
  MainCol = Cfg->GetString(L"MainCol");
  GroupText.clear();
  if (Cfg->GetInt(L"GroupTree") && Cfg->GetInt(L"Grouped")) GroupText = Cfg->GetString(L"Group");
  count = ReadColumns(request->Root, cols);
  for (int i = 0; i < FixedRows.Count; i++) CalcRow(FixedRows.Items[i]);
  options = ReadOptions(requestCfg);
  return true;
}

// The request's columns in section order; columns the grid doesn't know are
// left out, and so is any column beyond MaxExportCols.
int TGridExport::ReadColumns(TNode* request, TExportCol* cols) {
  int count = 0;
  for (int section = 0; section < 3; section++) {
    TNode* tag = request->GetChildByName(SectionTags[section], false);
    for (TNode* child = tag ? tag->FirstChild : nullptr; child && count < MaxExportCols; child = child->Next) {
      TExportCol& col = cols[count];
      wcsncpy(col.Name, child->GetString(L"Name"), TExportCol::NameLength - 1);
      col.Name[TExportCol::NameLength - 1] = 0;
      TNode* column = Cols.GetNode(col.Name, 0);
      if (!column) continue;
      ReadColumn(child, column, section, col);
      col.LastLeft = section == 0 && child == tag->LastChild;
      col.FirstRight = section == 2 && child == tag->FirstChild;
      count++;
    }
  }
  return count;
}

// The presence of Visible in the request decides where both Visible and
// Width come from.
void TGridExport::ReadColumn(TNode* child, TNode* column, int section, TExportCol& col) {
  TNode* source = child->Has(L"Visible") ? child : column;
  col.Width = source->GetInt(L"Width");
  col.Visible = !IsPresentZero(source, source->GetIndex(L"Visible", 0));
  TNode* exportSource = child->Has(L"CanExport") ? child : column;
  if (IsPresentZero(exportSource, exportSource->GetIndex(L"CanExport", 0))) col.Visible = false;
  TNode* hideSource = child->Has(L"CanHide") ? child : column;
  col.CanHide = hideSource->GetInt(L"CanHide") != 0;
  col.CanEmpty = column->Has(L"CanEmpty") ? column->GetInt(L"CanEmpty") != 0 : true;
  col.Section = section;
  col.Main = MainCol == col.Name;
  col.Group = IsGroupColumn(col.Name);
}

// A whole item of the comma-separated Group text; a find inside a longer
// item goes on searching behind it.
bool TGridExport::IsGroupColumn(const wchar_t* name) const {
  size_t length = wcslen(name);
  if (GroupText.empty() || !length) return false;
  for (size_t at = GroupText.find(name); at != std::wstring::npos; at = GroupText.find(name, at + 1)) {
    bool starts = at == 0 || GroupText[at - 1] == L',';
    bool ends = at + length == GroupText.size() || GroupText[at + length] == L',';
    if (starts && ends) return true;
  }
  return false;
}

// A text of 5 characters or more names the options by words; a shorter one
// leaves them to the integer of the grid's Cfg. The lower-cased words stay in
// the grid's Cfg when they came from there.
int TGridExport::ReadOptions(TNode* requestCfg) {
  bool own = requestCfg && requestCfg->Has(L"ExportType");
  std::wstring text = (own ? requestCfg : Cfg)->GetString(L"ExportType");
  if (text.size() < 5) return Cfg->GetInt(L"ExportType");
  std::wstring lower = text;
  _wcslwr(&lower[0]);
  if (!own && lower != text) Cfg->SetString(L"ExportType", lower.c_str());
  return OptionsOfWords(lower.c_str());
}

// "indent" asks for indentation, which the bit, as an integer, turns off.
int TGridExport::OptionsOfWords(const wchar_t* lower) {
  int options = 0;
  for (int bit = 0; bit < 7; bit++)
    if (wcsstr(lower, OptionWords[bit])) options |= 1 << bit;
  return options ^ ENoIndent;
}

void TGridExport::PrepareCells(const TExportCol* cols, int count) {
  CellNames.resize(count > 0 ? count : 0);
  for (int i = 0; i < count; i++) {
    const wchar_t* name = cols[i].Name;
    TCellNames& n = CellNames[i];
    n.Value = Tree->GetIndex(name, 0);
    n.Type = Tree->GetIndex(name, L"Type", 0);
    n.Format = Tree->GetIndex(name, L"Format", 0);
    n.ExportFormat = Tree->GetIndex(name, L"ExportFormat", 0);
    n.ExportValue = Tree->GetIndex(name, L"ExportValue", 0);
    n.Visible = Tree->GetIndex(name, L"Visible", 0);
    n.Span = Tree->GetIndex(name, L"Span", 0);
    n.Filter = Tree->GetIndex(name, L"Filter", 0);
    n.EmptyValue = Tree->GetIndex(name, L"EmptyValue", 0);
    n.Column = Cols.GetNode(name, 0);
  }
  BaseUrl = Cfg ? Cfg->GetString(L"BaseUrl") : L"";
  TNode* lang = Tree->Root ? Tree->Root->GetChildByName(L"Lang", false) : nullptr;
  TNode* text = lang ? lang->GetChildByName(L"Text", false) : nullptr;
  HasPicture = text != nullptr;
  Picture = text ? text->GetString(L"Picture") : L"";
}

void TGridExport::WriteHead(TExportSink& sink, int options, const TExportCol* cols, int count) {
  sink.Lit(L"<html xmlns:o=\"urn:schemas-microsoft-com:office:office\" "
           L"xmlns:x=\"urn:schemas-microsoft-com:office:excel\" xmlns=\"http://www.w3.org/TR/REC-html40\">");
  sink.Lit(L"<head><meta http-equiv=Content-Type content=\"text/html; charset=utf-8\"></head><body>");
  sink.Lit(L"<style>td {white-space:nowrap} br {mso-data-placement:same-cell;} "
           L".sd {mso-number-format:\"Short Date\";} .st {mso-number-format:\"Short Time\";} "
           L".gd {mso-number-format:\"General Date\";}</style>");
  sink.Lit(L"<!--[if gte mso 9]><xml><o:OfficeDocumentSettings><o:Colors><o:Color><o:Index>37</o:Index>"
           L"<o:RGB>#F0F0E0</o:RGB></o:Color><o:Color><o:Index>38</o:Index><o:RGB>#F6F6F6</o:RGB></o:Color>"
           L"</o:Colors></o:OfficeDocumentSettings></xml><![endif]-->");
  sink.Put(std::wstring(Cfg->GetString(L"ExportPrefix")).c_str());
  if (options & EOutline)
    sink.Lit(L"<!--[if gte mso 9]><xml><x:ExcelWorkbook><x:ExcelWorksheets><x:ExcelWorksheet><x:Name>Grid</x:Name>"
             L"<x:WorksheetOptions><x:NoSummaryRowsBelowDetail/></x:WorksheetOptions></x:ExcelWorksheet>"
             L"</x:ExcelWorksheets></x:ExcelWorkbook></xml><![endif]-->");
  sink.Lit(L"\r\n\r\n<table border=\"1\" bordercolor=\"silver\" "
           L"style='table-layout:fixed;border-collapse:collapse;border:1px solid black'>");
  for (int i = 0; i < count; i++) {
    if (!cols[i].Visible) continue;
    sink.Lit(L"<col width=\"");
    sink.Int(cols[i].Width);
    sink.Lit(L"\">");
  }
}

// ---- header rows ----

// Without a Header element the captions are the columns' names.
void TGridExport::WriteHeader(TExportSink& sink, TExportCol* cols, int count) {
  TNode* header = Tree->Root->GetChildByName(L"Header", false);
  WalkHeader(header, [&](int r, bool caption) {
    if (caption) WriteCaptionRow(sink, header, cols, count);
    else WriteHeaderRow(sink, header, cols, count, r);
  });
}

wchar_t* TGridExport::FillHeader(wchar_t* out, TNode* header, TExportCol* cols, int count) {
  wchar_t *buffer = out, *end = out;
  TExportSink sink(buffer, end, out, false);
  WriteCaptionRow(sink, header, cols, count);
  return sink.Out;
}

wchar_t* TGridExport::FillHeader(wchar_t*& buffer, wchar_t*& end, wchar_t* out, TNode* header, TExportCol* cols,
                                 int count) {
  TExportSink sink(buffer, end, out, true);
  WriteCaptionRow(sink, header, cols, count);
  return sink.Failed ? nullptr : sink.Out;
}

// Captions are written raw: they may hold markup.
void TGridExport::WriteCaptionRow(TExportSink& sink, TNode* header, const TExportCol* cols, int count) {
  sink.Lit(L"\r\n<tr>");
  for (int i = 0; i < count; i++) {
    if (!cols[i].Visible) continue;
    sink.Lit(L"<td style='border-bottom:1px solid black;background:#F0F0E0;font-weight:bold;'>");
    const wchar_t* caption = header ? header->GetString(cols[i].Name) : EmptyString;
    sink.Put(*caption ? caption : cols[i].Name);
    sink.Lit(L"</td>");
  }
  sink.Lit(L"</tr>");
}

void TGridExport::WriteHeaderRow(TExportSink& sink, TNode* header, TExportCol* cols, int count, int r) {
  sink.Lit(L"\r\n<tr>");
  for (int section = 0; section < 3; section++)
    WalkCaptions(header, cols, count, r, section, [&](const std::wstring& name, int, int visible) {
      sink.Lit(L"<TD COLSPAN=");
      sink.Int(visible);
      sink.Lit(L" style='background:#F0F0E0;'>");
      const wchar_t* caption = header->GetString(name.c_str());
      if (*caption) sink.Put(caption);
      else sink.Lit(L"&nbsp;");
      sink.Lit(L"</TD>");
    });
  sink.Lit(L"</tr>");
}

// ---- Head and Foot ----

void TGridExport::WriteFixedRows(TExportSink& sink, TNode* section, bool head, TExportCol* cols, int count,
                                 int options) {
  WalkFixedRows(section, head, options, [&](TNode* row, const wchar_t* style, bool filter, bool caption) {
    if (caption) WriteCaptionRow(sink, row, cols, count);
    else WriteRows(sink, row, cols, count, options, style, 0, filter);
  });
}

// ---- rows ----

wchar_t* TGridExport::FillRow(wchar_t*& buffer, wchar_t*& end, wchar_t* out, TNode* row, TExportCol* cols, int count,
                              int options, const wchar_t* style, int level, bool filter) {
  if (!row || !Tree->Root) return out;
  UpdateExport();
  if (IsLeftOut(row, options)) return out;
  PrepareCells(cols, count);
  TExportSink sink(buffer, end, out, true);
  WriteRows(sink, row, cols, count, options, style ? style : L"", level, filter);
  return sink.Failed ? nullptr : sink.Out;
}

bool TGridExport::IsLeftOut(TNode* row, int options) const {
  return IsPresentZero(row, VisibleIndex) || ((row->Flags & FFiltered) && !(options & EFiltered)) ||
         IsPresentZero(row, CanExportIndex);
}

bool TGridExport::IsExpanded(TNode* row) const { return row->GetInt(IExpandedIndex) != 0; }

void TGridExport::WriteRows(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int options,
                            const wchar_t* style, int level, bool filter) {
  if (IsLeftOut(row, options)) return;
  WalkRows(row, options, level, [&](TNode* node, int depth, bool first) {
    WriteRow(sink, node, cols, count, options, style, depth, filter && first);
  });
  sink.Zero();
}

void TGridExport::WriteRow(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int options,
                           const wchar_t* style, int level, bool filter) {
  sink.Room(RowRoom);
  OpenRow(sink, row, options, level);
  bool spanned = SpannedIndex != -1 && row->GetInt(SpannedIndex) != 0;
  for (int i = 0; i < count; i++) i = WriteCell(sink, row, cols, count, i, options, style, level, filter, spanned);
  sink.Lit(L"</tr>");
}

void TGridExport::OpenRow(TExportSink& sink, TNode* row, int options, int level) {
  if (!(options & EOutline)) {
    sink.Lit(L"\r\n<tr>");
    return;
  }
  sink.Lit(L"\r\n<tr style='mso-outline-level:");
  sink.Int(level);
  sink.Char(L';');
  if (!(options & EExpanded)) {
    if (!IsExpanded(row)) sink.Lit(L"mso-outline-parent:collapsed;;");
    TNode* parent = row->Parent;
    for (int k = 0; k < level && parent; k++, parent = parent->Parent) {
      if (IsExpanded(parent)) continue;
      sink.Lit(L"display:none;");
      break;
    }
  }
  sink.Lit(L"'>");
}

// Writes the cell of column i and returns the last column it covers.
int TGridExport::WriteCell(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int i, int options,
                           const wchar_t* style, int level, bool filter, bool spanned) {
  sink.Room(RowRoom);
  const TExportCol& col = cols[i];
  const TCellNames& names = CellNames[i];
  int span = spanned ? row->GetInt(names.Span) : 0;
  if (!col.Visible) {
    // A span that starts in a hidden column still shows if it covers a visible one.
    bool shows = false;
    for (int k = i + 1; span >= 2 && k < count && k - i < span && !shows; k++) shows = cols[k].Visible;
    if (!shows) return i;
  }
  sink.Lit(L"<td");
  if (span > 1) {
    int visible = col.Visible ? 1 : 0;
    for (int k = 1; k < span && i + 1 < count; k++)
      if (cols[++i].Visible) visible++;
    if (visible > 1) {
      sink.Lit(L" colspan=");
      sink.Int(visible);
    }
  }
  // The style goes by the last column of the span, the cell by its first.
  WriteStyle(sink, row, cols[i], names, style, level, options, filter);
  if (names.Visible != -1 && IsPresentZero(row, names.Visible)) {
    sink.Lit(L"></td>");
    return i;
  }
  const wchar_t* exportValue = row->GetString(names.ExportValue);
  if (*exportValue) {
    sink.Char(L'>');
    sink.Put(exportValue);
    sink.Lit(L"</td>");
    return i;
  }
  // A grouped value shows on its group row, not again on each row under it.
  if (cols[i].Group && level != 0 && !(row->Flags & FGrouped)) {
    sink.Lit(L"></td>");
    return i;
  }
  if (filter) WriteFilterValue(sink, row, col.Name, names);
  else WriteValue(sink, row, col, names, options);
  sink.Lit(L"</td>");
  return i;
}

// The style attribute, or none when nothing would stand in it.
void TGridExport::WriteStyle(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names,
                             const wchar_t* style, int level, int options, bool filter) {
  size_t mark = sink.Out - sink.Buffer;
  sink.Lit(L" style='");
  size_t open = sink.Out - sink.Buffer;
  sink.Put(style);
  if (col.Main && level >= 1 && !(options & ENoIndent)) {
    sink.Lit(L"padding-left:");
    sink.Int((long long)level * 30);
    sink.Lit(L"px;");
  }
  if (col.LastLeft) sink.Lit(L"border-right:1px solid black;");
  else if (col.FirstRight) sink.Lit(L"border-left:1px solid black;");
  if (col.Section != 1) sink.Lit(L"background:#F6F6F6;");
  if (wcscmp(row->GetString(names.Type), L"Lines") == 0) sink.Lit(L"white-space:normal;");
  if (filter) {
    int f = row->GetInt(names.Filter);
    if (f == 2 || f == 8 || f == 10 || f == 12) sink.Lit(L"text-decoration:line-through;");
  }
  const wchar_t* format = row->GetString(names.ExportFormat);
  if (*format) {
    sink.Lit(L" mso-number-format:");
    sink.Put(format);
    sink.Char(L';');
  }
  if (sink.Failed) return;
  // Offsets, as the buffer may have moved.
  if ((size_t)(sink.Out - sink.Buffer) > open) sink.Char(L'\'');
  else sink.Out = sink.Buffer + mark;
}

// A condition of a filter row: the value with the operator's marks.
void TGridExport::WriteFilterValue(TExportSink& sink, TNode* row, const wchar_t* name, const TCellNames& names) {
  sink.Char(L'>');
  int f = row->GetInt(names.Filter);
  if (f == 0) return;
  static const wchar_t* const Operators[7] = {nullptr, L"", L"", L"&lt;", L"&lt;=", L"&gt;", L"&gt;="};
  if (f >= 1 && f <= 6) {
    sink.Lit(L"<b style='color:red;'> ");
    sink.Put(Operators[f]);
    sink.Lit(L" </b>");
  } else if (f >= 9) {
    sink.Lit(L"<b style='color:red;'> *</b>");
  }
  sink.Put(row->GetStringFormat(name, names.Value));
  if (f >= 7 && (f <= 8 || f >= 11)) sink.Lit(L"<b style='color:red;'>* </b>");
}

// The value branch by the cell's type; an unknown type gives an empty cell.
void TGridExport::WriteValue(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names,
                             int options) {
  const wchar_t* type = row->GetString(names.Type);
  if (Starts(type, L"Bool")) {
    sink.Char(L'>');
    int value = row->GetInt(names.Value);
    const wchar_t* format = row->GetString(names.Format);
    if (*format) sink.Put(row->GetArrayItemFirst(format, value));
    else sink.Char(value ? L'1' : L'0');
  } else if (Starts(type, L"Int") || Starts(type, L"Float")) {
    WriteNumber(sink, row, col, names);
  } else if (Starts(type, L"Date")) {
    WriteDate(sink, row, col, names, options);
  } else if (Starts(type, L"Text") || Starts(type, L"Enum") || Starts(type, L"Radio")) {
    WriteText(sink, row, col, names, options, false);
  } else if (Starts(type, L"Lines")) {
    WriteText(sink, row, col, names, options, true);
  } else if (Starts(type, L"Link")) {
    WriteLink(sink, row, names);
  } else if (Starts(type, L"Img")) {
    WriteImage(sink, row, names);
  } else {
    sink.Char(L'>');
  }
}

const wchar_t* TGridExport::EmptyValueOf(TNode* row, const TCellNames& names) {
  if (row->Has(names.EmptyValue)) return row->GetString(names.EmptyValue);
  return names.Column ? names.Column->GetString(L"EmptyValue") : EmptyString;
}

// A value counts as missing when the cell has none, or an empty text.
void TGridExport::WriteNumber(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names) {
  double value = row->GetDouble(names.Value);
  if (value != 0 || std::isnan(value)) {
    sink.Lit(L" x:num='");
    sink.Put(row->GetString(names.Value));
    sink.Lit(L"'>");
    sink.Put(row->GetStringFormat(col.Name, names.Value));
    return;
  }
  bool missing = !row->Has(names.Value) || !*row->GetString(names.Value);
  if (missing && col.CanEmpty) {
    const wchar_t* empty = EmptyValueOf(row, names);
    sink.Lit(L" x:str='");
    sink.Put(empty);
    sink.Lit(L"'>");
    sink.Put(empty);
    return;
  }
  sink.Lit(L" x:num='0'>0");
}

// Dates go as the spreadsheet's serial day number with a class for its format.
void TGridExport::WriteDate(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names,
                            int options) {
  double value = row->GetDouble(names.Value);
  if (value == 0 && col.CanEmpty) {
    const wchar_t* empty = EmptyValueOf(row, names);
    sink.Lit(L" x:str='");
    sink.Put(empty);
    sink.Lit(L"'>");
    sink.Put(empty);
    return;
  }
  sink.Lit(L" class='");
  sink.Put(DateClass(row->GetString(names.Format)));
  sink.Char(L'\'');
  if (!(options & ENoDateNumbers)) {
    sink.Lit(L" x:num='");
    sink.Number(value / 86400000 + 25569, 1000000);
    sink.Char(L'\'');
  }
  sink.Char(L'>');
  sink.Put(row->GetStringFormat(col.Name, names.Value));
}

void TGridExport::WriteText(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names,
                            int options, bool lines) {
  const wchar_t* text = row->GetStringFormat(col.Name, names.Value);
  if (!*text) {
    sink.Lit(L" x:str=''>");
    return;
  }
  if ((options & EStrings) && !(lines && wcschr(text, L'\n'))) {
    sink.Lit(L" x:str=\"");
    sink.Escaped(text, lines);
    sink.Char(L'"');
  }
  sink.Char(L'>');
  sink.Escaped(text, lines);
}

// A link: pieces of the format around the address, and the text, or the
// address again where the value has no text.
void TGridExport::WriteLink(TExportSink& sink, TNode* row, const TCellNames& names) {
  std::wstring& value = LinkValue;
  value = row->GetString(names.Value);
  if (value.empty()) {
    sink.Lit(L" x:str=''>");
    return;
  }
  std::wstring& format = LinkFormat;
  format = row->GetString(names.Format);
  bool pieces = !format.empty();
  auto piece = [&](int n) { return pieces ? row->GetArrayItemFirst(format.c_str(), n) : EmptyString; };
  sink.Char(L'>');
  sink.Put(piece(2));
  sink.Lit(L"<A HREF=\"");
  size_t from = sink.Out - sink.Buffer;
  if (pieces && (wcstol(piece(4), nullptr, 10) & 1)) sink.Escaped(BaseUrl.c_str(), false);
  sink.Escaped(piece(0), false);
  sink.Escaped(row->GetArrayItemFirst(value.c_str(), 0), false);
  sink.Escaped(piece(1), false);
  size_t to = sink.Out - sink.Buffer;
  sink.Lit(L"\">");
  const wchar_t* text = row->GetArrayItemFirst(value.c_str(), 1);
  if (*text) {
    sink.Escaped(text, false);
  } else if (!sink.Failed && sink.Room(to - from)) {
    // Room first: the address is copied from the buffer, which may move.
    wmemcpy(sink.Out, sink.Buffer + from, to - from);
    sink.Out += to - from;
  }
  sink.Lit(L"</A>");
  sink.Put(piece(3));
}

// An image goes out as a link with the word of Lang's Text, not as a picture.
void TGridExport::WriteImage(TExportSink& sink, TNode* row, const TCellNames& names) {
  std::wstring &value = LinkValue, &link = LinkAddress, &format = LinkFormat;
  value = row->GetString(names.Value);
  link = row->GetArrayItemFirst(value.c_str(), 5);
  if (link.empty()) {
    sink.Lit(L" x:str=''>");
    return;
  }
  format = row->GetString(names.Format);
  bool pieces = !format.empty();
  auto piece = [&](int n) { return pieces ? row->GetArrayItemFirst(format.c_str(), n) : EmptyString; };
  sink.Char(L'>');
  sink.Put(piece(2));
  sink.Lit(L"<A HREF=\"");
  if (pieces && (wcstol(piece(6), nullptr, 10) & 2)) sink.Escaped(BaseUrl.c_str(), false);
  sink.Escaped(piece(4), false);
  if (link.find(L"javascript:") == std::wstring::npos) sink.Escaped(link.c_str(), false);
  sink.Escaped(piece(5), false);
  sink.Lit(L"\">");
  if (HasPicture) sink.Put(Picture.c_str(), Picture.size());
  sink.Lit(L"</A>");
  sink.Put(piece(3));
}
