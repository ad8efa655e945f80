// TNodeCalc: the node level of formulas; the one class of node made at run time.
#pragma once
#include "grid/Filter.h"

class TNodeCalc : public TNodeFilter {
public:
};
