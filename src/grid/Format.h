// TDataFormat: the display text of a cell (value and date formats).
#pragma once
#include "tree/Data.h"

class TDataFormat : public TData {
public:
};
