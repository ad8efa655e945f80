#include "grid/Sort.h"

TGridSort::TGridSort() : WhiteCharsCache(255), CharCodesCache(255), SortCount(0), SortCols(), SortTypes() {}
TGridSort::~TGridSort() {}
bool TGridSort::UpdateSort() { return false; }
