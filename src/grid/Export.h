// TGridExport: the grid's rows as an HTML document for spreadsheet programs.
// It takes the rows as they stand (order and FFiltered flags); the request
// chooses the columns, their order and widths, and the options.
//
// The document is written into one growing buffer. Every write checks its
// room, so no text (prefix, caption, a long cell) can pass the buffer's end;
// a buffer that can't grow ends the export with null. Rows are walked
// without recursion, so a tree of any depth is written within the stack.
//
// SaveExportXlsx writes the same columns and rows as a workbook (its writer,
// TXlsxWriter, lives in ExportXlsx.cpp): the request is read, the header and
// the rows walked by the same code as the HTML document's.
#pragma once
#include <string>
#include <vector>

#include "grid/Get.h"

// One column of an export, in the order of the request.
struct TExportCol {
  static const int NameLength = 128;
  wchar_t Name[NameLength];  // cut at 127 characters
  bool Visible;
  bool CanHide;
  int Width;
  int Section;  // 0 LeftCols, 1 Cols, 2 RightCols
  bool Main;
  bool LastLeft;
  bool FirstRight;
  bool CanEmpty;
  bool Group;
};

// Option bits of an export.
enum {
  EFiltered = 1, EExpanded = 2, EStrings = 4, EHidden = 8, EOutline = 16, ENoIndent = 32, ENoDateNumbers = 64
};

// Results of SaveExportXlsx beside 0 and the registry's codes.
enum {
  EXlsxUnwritable = -4,   // the file can't be made, written or renamed into place
  EXlsxUnavailable = -5,  // built without the workbook library
  EXlsxTooManyRows = -6   // more rows than a sheet holds; no file is left
};

struct TExportSink;
class TXlsxWriter;

class TGridExport : public TGridGet {
public:
  // Columns beyond this many in a request are left out.
  static const int MaxExportCols = 512;
  // Spanned captions per section and header row.
  static const int MaxCaptionCells = 500;
  // Header rows written at most; the row digit of caption names runs out long before.
  static const int MaxHeaderRows = 100;
  // Room made sure of before each row and each cell.
  static const int RowRoom = 8192;
  static const int FirstBuffer = 32768;

  TGridExport();
  void UpdateExport();
  // The whole document as a new block (FreeString); null when the request
  // can't be parsed or has no root.
  wchar_t* GetExport(const wchar_t* xml, int* outLength);
  // One row of column captions at out; the caller makes room for it.
  wchar_t* FillHeader(wchar_t* out, TNode* header, TExportCol* cols, int count);
  // The same in a buffer that grows; null if it can't.
  wchar_t* FillHeader(wchar_t*& buffer, wchar_t*& end, wchar_t* out, TNode* header, TExportCol* cols, int count);
  // The row and the rows under it that go out; returns the new end (a zero
  // stands there), or null if the buffer can't grow. level is 0 for root and
  // fixed rows; filter marks a row of filter conditions.
  wchar_t* FillRow(wchar_t*& buffer, wchar_t*& end, wchar_t* out, TNode* row, TExportCol* cols, int count,
                   int options, const wchar_t* style, int level, bool filter);

  // Option bits of lower-case words, each found as a substring.
  static int OptionsOfWords(const wchar_t* lower);

  // The export of the request as an .xlsx workbook at path (UTF-8 of the
  // wide text). 0, -3 a request that can't be parsed or a grid without root,
  // or one of the EXlsx codes. Written beside path and renamed onto it.
  int SaveExportXlsx(const wchar_t* xml, const wchar_t* path);
  // Rows a sheet holds, header included; lowered only by tests.
  int SheetRows = 1048576;

  // Refreshed at the start of each export.
  int VisibleIndex;
  int CanExportIndex;
  int SpannedIndex;

private:
  friend class TXlsxWriter;

  // Name indexes of one column's cell attributes, looked up once per export.
  struct TCellNames {
    int Value, Type, Format, ExportFormat, ExportValue, Visible, Span, Filter, EmptyValue;
    TNode* Column;
  };

  // Parses the request and reads its columns and options; false when it
  // can't be parsed or the grid has nothing to export.
  bool ReadRequest(const wchar_t* xml, TExportCol* cols, int& count, int& options);
  int ReadColumns(TNode* request, TExportCol* cols);
  void ReadColumn(TNode* child, TNode* column, int section, TExportCol& col);
  bool IsGroupColumn(const wchar_t* name) const;
  int ReadOptions(TNode* requestCfg);
  void PrepareCells(const TExportCol* cols, int count);
  void WriteHead(TExportSink& sink, int options, const TExportCol* cols, int count);
  void WriteHeader(TExportSink& sink, TExportCol* cols, int count);
  void WriteHeaderRow(TExportSink& sink, TNode* header, TExportCol* cols, int count, int r);
  // The header rows as they go out: visit(r, caption) for each of them,
  // caption true for the row of column captions.
  template <class F> void WalkHeader(TNode* header, F visit);
  // The spanned captions of one section in header row r:
  // visit(name, first column, count of visible columns).
  template <class F> void WalkCaptions(TNode* header, const TExportCol* cols, int count, int r, int section, F visit);
  // The rows of Head or Foot that go out: visit(row, style, filter, caption).
  template <class F> void WalkFixedRows(TNode* section, bool head, int options, F visit);
  // The row and the rows under it that go out, in document order:
  // visit(node, depth, first).
  template <class F> void WalkRows(TNode* row, int options, int level, F visit);
  void WriteCaptionRow(TExportSink& sink, TNode* header, const TExportCol* cols, int count);
  void WriteFixedRows(TExportSink& sink, TNode* section, bool head, TExportCol* cols, int count, int options);
  void WriteRows(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int options,
                 const wchar_t* style, int level, bool filter);
  bool IsLeftOut(TNode* row, int options) const;
  void WriteRow(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int options,
                const wchar_t* style, int level, bool filter);
  void OpenRow(TExportSink& sink, TNode* row, int options, int level);
  int WriteCell(TExportSink& sink, TNode* row, const TExportCol* cols, int count, int i, int options,
                const wchar_t* style, int level, bool filter, bool spanned);
  void WriteStyle(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names,
                  const wchar_t* style, int level, int options, bool filter);
  void WriteFilterValue(TExportSink& sink, TNode* row, const wchar_t* name, const TCellNames& names);
  void WriteValue(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names, int options);
  void WriteNumber(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names);
  void WriteDate(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names, int options);
  void WriteText(TExportSink& sink, TNode* row, const TExportCol& col, const TCellNames& names, int options,
                 bool lines);
  void WriteLink(TExportSink& sink, TNode* row, const TCellNames& names);
  void WriteImage(TExportSink& sink, TNode* row, const TCellNames& names);
  const wchar_t* EmptyValueOf(TNode* row, const TCellNames& names);
  bool IsExpanded(TNode* row) const;

  // The export's settings, copied from Cfg so that no scratch text is held.
  std::wstring MainCol, GroupText, BaseUrl, Picture;
  bool HasPicture = false;
  std::vector<TCellNames> CellNames;
  // Reused for the lists of link cells, so that a cell allocates nothing
  // once they have grown.
  std::wstring LinkValue, LinkFormat, LinkAddress;
};
