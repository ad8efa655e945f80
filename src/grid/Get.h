// TGridGet: the answers: body and page responses, the cell list, the log of
// changes and the saved document. All results are new malloc blocks.
#pragma once
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
  wchar_t* GetChanges(int flags);
  wchar_t* SaveToData(int* outLength);
  int SaveToFile(const wchar_t* fileName, int flags);

private:
  void UpdatePipeline();
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
