// TNodeFilter: the node level of filtering.
#pragma once
#include "grid/Sort.h"

class TNodeFilter : public TNodeSort {
public:
};
