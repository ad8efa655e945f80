// TGridExport: the grid's rows as an HTML document for spreadsheet programs.
// It takes the rows as they stand (order and FFiltered flags); the request
// chooses the columns, their order and widths, and the options.
//
// The document is written into one growing buffer. Every write checks its
// room, so no text (prefix, caption, a long cell) can pass the buffer's end;
// a buffer that can't grow ends the export with null. Rows are walked
// without recursion, so a tree of any depth is written within the stack.
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

struct TExportSink;

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

  // Refreshed at the start of each export.
  int VisibleIndex;
  int CanExportIndex;
  int SpannedIndex;

private:
  // Name indexes of one column's cell attributes, looked up once per export.
  struct TCellNames {
    int Value, Type, Format, ExportFormat, ExportValue, Visible, Span, Filter, EmptyValue;
    TNode* Column;
  };

  int ReadColumns(TNode* request, TExportCol* cols);
  void ReadColumn(TNode* child, TNode* column, int section, TExportCol& col);
  bool IsGroupColumn(const wchar_t* name) const;
  int ReadOptions(TNode* requestCfg);
  void PrepareCells(const TExportCol* cols, int count);
  void WriteHead(TExportSink& sink, int options, const TExportCol* cols, int count);
  void WriteHeader(TExportSink& sink, TExportCol* cols, int count);
  void WriteHeaderRows(TExportSink& sink, TNode* header, TExportCol* cols, int count);
  void WriteCaptions(TExportSink& sink, TNode* header, const TExportCol* cols, int count, int row, int section);
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
