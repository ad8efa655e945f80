#include "grid/Group.h"

TGridGroup::TGridGroup() : NextGroupId(0), MaxGroupLength(0), GroupIndex(-1), GroupCount(0), GroupCols() {}
TGridGroup::~TGridGroup() {}
void TGridGroup::InitGroup() {}
bool TGridGroup::UpdateGroup() { return false; }

void TGridGroup::Group() {}
void TGridGroup::ClearGroup() {}
