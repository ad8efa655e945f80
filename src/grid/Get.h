// TGridGet: the answers: body and page responses, the cell list, the log of
// changes and the saved document. All results are new malloc blocks.
//
// GetData composes a document of chosen parts (flags: 4 short IO, 8 short
// Cfg and Filters, 16 Body, 32 Head and Foot, 64 all other sections as they
// stand; below 4 means 28); it leaves the grid as it was. SaveToFile writes
// it beside the target and renames it over, so a failed write never leaves
// a half-written file under the target's name.
#pragma once
#include <cstdio>
#include <string>
#include <utility>
#include <vector>
#include "grid/Update.h"

class TGridGet : public TGridUpdate {
public:
  // Only this many attributes of the last page go into the page list.
  static const int MaxPageAttributes = 500;
  // The sort columns' page names Name<i><j> that may join the list.
  static const int MaxNameAttributes = TGridSort::MaxSortCols * 3;
  // The cell list's first block, and the room it keeps free.
  static const int CellBlock = 32768;
  static const int CellReserve = 8192;

  wchar_t* GetBody(const wchar_t* xml, int* outLength);
  wchar_t* GetPage(const wchar_t* xml, int* outLength);
  wchar_t* GetCells(const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format, int* outLength);
  // Collects records of parent's children (all depths with flag 256). A record
  // whose stored text could not be pointed at owns a copy in Full[1]: free the
  // array with FreeCells.
  bool GetCells(TNode* parent, int column, int flags, int filterIndex, const wchar_t* filterValue, TSortNode*& nodes,
                int& count, int& capacity);
  static void FreeCells(TSortNode* nodes, int count);
  // Appends ` name="value"` (value escaped for & < "); returns the new end.
  wchar_t* FillAttr(wchar_t* out, TNode* node, const wchar_t* name);
  // Rows the row occupies on screen: 0 filtered, 1 collapsed, else 1 + children.
  int GetVisibleHeight(TNode* row);
  // The log of changes as one Changes element; null when it is empty. Flag 1
  // empties it afterwards.
  wchar_t* GetChanges(int flags);
  wchar_t* GetData(int flags, int* outLength);
  wchar_t* SaveToData(int* outLength);
  // 0; -1 the file can't be written, -2 an incomplete write, -3 no text.
  int SaveToFile(const wchar_t* fileName, int flags);

private:
  void UpdatePipeline();
  // Appends FillAttr's text, with room for any value.
  void AppendAttr(std::wstring& out, TNode* node, const wchar_t* name);
  std::wstring GetShortCfg();
  std::wstring GetFilters();
  void AppendFilterCell(std::wstring& out, const TFilterCell& cell);
  // The chosen root children, each written with flags 255; false when one
  // could not be written (the texts made so far are freed).
  bool GetSections(int flags, std::vector<std::pair<wchar_t*, int>>& texts);
  int WriteData(FILE* file, int flags);
  void ResolveFocused();
  TNode* FindFocus(TNode* row, TNode*& page);
  int GetFocusedPos(TNode* focus, TNode* page);
  int GetPageAttributes(int* indexes, const wchar_t** names);
  wchar_t* GetPlainBody(int* outLength);
  wchar_t* GetCompressedBody(const int* indexes, const wchar_t* const* names, int nameCount, int* outLength);
  wchar_t* WriteCfg(wchar_t* cursor, wchar_t*& start, wchar_t*& end);
  wchar_t* WritePageTable(wchar_t* cursor, wchar_t*& start, wchar_t*& end, const int* indexes, int nameCount);
  wchar_t* WritePageValue(wchar_t* cursor, wchar_t*& start, wchar_t*& end, TNode* page, int index);
  void FillCellRecord(TSortNode& record, TNode* row, int column, int flags);
  const wchar_t* GetCellText(TNode* row, const wchar_t* column, int col, int flags);
};
