#include "grid/Get.h"

wchar_t* TGridGet::GetBody(const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetPage(const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetCells(const wchar_t*, const wchar_t*, int, const wchar_t*, int*) { return nullptr; }
wchar_t* TGridGet::GetChanges(int) { return nullptr; }
wchar_t* TGridGet::SaveToData(int*) { return nullptr; }
int TGridGet::SaveToFile(const wchar_t*, int) { return -1; }
