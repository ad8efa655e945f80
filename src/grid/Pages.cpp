#include "grid/Pages.h"

void TGridPages::RemovePages() {}

void TGridPages::CreatePages() {}
void TGridPages::SetPageNames() {}
void TGridPages::GetPageNames(TNode*, const wchar_t** names, int, int*) { names[0] = names[1] = names[2] = nullptr; }
const wchar_t* TGridPages::GetPageString(TNode*, int, int) { return EmptyString; }
