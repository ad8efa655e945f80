#include "grid/Export.h"

TGridExport::TGridExport() : VisibleIndex(-1), CanExportIndex(-1), SpannedIndex(-1) {}

wchar_t* TGridExport::GetExport(const wchar_t*, int*) { return nullptr; }
