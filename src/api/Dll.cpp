// The exported C functions: each forwards to the registry, and none lets an
// exception reach the host.
#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "api/Args.h"
#include "api/Grids.h"
#include "api/Threads.h"
#include "sarvendo.h"

// Built in this order when the library loads, destroyed at process end.
TGrids Grids;
TRWCrit RWCrit;
void* HLibLock = nullptr;

namespace {

wchar_t* const NoWide = nullptr;
char* const NoUtf8 = nullptr;

// Runs one call; a failure thrown from inside (only allocation can) becomes
// the call's failure result.
template <class R, class F> R Guard(R failure, F call) {
  try {
    return call();
  } catch (...) {
    return failure;
  }
}

// "3,5,12": room for any index value.
char* JoinIndexes(const int* indexes, int count) {
  const size_t room = (size_t)count * 12 + 1;
  char* text = (char*)malloc(room);
  if (!text) return nullptr;
  size_t used = 0;
  for (int i = 0; i < count; i++)
    used += (size_t)snprintf(text + used, room - used, i ? ",%d" : "%d", indexes[i]);
  text[used] = 0;
  return text;
}

}  // namespace

extern "C" {

// Grid life

int CreateGrid(const wchar_t* doc1, const wchar_t* doc2, const wchar_t* doc3, const wchar_t* doc4,
               const wchar_t* doc5, const wchar_t* doc6) {
  return Guard(-1, [&] { return Grids.CreateGrid(doc1, doc2, doc3, doc4, doc5, doc6); });
}

int CreateGridA(const char* doc1, const char* doc2, const char* doc3, const char* doc4, const char* doc5,
                const char* doc6) {
  return Guard(-1, [&] { return Grids.CreateGrid(doc1, doc2, doc3, doc4, doc5, doc6); });
}

int UpdateGrid(int index, const wchar_t* xml) { return Guard(-1, [&] { return Grids.UpdateGrid(index, xml); }); }
int UpdateGridA(int index, const char* xml) { return Guard(-1, [&] { return Grids.UpdateGrid(index, xml); }); }
int DeleteGrid(int index) { return Guard(-1, [&] { return Grids.DeleteGrid(index); }); }
void Clear(void) { Grids.Clear(); }

// Search

int FindGrid(const wchar_t* xml) { return Guard(-3, [&] { return Grids.FindGrid(xml); }); }
int FindGridA(const char* xml) { return Guard(-3, [&] { return Grids.FindGrid(xml); }); }

int FindGrids(int* out, int max, const wchar_t* xml, int idleSeconds, int) {
  return Guard(-3, [&] { return Grids.FindGrids(out, max, xml, idleSeconds); });
}

int FindGridsA(int* out, int max, const char* xml, int idleSeconds, int) {
  return Guard(-3, [&] { return Grids.FindGrids(out, max, xml, idleSeconds); });
}

char* FindGridsStrA(int max, const char* xml, int idleSeconds, int) {
  return Guard(NoUtf8, [&] {
    // Without a limit the matches are counted first, so that the array holds
    // them all; a count that isn't positive (none, or a bad document) is null.
    const int limit = max > 0 ? max : Grids.FindGrids(nullptr, 0, xml, idleSeconds);
    int stack[256];
    int* found = limit > 256 ? (int*)malloc((size_t)limit * sizeof(int)) : stack;
    const int count = found && limit > 0 ? Grids.FindGrids(found, limit, xml, idleSeconds) : 0;
    char* text = count > 0 ? JoinIndexes(found, count) : nullptr;
    if (found != stack) free(found);
    return text;
  });
}

int GetIndexes(int* out, int max) { return Guard(0, [&] { return Grids.GetIndexes(out, max); }); }
wchar_t* GetSession(const wchar_t* xml) { return Guard(NoWide, [&] { return Grids.GetSession(xml); }); }
char* GetSessionA(const char* xml) { return Guard(NoUtf8, [&] { return Grids.GetSession(xml); }); }
wchar_t* GetGridSession(int index) { return Guard(NoWide, [&] { return Grids.GetGridSession(index); }); }
char* GetGridSessionA(int index) { return Guard(NoUtf8, [&] { return Grids.GetGridSessionA(index); }); }

// Responses

wchar_t* GetBody(int index, const wchar_t* xml) {
  return Guard(NoWide, [&] { return Grids.GetBody(index, xml, nullptr); });
}

char* GetBodyA(int index, const char* xml) {
  return Guard(NoUtf8, [&] { return Grids.GetBody(index, xml, nullptr); });
}

wchar_t* GetPage(int index, const wchar_t* xml) {
  return Guard(NoWide, [&] { return Grids.GetPage(index, xml, nullptr); });
}

char* GetPageA(int index, const char* xml) {
  return Guard(NoUtf8, [&] { return Grids.GetPage(index, xml, nullptr); });
}

wchar_t* GetCells(int index, const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format) {
  return Guard(NoWide, [&] { return Grids.GetCells(index, rowId, column, flags, format, nullptr); });
}

// flags before column: the order hosts of the 8-bit form were built against.
char* GetCellsA(int index, const char* rowId, int flags, const char* column, const char* format) {
  return Guard(NoUtf8, [&] { return Grids.GetCells(index, rowId, column, flags, format, nullptr); });
}

wchar_t* GetChanges(int index, int flags) { return Guard(NoWide, [&] { return Grids.GetChanges(index, flags); }); }
char* GetChangesA(int index, int flags) { return Guard(NoUtf8, [&] { return Grids.GetChangesA(index, flags); }); }
wchar_t* GetData(int index) { return Guard(NoWide, [&] { return Grids.GetGridData(index, nullptr); }); }
char* GetDataA(int index) { return Guard(NoUtf8, [&] { return Grids.GetGridDataA(index, nullptr); }); }
wchar_t* GetLastId(int index) { return Guard(NoWide, [&] { return Grids.GetLastId(index); }); }
char* GetLastIdA(int index) { return Guard(NoUtf8, [&] { return Grids.GetLastIdA(index); }); }

wchar_t* GetExport(int index, const wchar_t* xml) {
  return Guard(NoWide, [&] { return Grids.GetExport(index, xml, nullptr); });
}

char* GetExportA(int index, const char* xml) {
  return Guard(NoUtf8, [&] { return Grids.GetExport(index, xml, nullptr); });
}

int SaveExportXlsx(int index, const wchar_t* xml, const wchar_t* path) {
  return Guard(-1, [&] { return Grids.SaveExportXlsx(index, xml, path); });
}

int SaveExportXlsxA(int index, const char* xml, const char* path) {
  return Guard(-1, [&] { return Grids.SaveExportXlsx(index, xml, path); });
}

// Storing

int Save(int index, const wchar_t* xml) { return Guard(-1, [&] { return Grids.Save(index, xml, 0); }); }
int SaveA(int index, const char* xml) { return Guard(-1, [&] { return Grids.Save(index, xml, 0); }); }

int SaveEx(int index, const wchar_t* xml, int flags) {
  return Guard(-1, [&] { return Grids.Save(index, xml, flags); });
}

int SaveExA(int index, const char* xml, int flags) {
  return Guard(-1, [&] { return Grids.Save(index, xml, flags); });
}

int SaveToFile(int index, const wchar_t* fileName, int flags) {
  return Guard(-1, [&] { return Grids.SaveToFile(index, fileName, flags); });
}

int SaveToFileA(int index, const char* fileName, int flags) {
  return Guard(-1, [&] { return Grids.SaveToFile(index, fileName, flags); });
}

// Memory

void FreeString(wchar_t* text) { free(text); }
void FreeStringA(char* text) { free(text); }

// Process

int LockLibraryA(const char* fileName) {
  if (HLibLock) return -1;
  if (!fileName) return 0;
  HLibLock = dlopen(fileName, RTLD_LAZY);
  return HLibLock ? 1 : 0;
}

int LockLibrary(const wchar_t* fileName) {
  if (HLibLock) return -1;
  if (!fileName) return 0;
  return LockLibraryA(TNarrowArg(fileName));
}

// HLibLock keeps its value: after one lock, locking stays refused and each
// unlock closes again, which hosts rely on.
int UnlockLibrary(void) {
  if (!HLibLock) return -1;
  return dlclose(HLibLock) == 0 ? 1 : 0;
}

void EnterRead(void) { RWCrit.EnterRead(); }
void LeaveRead(void) { RWCrit.LeaveRead(); }
void EnterWrite(void) { RWCrit.EnterWrite(); }
void LeaveWrite(void) { RWCrit.LeaveWrite(); }

int SetGridLocale(int index, const wchar_t* name) {
  return Guard(-1, [&] { return Grids.SetLocale(index, TNarrowArg(name)); });
}

int SetGridLocaleA(int index, const char* name) { return Guard(-1, [&] { return Grids.SetLocale(index, name); }); }

// Inert

wchar_t* LastError(void) { return nullptr; }
char* LastErrorA(void) { return nullptr; }
int SetDebug(int, const wchar_t*) { return -1; }
int SetDebugA(int, const char*) { return -1; }

}  // extern "C"
