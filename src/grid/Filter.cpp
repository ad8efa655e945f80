#include "grid/Filter.h"

TGridFilter::TGridFilter() : FilterCells(), FilterCount(0) {}
TGridFilter::~TGridFilter() {}
bool TGridFilter::UpdateFilter() { return false; }

void TGridFilter::Filter() {}
void TGridFilter::ClearFilters() {}
