// TGridGet: the answers: body and page responses, the cell list, the log of
// changes and the saved document. All results are new malloc blocks.
#pragma once
#include "grid/Update.h"

class TGridGet : public TGridUpdate {
public:
  wchar_t* GetBody(const wchar_t* xml, int* outLength);
  wchar_t* GetPage(const wchar_t* xml, int* outLength);
  wchar_t* GetCells(const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format, int* outLength);
  wchar_t* GetChanges(int flags);
  wchar_t* SaveToData(int* outLength);
  int SaveToFile(const wchar_t* fileName, int flags);
};
