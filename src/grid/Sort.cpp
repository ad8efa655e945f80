#include "grid/Sort.h"

TGridSort::TGridSort() {}
TGridSort::~TGridSort() {}
bool TGridSort::UpdateSort() { return false; }
