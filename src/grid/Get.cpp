#include "grid/Get.h"

wchar_t* TGridGet::GetBody(const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetPage(const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetCells(const wchar_t*, const wchar_t*, int, const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetChanges(int) { return nullptr; }
// The whole tree, writer flags 255: every row, filtered or not, with _0F.
wchar_t* TGridGet::SaveToData(int* outLength) { return Tree->GetXml(outLength, 255); }
int TGridGet::SaveToFile(const wchar_t*, int) { return -1; }

bool TGridGet::GetCells(TNode*, int, int, int, const wchar_t*, TSortNode*&, int&, int&) { return false; }
wchar_t* TGridGet::FillAttr(wchar_t* out, TNode*, const wchar_t*) { return out; }
int TGridGet::GetVisibleHeight(TNode*) { return 0; }
