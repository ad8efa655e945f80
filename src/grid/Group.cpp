#include "grid/Group.h"

TGridGroup::TGridGroup() : NextGroupId(0), MaxGroupLength(0), GroupIndex(-1), GroupCount(0), GroupCols() {}
TGridGroup::~TGridGroup() {}
void TGridGroup::InitGroup() {}
bool TGridGroup::UpdateGroup() { return false; }

void TGridGroup::Group() {}

// A group lasts only as long as requests repeat it, so both the client's
// setting and the columns derived from it go before each request is merged.
void TGridGroup::ClearGroup() {
  if (!Cfg) return;
  static const wchar_t* const names[] = {L"GroupCols", L"Group"};
  for (const wchar_t* name : names) {
    int index = Tree->GetIndex(name, 0);
    if (index != -1) Cfg->SetNull(index);
  }
}
