// TGridGet: the answers: body and page responses, the cell list, the log of
// changes and the saved document. All results are new malloc blocks.
#pragma once
#include "grid/Update.h"

class TGridGet : public TGridUpdate {
public:
  wchar_t* GetBody(const wchar_t* xml, int* outLength);
  wchar_t* GetPage(const wchar_t* xml, int* outLength);
  wchar_t* GetCells(const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format, int* outLength);
  bool GetCells(TNode* parent, int column, int flags, int filterIndex, const wchar_t* filterValue, TSortNode*& nodes,
                int& count, int& capacity);
  // Appends ` name="value"` (value escaped for & < "); returns the new end.
  wchar_t* FillAttr(wchar_t* out, TNode* node, const wchar_t* name);
  // Rows the row occupies on screen: 0 filtered, 1 collapsed, else 1 + children.
  int GetVisibleHeight(TNode* row);
  wchar_t* GetChanges(int flags);
  wchar_t* SaveToData(int* outLength);
  int SaveToFile(const wchar_t* fileName, int flags);
};
