// TGrid: the top of the grid chain, a grid as the registry holds it: its lock,
// its session text and the time of its last use.
//
// TGrids: the registry of live grids, one per process (the global Grids). A
// grid is named by its slot index and by its session. Every operation takes
// the grid with Get (grid lock held), calls one operation of the chain and
// gives it back with Back; different grids run in parallel. Lock order: table
// lock, then grid lock; nothing waits for the table lock while holding a grid
// lock, so the two can't wait for each other. Text results are new malloc
// blocks of the caller (wide, or UTF-8 for the 8-bit twins); null on failure.
#pragma once
#include <atomic>
#include <ctime>

#include "api/Threads.h"
#include "grid/Export.h"
#include "tree/Hashtable.h"

class TGrid final : public TGridExport {
public:
  // Session texts are cut to SessionSize - 1 characters.
  static const int SessionSize = 1026;

  TGrid();
  void CopySession() override;
  bool HasSession();
  // Session texts are compared as stored, so a longer key is cut alike.
  bool SessionEquals(const wchar_t* session);
  wchar_t* CopySessionText();
  void Stamp() { LastAccess = time(nullptr); }

  time_t LastAccess;
  TCrit GridLock;
  TCrit SessionLock;
  wchar_t Session[SessionSize];
};

class TGrids {
public:
  TGrids();
  ~TGrids();
  TGrids(const TGrids&) = delete;
  TGrids& operator=(const TGrids&) = delete;

  // The new index, or -1 without memory; the grid's lock is held on return.
  int Add(TGrid* grid);
  // The grid with its lock held, or null.
  TGrid* Get(int index);
  // Gives back a grid taken by Get or Add. It takes the grid, not the index:
  // a slot may be cleared by DeleteGrid meanwhile, and reading the table here
  // would wait for the table lock while holding a grid lock.
  void Back(TGrid* grid);

  int CreateGrid(const wchar_t* doc1, const wchar_t* doc2, const wchar_t* doc3, const wchar_t* doc4,
                 const wchar_t* doc5, const wchar_t* doc6);
  int CreateGrid(const char* doc1, const char* doc2, const char* doc3, const char* doc4, const char* doc5,
                 const char* doc6);
  int UpdateGrid(int index, const wchar_t* xml);
  int UpdateGrid(int index, const char* xml);
  int FindGrid(const wchar_t* xml);
  int FindGrid(const char* xml);
  int FindGrids(int* out, int max, const wchar_t* xml, int idleSeconds);
  int FindGrids(int* out, int max, const char* xml, int idleSeconds);
  int DeleteGrid(int index);
  void Clear();
  // Count of live grids; with out, their indices, all of them: max is not
  // looked at, hosts ask for the count first and give room for every grid.
  int GetIndexes(int* out, int max);
  // As GetIndexes, storing at most room indices: for hosts whose array has a
  // length of its own. The count is of all live grids.
  int ListIndexes(int* out, int room);
  wchar_t* GetSession(const wchar_t* xml);
  char* GetSession(const char* xml);
  wchar_t* GetGridSession(int index);
  char* GetGridSessionA(int index);
  int SetLocale(int index, const char* name);

  wchar_t* GetBody(int index, const wchar_t* xml, int* outLength);
  char* GetBody(int index, const char* xml, int* outLength);
  wchar_t* GetPage(int index, const wchar_t* xml, int* outLength);
  char* GetPage(int index, const char* xml, int* outLength);
  wchar_t* GetExport(int index, const wchar_t* xml, int* outLength);
  char* GetExport(int index, const char* xml, int* outLength);
  int SaveExportXlsx(int index, const wchar_t* xml, const wchar_t* path);
  int SaveExportXlsx(int index, const char* xml, const char* path);
  wchar_t* GetCells(int index, const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format,
                    int* outLength);
  char* GetCells(int index, const char* rowId, const char* column, int flags, const char* format, int* outLength);
  int Save(int index, const wchar_t* xml, int flags);
  int Save(int index, const char* xml, int flags);
  int SaveToFile(int index, const wchar_t* fileName, int flags);
  int SaveToFile(int index, const char* fileName, int flags);
  wchar_t* GetGridData(int index, int* outLength);
  char* GetGridDataA(int index, int* outLength);
  wchar_t* GetChanges(int index, int flags);
  char* GetChangesA(int index, int flags);
  wchar_t* GetLastId(int index);
  char* GetLastIdA(int index);

private:
  TGrid** Table;
  // Written under the table lock; atomic because Get and DeleteGrid test an
  // index against it before taking any lock.
  std::atomic<int> Capacity;
  TRWCrit TableLock;
  THashtable LocaleTables;

  // The grid in a slot with its lock held; the caller holds the table lock.
  TGrid* Enter(int index);
  void GenerateSession(TGrid* grid, int index);
  static void Destroy(TGrid* grid);
  bool Matches(TGrid* grid, TNode* filter, time_t threshold, int idleSeconds);
  const unsigned long long* FindLocaleTable();
  const unsigned long long* BuildLocaleTable(const char* name);
  const unsigned long long* StoreCollation();
  template <class R, class F> R Forward(int index, R none, F call);
};

extern TGrids Grids;
