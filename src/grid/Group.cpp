#include "grid/Group.h"

TGridGroup::TGridGroup() {}
TGridGroup::~TGridGroup() {}
void TGridGroup::InitGroup() {}
bool TGridGroup::UpdateGroup() { return false; }
