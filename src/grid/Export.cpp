#include "grid/Export.h"

wchar_t* TGridExport::GetExport(const wchar_t*, int*) { return nullptr; }
