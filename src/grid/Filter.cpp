#include "grid/Filter.h"

TGridFilter::TGridFilter() {}
TGridFilter::~TGridFilter() {}
bool TGridFilter::UpdateFilter() { return false; }
