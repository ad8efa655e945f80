// TNodeSort: the node level of sorting.
#pragma once
#include "tree/Xml.h"

class TNodeSort : public TNodeXml {
public:
};
