// TGridExport: the grid's rows as an HTML document for spreadsheet programs.
// It takes the rows as they stand (order and FFiltered flags); the request
// chooses the columns, their order and widths, and the options.
#pragma once
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

class TGridExport : public TGridGet {
public:
  static const int MaxExportCols = 512;

  TGridExport();
  wchar_t* GetExport(const wchar_t* xml, int* outLength);

  // Refreshed at the start of each export.
  int VisibleIndex;
  int CanExportIndex;
  int SpannedIndex;
};
