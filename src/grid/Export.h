// TGridExport: the grid's rows as an HTML document for spreadsheet programs.
#pragma once
#include "grid/Get.h"

class TGridExport : public TGridGet {
public:
  wchar_t* GetExport(const wchar_t* xml, int* outLength);
};
