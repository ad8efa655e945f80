// The export as an .xlsx workbook: the same columns and rows as the HTML
// document, with typed cells. The workbook library streams the sheet row by
// row (constant memory), so a grid of any size costs only its own memory.
#include <cmath>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <string>

#include "grid/Export.h"

#ifndef SARVENDO_XLSX

int TGridExport::SaveExportXlsx(const wchar_t*, const wchar_t*) { return EXlsxUnavailable; }

#else

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xlsxwriter.h>

#include <atomic>
#include <map>
#include <vector>

#include "grid/ExportWalk.h"

namespace {

using ExportWalk::IsPresentZero;

// A cell holds at most this many characters; longer texts are cut.
const size_t MaxCellChars = 32767;
// Distinct cell formats of one workbook; cells beyond take the general one.
const size_t MaxFormats = 4000;
// Outline levels a sheet knows; deeper rows stay at the deepest.
const int MaxOutlineLevel = 7;

bool Starts(const wchar_t* text, const wchar_t* prefix) { return wcsncmp(text, prefix, wcslen(prefix)) == 0; }

// UTF-8 of at most max characters of text, appended to out. Characters that
// aren't Unicode (surrogates, beyond U+10FFFF) become U+FFFD.
void AppendUtf8(std::string& out, const wchar_t* text, size_t max) {
  for (size_t i = 0; i < max && text[i]; i++) {
    unsigned c = (unsigned)text[i];
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
    if (c < 0x80) {
      out += (char)c;
    } else if (c < 0x800) {
      out += (char)(0xC0 | (c >> 6));
      out += (char)(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += (char)(0xE0 | (c >> 12));
      out += (char)(0x80 | ((c >> 6) & 0x3F));
      out += (char)(0x80 | (c & 0x3F));
    } else {
      out += (char)(0xF0 | (c >> 18));
      out += (char)(0x80 | ((c >> 12) & 0x3F));
      out += (char)(0x80 | ((c >> 6) & 0x3F));
      out += (char)(0x80 | (c & 0x3F));
    }
  }
}

// A literal character of a number format.
void AppendLiteral(std::string& out, wchar_t c) {
  if (c == L' ') {
    out += ' ';
    return;
  }
  out += '\\';
  wchar_t one[2] = {c, 0};
  AppendUtf8(out, one, 1);
}

// The grid's number masks ("0.00", "#,##0", "0.0%") carry their decimals,
// thousands separator and percent over; any other mask gives the general
// format (empty).
std::string NumberMask(const wchar_t* mask) {
  int decimals = 0;
  bool point = false, thousands = false, percent = false, digit = false;
  for (const wchar_t* c = mask; *c; c++) {
    if (*c == L'0' || *c == L'#') digit = true, decimals += point;
    else if (*c == L',') thousands |= !point;
    else if (*c == L'.' && !point) point = true;
    else if (*c == L'%') percent = true;
    else if (*c != L' ') return "";
  }
  if (!digit) return "";
  std::string out = thousands ? "#,##0" : "0";
  if (decimals > 0) out += "." + std::string(decimals < 30 ? decimals : 30, '0');
  if (percent) out += '%';
  return out;
}

// Length of the run of c at mask, and the length of the token it starts:
// runs longer than the longest token drop their leading letters in steps.
int TokenLength(const wchar_t* mask, int longest, int step, int& run) {
  run = 1;
  while (mask[run] == mask[0]) run++;
  int n = run;
  while (n > longest) n -= step;
  return n;
}

// A date mask of the grid in the spreadsheet's letters. Names of days and
// months, two-digit years and designators map; "yyy" and "%" give nothing;
// every other character stands as a literal.
std::string DateMask(const wchar_t* mask, wchar_t dateSeparator, wchar_t timeSeparator) {
  static const char* const Days[4] = {"d", "dd", "ddd", "dddd"};
  static const char* const Months[4] = {"m", "mm", "mmm", "mmmm"};
  static const char* const Years[4] = {"yy", "yy", "", "yyyy"};
  std::string out;
  for (const wchar_t* c = mask; *c;) {
    int run = 1, n;
    switch (*c) {
      case L'd': n = TokenLength(c, 4, 4, run), out += Days[n - 1]; break;
      case L'M': n = TokenLength(c, 4, 4, run), out += Months[n - 1]; break;
      case L'y': n = TokenLength(c, 4, 4, run), out += Years[n - 1]; break;
      case L'H':
      case L'h': n = TokenLength(c, 2, 2, run), out += n == 2 ? "hh" : "h"; break;
      case L'm': n = TokenLength(c, 2, 2, run), out += n == 2 ? "mm" : "m"; break;
      case L's': n = TokenLength(c, 2, 2, run), out += n == 2 ? "ss" : "s"; break;
      case L't': n = TokenLength(c, 2, 2, run), out += n == 2 ? "AM/PM" : "A/P"; break;
      case L'%': break;
      case L'/':
        if (dateSeparator == L'/') out += '/';
        else AppendLiteral(out, dateSeparator);
        break;
      case L':':
        if (timeSeparator == L':') out += ':';
        else AppendLiteral(out, timeSeparator);
        break;
      case L'\\':
        if (c[1]) AppendLiteral(out, c[1]), run = 2;
        break;
      case L'"':
      case L'\'': {
        const wchar_t* close = wcschr(c + 1, *c);
        const wchar_t* end = close ? close : c + wcslen(c);
        for (const wchar_t* q = c + 1; q < end; q++) AppendLiteral(out, *q);
        run = (int)(end - c) + (close ? 1 : 0);
        break;
      }
      default: AppendLiteral(out, *c);
    }
    c += run;
  }
  return out;
}

// Opens a new file beside path, to be filled and renamed onto it.
bool MakeBeside(const std::string& path, std::string& temporary) {
  static std::atomic<unsigned> counter(0);
  for (int attempt = 0; attempt < 100; attempt++) {
    temporary = path + ".~" + std::to_string(getpid()) + "_" + std::to_string(counter++) + ".xlsx";
    int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) return close(fd) == 0;
    if (errno != EEXIST) return false;
  }
  return false;
}

// The folder of path, for the library's own temporary files.
std::string FolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

// Writes one sheet of the export through the workbook library. Rows go in
// order; each visit of the shared walks becomes one sheet row. The outline
// is always on: the rows under a closed row go out hidden, so the sheet can
// open them, where the HTML document leaves them out without "outline".
class TXlsxWriter {
public:
  TXlsxWriter(TGridExport& grid, const TExportCol* cols, int count, int options)
      : Grid(grid), Cols(cols), Count(count), Options(options | EOutline) {}
  ~TXlsxWriter() {
    if (Book) workbook_close(Book);
  }
  // 0, or an EXlsx code; the file at file is whole only on 0.
  int Write(const std::string& file, const std::string& folder);

private:
  void PlaceColumns();
  void WriteHeader();
  void WriteCaptionRow(TNode* header);
  void WriteHeaderRow(TNode* header, int r);
  void WriteFixedRows(TNode* section, bool head);
  void WriteRows(TNode* row, int level, bool filter);
  bool StartRow(TNode* row, int level);
  int WriteCell(TNode* row, int i, int level, bool filter, bool spanned);
  void WriteValue(TNode* row, int i, int at);
  void WriteNumber(TNode* row, int i, int at);
  void WriteDate(TNode* row, int i, int at);
  void WriteLink(TNode* row, int i, int at);
  void WriteFilter(TNode* row, int i, int at);
  void WriteEmptyValue(TNode* row, int i, int at);
  void WriteText(int at, const wchar_t* text, lxw_format* format = nullptr);
  const char* Utf8(const wchar_t* text);
  lxw_format* FormatOf(const std::string& mask, bool wrap);
  lxw_format* DateFormatOf(const wchar_t* format);

  TGridExport& Grid;
  const TExportCol* Cols;
  int Count;
  int Options;
  lxw_workbook* Book = nullptr;
  lxw_worksheet* Sheet = nullptr;
  lxw_format* HeaderFormat = nullptr;
  // Sheet column of each export column, -1 for a hidden one.
  std::vector<int> SheetCol;
  int Width = 0;
  int Row = -1;
  int CaptionRow = -1;
  bool TooMany = false;
  std::map<std::string, lxw_format*> Formats;
  std::map<std::wstring, lxw_format*> DateFormats;
  std::string Text;
  std::wstring Wide;
};

int TXlsxWriter::Write(const std::string& file, const std::string& folder) {
  lxw_workbook_options settings = {};
  settings.constant_memory = LXW_TRUE;
  settings.tmpdir = const_cast<char*>(folder.c_str());
  Book = workbook_new_opt(file.c_str(), &settings);
  Sheet = Book ? workbook_add_worksheet(Book, "Grid") : nullptr;
  HeaderFormat = Book ? workbook_add_format(Book) : nullptr;
  if (!Sheet || !HeaderFormat) return EXlsxUnwritable;
  format_set_bold(HeaderFormat);
  format_set_bg_color(HeaderFormat, 0xF0F0E0);
  format_set_bottom(HeaderFormat, LXW_BORDER_THIN);
  // Group rows stand above the rows they hold, as in the grid.
  worksheet_outline_settings(Sheet, LXW_TRUE, LXW_FALSE, LXW_TRUE, LXW_FALSE);
  PlaceColumns();
  WriteHeader();
  int headerRows = Row + 1;
  WriteFixedRows(Grid.Tree->Root->GetChildByName(L"Head", false), true);
  for (TNode* page = Grid.Body->FirstChild; page; page = page->Next)
    for (TNode* row = page->FirstChild; row; row = row->Next) WriteRows(row, 0, false);
  WriteFixedRows(Grid.Tree->Root->GetChildByName(L"Foot", false), false);
  if (TooMany) return EXlsxTooManyRows;
  if (headerRows > 0) worksheet_freeze_panes(Sheet, (lxw_row_t)headerRows, 0);
  if (CaptionRow >= 0 && Width > 0) worksheet_autofilter(Sheet, CaptionRow, 0, Row, (lxw_col_t)(Width - 1));
  lxw_error closed = workbook_close(Book);
  Book = nullptr;
  return closed == LXW_NO_ERROR ? 0 : EXlsxUnwritable;
}

// Hidden columns get no sheet column; widths are the grid's pixels.
void TXlsxWriter::PlaceColumns() {
  SheetCol.assign(Count, -1);
  for (int i = 0; i < Count; i++) {
    if (!Cols[i].Visible) continue;
    SheetCol[i] = Width;
    if (Cols[i].Width > 0) worksheet_set_column_pixels(Sheet, Width, Width, Cols[i].Width, nullptr);
    Width++;
  }
}

void TXlsxWriter::WriteHeader() {
  TNode* header = Grid.Tree->Root->GetChildByName(L"Header", false);
  Grid.WalkHeader(header, [&](int r, bool caption) {
    if (caption) WriteCaptionRow(header);
    else WriteHeaderRow(header, r);
  });
}

// Captions are the texts of the header, or the columns' names.
void TXlsxWriter::WriteCaptionRow(TNode* header) {
  if (!StartRow(nullptr, 0)) return;
  if (CaptionRow < 0) CaptionRow = Row;
  for (int i = 0; i < Count; i++) {
    if (SheetCol[i] < 0) continue;
    const wchar_t* caption = header ? header->GetString(Cols[i].Name) : EmptyString;
    WriteText(SheetCol[i], *caption ? caption : Cols[i].Name, HeaderFormat);
  }
}

// Spanned captions become merged cells.
void TXlsxWriter::WriteHeaderRow(TNode* header, int r) {
  if (!StartRow(nullptr, 0)) return;
  for (int section = 0; section < 3; section++)
    Grid.WalkCaptions(header, Cols, Count, r, section, [&](const std::wstring& name, int first, int visible) {
      int at = SheetCol[first];
      if (visible > 1) worksheet_merge_range(Sheet, Row, at, Row, at + visible - 1, "", HeaderFormat);
      WriteText(at, header->GetString(name.c_str()), HeaderFormat);
    });
}

void TXlsxWriter::WriteFixedRows(TNode* section, bool head) {
  Grid.WalkFixedRows(section, head, Options, [&](TNode* row, const wchar_t*, bool filter, bool caption) {
    if (caption) WriteCaptionRow(row);
    else WriteRows(row, 0, filter);
  });
}

void TXlsxWriter::WriteRows(TNode* row, int level, bool filter) {
  Grid.WalkRows(row, Options, level, [&](TNode* node, int depth, bool first) {
    if (!StartRow(node, depth)) return;
    bool spanned = Grid.SpannedIndex != -1 && node->GetInt(Grid.SpannedIndex) != 0;
    for (int i = 0; i < Count; i++) i = WriteCell(node, i, depth, filter && first, spanned);
  });
}

// The next sheet row with the row's outline level; a closed row is
// collapsed and the rows under it hidden, unless the export is expanded.
// False once the sheet is full.
bool TXlsxWriter::StartRow(TNode* row, int level) {
  if (TooMany || Row + 1 >= Grid.SheetRows) {
    TooMany = true;
    return false;
  }
  Row++;
  if (!row || level <= 0) {
    if (row && row->FirstChild && !(Options & EExpanded) && !Grid.IsExpanded(row)) {
      lxw_row_col_options shape = {0, 0, LXW_TRUE};
      worksheet_set_row_opt(Sheet, Row, LXW_DEF_ROW_HEIGHT, nullptr, &shape);
    }
    return true;
  }
  lxw_row_col_options shape = {0, (uint8_t)(level < MaxOutlineLevel ? level : MaxOutlineLevel), 0};
  if (!(Options & EExpanded)) {
    shape.collapsed = row->FirstChild && !Grid.IsExpanded(row);
    TNode* parent = row->Parent;
    for (int k = 0; k < level && parent && !shape.hidden; k++, parent = parent->Parent)
      shape.hidden = !Grid.IsExpanded(parent);
  }
  worksheet_set_row_opt(Sheet, Row, LXW_DEF_ROW_HEIGHT, nullptr, &shape);
  return true;
}

// Writes the cell of column i and returns the last column it covers. A span
// that starts in a hidden column shows from its first visible one.
int TXlsxWriter::WriteCell(TNode* row, int i, int level, bool filter, bool spanned) {
  const TExportCol& col = Cols[i];
  const auto& names = Grid.CellNames[i];
  int span = spanned ? row->GetInt(names.Span) : 0;
  const int start = i;
  int first = i;
  if (!col.Visible) {
    for (int k = i + 1; span >= 2 && k < Count && k - i < span && first == i; k++)
      if (Cols[k].Visible) first = k;
    if (first == i) return i;
  }
  int visible = col.Visible ? 1 : 0;
  for (int k = 1; k < span && i + 1 < Count; k++)
    if (Cols[++i].Visible) visible++;
  int at = SheetCol[first];
  if (visible > 1) worksheet_merge_range(Sheet, Row, at, Row, at + visible - 1, "", nullptr);
  if (names.Visible != -1 && IsPresentZero(row, names.Visible)) return i;
  const wchar_t* exportValue = row->GetString(names.ExportValue);
  if (*exportValue) {
    WriteText(at, exportValue);
    return i;
  }
  // A grouped value shows on its group row, not again on each row under it.
  if (Cols[i].Group && level != 0 && !(row->Flags & FGrouped)) return i;
  // The value is the first column's, hidden or not.
  if (filter) WriteFilter(row, start, at);
  else WriteValue(row, start, at);
  return i;
}

// The value by the cell's type; an unknown type gives an empty cell.
void TXlsxWriter::WriteValue(TNode* row, int i, int at) {
  const auto& names = Grid.CellNames[i];
  const wchar_t* type = row->GetString(names.Type);
  if (Starts(type, L"Bool")) {
    worksheet_write_boolean(Sheet, Row, at, row->GetInt(names.Value) != 0, nullptr);
  } else if (Starts(type, L"Int") || Starts(type, L"Float")) {
    WriteNumber(row, i, at);
  } else if (Starts(type, L"Date")) {
    WriteDate(row, i, at);
  } else if (Starts(type, L"Text") || Starts(type, L"Enum") || Starts(type, L"Radio")) {
    WriteText(at, row->GetStringFormat(Cols[i].Name, names.Value));
  } else if (Starts(type, L"Lines")) {
    WriteText(at, row->GetStringFormat(Cols[i].Name, names.Value), FormatOf("", true));
  } else if (Starts(type, L"Link") || Starts(type, L"Img")) {
    WriteLink(row, i, at);
  }
}

// Zero of a cell without a value is the column's empty value (or nothing)
// where the column may be empty; a value the sheet can't hold (NaN,
// infinite) goes as its text.
void TXlsxWriter::WriteNumber(TNode* row, int i, int at) {
  const auto& names = Grid.CellNames[i];
  double value = row->GetDouble(names.Value);
  if (value == 0) {
    bool missing = !row->Has(names.Value) || !*row->GetString(names.Value);
    if (missing && Cols[i].CanEmpty) {
      WriteEmptyValue(row, i, at);
      return;
    }
  }
  if (!std::isfinite(value)) {
    WriteText(at, row->GetString(names.Value));
    return;
  }
  // A mask that reads as a number ("0.00") is kept by the tree as that
  // number, its decimals lost: only masks kept as text are translated.
  Wide = row->GetType(names.Format) == TString ? row->GetString(names.Format) : L"";
  worksheet_write_number(Sheet, Row, at, value, FormatOf(NumberMask(Wide.c_str()), false));
}

// A date is the sheet's serial day number with the column's date mask.
// Dates the sheet can't show (before 1900, another calendar, or asked as
// text) go as the grid's text.
void TXlsxWriter::WriteDate(TNode* row, int i, int at) {
  const auto& names = Grid.CellNames[i];
  double value = row->GetDouble(names.Value);
  if (value == 0 && Cols[i].CanEmpty) {
    WriteEmptyValue(row, i, at);
    return;
  }
  double serial = value / 86400000 + 25569;
  if (!(serial >= 1 && serial < 2958466) || Grid.Tree->Hirji || (Options & ENoDateNumbers)) {
    WriteText(at, row->GetStringFormat(Cols[i].Name, names.Value));
    return;
  }
  worksheet_write_number(Sheet, Row, at, serial, DateFormatOf(row->GetString(names.Format)));
}

void TXlsxWriter::WriteEmptyValue(TNode* row, int i, int at) {
  const wchar_t* empty = Grid.EmptyValueOf(row, Grid.CellNames[i]);
  if (*empty) WriteText(at, empty);
}

// A link: the address between the format's pieces, with the base address
// where the format asks; the text, or the address where there is none. A
// link the sheet refuses (too long, too many) stays as its text.
void TXlsxWriter::WriteLink(TNode* row, int i, int at) {
  const auto& names = Grid.CellNames[i];
  bool image = Starts(row->GetString(names.Type), L"Img");
  std::wstring value = row->GetString(names.Value);
  std::wstring item = row->GetArrayItemFirst(value.c_str(), image ? 5 : 0);
  if (item.empty()) return;
  std::wstring format = row->GetString(names.Format);
  auto piece = [&](int n) { return std::wstring(format.empty() ? EmptyString : row->GetArrayItemFirst(format.c_str(), n)); };
  std::wstring address;
  if (!format.empty() && (wcstol(piece(image ? 6 : 4).c_str(), nullptr, 10) & (image ? 2 : 1))) address = Grid.BaseUrl;
  address += piece(image ? 4 : 0);
  if (!image || item.find(L"javascript:") == std::wstring::npos) address += item;
  address += piece(image ? 5 : 1);
  std::wstring text = image ? (Grid.HasPicture ? Grid.Picture : L"") : row->GetArrayItemFirst(value.c_str(), 1);
  if (text.empty()) text = address;
  std::string url;
  AppendUtf8(url, address.c_str(), MaxCellChars);
  Utf8(text.c_str());
  if (worksheet_write_url_opt(Sheet, Row, at, url.c_str(), nullptr, Text.c_str(), nullptr) != LXW_NO_ERROR)
    worksheet_write_string(Sheet, Row, at, Text.c_str(), nullptr);
}

// A condition of a filter row as text: the operator, the value and the
// marks of the wildcards.
void TXlsxWriter::WriteFilter(TNode* row, int i, int at) {
  const auto& names = Grid.CellNames[i];
  int f = row->GetInt(names.Filter);
  if (f == 0) return;
  static const wchar_t* const Operators[7] = {L"", L"", L"", L"< ", L"<= ", L"> ", L">= "};
  Wide = f >= 1 && f <= 6 ? Operators[f] : f >= 9 ? L"*" : L"";
  Wide += row->GetStringFormat(Cols[i].Name, names.Value);
  if (f >= 7 && (f <= 8 || f >= 11)) Wide += L'*';
  WriteText(at, Wide.c_str());
}

// Texts stay texts, also where they look like numbers; an empty one leaves
// the cell empty.
void TXlsxWriter::WriteText(int at, const wchar_t* text, lxw_format* format) {
  if (!*text && !format) return;
  worksheet_write_string(Sheet, Row, at, Utf8(text), format);
}

const char* TXlsxWriter::Utf8(const wchar_t* text) {
  Text.clear();
  AppendUtf8(Text, text, MaxCellChars);
  return Text.c_str();
}

// One format per mask, made once; past MaxFormats the general one.
lxw_format* TXlsxWriter::FormatOf(const std::string& mask, bool wrap) {
  if (mask.empty() && !wrap) return nullptr;
  std::string key = (wrap ? "w" : "n") + mask;
  auto found = Formats.find(key);
  if (found != Formats.end()) return found->second;
  if (Formats.size() >= MaxFormats) return nullptr;
  lxw_format* format = workbook_add_format(Book);
  if (format && !mask.empty()) format_set_num_format(format, mask.c_str());
  if (format && wrap) format_set_text_wrap(format);
  Formats[key] = format;
  return format;
}

// A single letter names a mask of the language's Format element, as in the
// grid's own date texts.
lxw_format* TXlsxWriter::DateFormatOf(const wchar_t* format) {
  auto found = DateFormats.find(format);
  if (found != DateFormats.end()) return found->second;
  TNode* element = Grid.Tree->Format;
  std::wstring mask = *format ? format : L"g";
  if (mask.size() == 1) {
    std::wstring named = element ? element->GetString(mask.c_str()) : L"";
    mask = named.size() >= 2 ? named : L"M/d/yyyy";
  }
  wchar_t dateSeparator = element && *element->GetString(L"DateSeparator") ? *element->GetString(L"DateSeparator") : L'/';
  wchar_t timeSeparator = element && *element->GetString(L"TimeSeparator") ? *element->GetString(L"TimeSeparator") : L':';
  std::string sheetMask = DateMask(mask.c_str(), dateSeparator, timeSeparator);
  if (sheetMask.empty()) sheetMask = "General";
  lxw_format* made = FormatOf(sheetMask, false);
  if (DateFormats.size() < MaxFormats) DateFormats[format] = made;
  return made;
}

// The file is written under a new name beside path and renamed onto it, so
// a failure leaves no half-written file under the target name. A target
// that is a link is written through; one that isn't a plain file, or can't
// be opened for writing, is refused.
int TGridExport::SaveExportXlsx(const wchar_t* xml, const wchar_t* path) {
  if (!path || !*path) return EXlsxUnwritable;
  std::unique_ptr<TExportCol[]> cols(new TExportCol[MaxExportCols]);
  int count = 0, options = 0;
  if (!ReadRequest(xml, cols.get(), count, options)) return -3;
  // Paths are UTF-8 on this side, so both forms of the call name the same file.
  std::string target;
  AppendUtf8(target, path, 4096);
  if (char* real = realpath(target.c_str(), nullptr)) {
    target = real;
    free(real);
  }
  struct stat status;
  if (stat(target.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) return EXlsxUnwritable;
    int probe = open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (probe < 0) return EXlsxUnwritable;
    close(probe);
  }
  std::string temporary;
  if (!MakeBeside(target, temporary)) return EXlsxUnwritable;
  PrepareCells(cols.get(), count);
  int result = TXlsxWriter(*this, cols.get(), count, options).Write(temporary, FolderOf(target));
  if (result == 0 && rename(temporary.c_str(), target.c_str()) != 0) result = EXlsxUnwritable;
  if (result != 0) unlink(temporary.c_str());
  return result;
}

#endif
