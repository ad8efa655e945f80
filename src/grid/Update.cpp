#include "grid/Update.h"
#include "tree/Data.h"

TGridUpdate::TGridUpdate() : Changes(nullptr) {}
TGridUpdate::~TGridUpdate() { ClearChanges(); }
bool TGridUpdate::AddCfg(const wchar_t*) { return true; }
void TGridUpdate::AddCfg(TTree*) {}
int TGridUpdate::UpdateGrid(const wchar_t* xml) { return AddCfg(xml) ? 0 : -3; }
int TGridUpdate::Save(const wchar_t*, int) { return -1; }
const wchar_t* TGridUpdate::GetLastId(TIds*) { return EmptyString; }
const wchar_t* TGridUpdate::SetId(TIds*, TNode*, bool) { return EmptyString; }
TNode* TGridUpdate::AllocChanges() { return nullptr; }
void TGridUpdate::ClearChanges() {}
