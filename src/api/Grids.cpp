#include "api/Grids.h"

#include <climits>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "api/Args.h"
#include "tree/Data.h"
#include "tree/UTF.h"

namespace {

wchar_t* CopyText(const wchar_t* text) {
  size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
  wchar_t* copy = (wchar_t*)malloc(bytes);
  if (copy) memcpy(copy, text, bytes);
  return copy;
}

// A grid taken with Get and given back when the operation ends, however it
// ends, so that no path leaves a grid locked.
class THeld {
public:
  THeld(TGrids& grids, TGrid* grid) : Grids(grids), Grid(grid) {}
  ~THeld() {
    if (Grid) Grids.Back(Grid);
  }
  THeld(const THeld&) = delete;
  THeld& operator=(const THeld&) = delete;
  TGrids& Grids;
  TGrid* Grid;
};

// Collation keys by the current locale: four 16-bit weights per character,
// the first one highest, read from the transform of the character followed
// by a blank; the blank's own weight ends the character's weights.
void FillCollation(unsigned long long* table) {
  wchar_t out[5] = {};
  wcsxfrm(out, L" ", 5);
  const wchar_t stop = out[0];
  for (int c = 0; c < 65536; c++) {
    const wchar_t source[3] = {(wchar_t)c, L' ', 0};
    for (int i = 0; i < 5; i++) out[i] = 0;
    wcsxfrm(out, source, 5);
    unsigned long long key = 0;
    int read = 0;
    for (int i = 0; i < 4; i++) {
      key <<= 16;
      if (out[read] != stop) key += (unsigned)out[read++] & 0xFFFF;
    }
    table[c] = key;
  }
}

// The locale tables are keyed by the empty text: one table serves the whole
// process, and the first locale that was accepted collates for every grid.
const wchar_t* const LocaleKey = L"";

}  // namespace

// ---- TGrid ----

TGrid::TGrid() : LastAccess(time(nullptr)) { Session[0] = 0; }

void TGrid::CopySession() {
  const wchar_t* session = IO ? IO->GetString(L"Session") : EmptyString;
  SessionLock.Enter();
  int i = 0;
  for (; i < SessionSize - 1 && session[i]; i++) Session[i] = session[i];
  Session[i] = 0;
  SessionLock.Leave();
}

bool TGrid::HasSession() {
  SessionLock.Enter();
  bool has = Session[0] != 0;
  SessionLock.Leave();
  return has;
}

bool TGrid::SessionEquals(const wchar_t* session) {
  SessionLock.Enter();
  bool equal = wcsncmp(Session, session, SessionSize - 1) == 0;
  SessionLock.Leave();
  return equal;
}

wchar_t* TGrid::CopySessionText() {
  SessionLock.Enter();
  wchar_t* copy = CopyText(Session);
  SessionLock.Leave();
  return copy;
}

// ---- TGrids: table ----

TGrids::TGrids() : Table(nullptr), Capacity(0), LocaleTables(128) { TData::Initialize(); }

TGrids::~TGrids() {
  TableLock.EnterWrite();
  for (int i = 0; i < Capacity; i++)
    if (Table[i]) Destroy(Table[i]);
  free(Table);
  Table = nullptr;
  Capacity = 0;
  TableLock.LeaveWrite();
}

int TGrids::Add(TGrid* grid) {
  TableLock.EnterWrite();
  int index = 0;
  while (index < Capacity && Table[index]) index++;
  if (index == Capacity) {
    const int old = Capacity;
    const int capacity = old ? old * 2 : 16;
    TGrid** table = old <= INT_MAX / 2 ? (TGrid**)realloc(Table, (size_t)capacity * sizeof(TGrid*)) : nullptr;
    if (!table) {
      TableLock.LeaveWrite();
      return -1;
    }
    for (int i = old; i < capacity; i++) table[i] = nullptr;
    Table = table;
    Capacity = capacity;
  }
  Table[index] = grid;
  // Locked before the table is released: nobody sees the grid before Back.
  grid->GridLock.Enter();
  TableLock.LeaveWrite();
  return index;
}

TGrid* TGrids::Get(int index) {
  if (index < 0 || index >= Capacity) return nullptr;
  TableLock.EnterRead();
  TGrid* grid = Enter(index);
  TableLock.LeaveRead();
  return grid;
}

TGrid* TGrids::Enter(int index) {
  // Capacity is tested again: Clear may have emptied the table meanwhile.
  if (index >= Capacity || !Table[index]) return nullptr;
  TGrid* grid = Table[index];
  grid->GridLock.Enter();
  return grid;
}

void TGrids::Back(TGrid* grid) { grid->GridLock.Leave(); }

// The grid is out of the table, so nobody can take it any more; at most one
// thread, one that took it before, still works on it: wait for that one.
void TGrids::Destroy(TGrid* grid) {
  grid->GridLock.Enter();
  grid->GridLock.Leave();
  delete grid;
}

int TGrids::DeleteGrid(int index) {
  if (index < 0 || index >= Capacity) return -1;
  // The slot is cleared first and the grid lock awaited afterwards, out of
  // the table lock: holding the grid while asking for the table would
  // deadlock with a thread standing in Get for the same grid.
  TableLock.EnterWrite();
  TGrid* grid = index < Capacity ? Table[index] : nullptr;
  if (grid) Table[index] = nullptr;
  TableLock.LeaveWrite();
  if (!grid) return -1;
  Destroy(grid);
  return 0;
}

void TGrids::Clear() {
  // The whole table is taken out at once, so a grid added meanwhile lands in
  // a fresh table instead of being lost with the old one.
  TableLock.EnterWrite();
  TGrid** table = Table;
  int capacity = Capacity;
  Table = nullptr;
  Capacity = 0;
  TableLock.LeaveWrite();
  for (int i = 0; i < capacity; i++)
    if (table[i]) Destroy(table[i]);
  free(table);
}

int TGrids::GetIndexes(int* out, int) {
  int count = 0;
  TableLock.EnterRead();
  for (int i = 0; i < Capacity; i++) {
    if (!Table[i]) continue;
    if (out) out[count] = i;
    count++;
  }
  TableLock.LeaveRead();
  return count;
}

int TGrids::ListIndexes(int* out, int room) {
  int count = 0;
  TableLock.EnterRead();
  for (int i = 0; i < Capacity; i++) {
    if (!Table[i]) continue;
    if (out && count < room) out[count] = i;
    count++;
  }
  TableLock.LeaveRead();
  return count;
}

// ---- TGrids: life of a grid ----

int TGrids::CreateGrid(const wchar_t* doc1, const wchar_t* doc2, const wchar_t* doc3, const wchar_t* doc4,
                       const wchar_t* doc5, const wchar_t* doc6) {
  std::unique_ptr<TGrid> grid(new TGrid());
  // Later documents overwrite earlier ones: the first argument counts most.
  const wchar_t* documents[6] = {doc4, doc3, doc2, doc5, doc6, doc1};
  int result = grid->Load(documents, 6);
  if (result) return result;
  if (!grid->Tree->Root) return -1;
  grid->Update();
  int index = Add(grid.get());
  if (index < 0) return -1;
  THeld held(*this, grid.release());
  held.Grid->Stamp();
  if (!held.Grid->HasSession()) GenerateSession(held.Grid, index);
  return index;
}

// index_stamp_random_random; the index alone would be guessable.
void TGrids::GenerateSession(TGrid* grid, int index) {
  srand((unsigned)time(nullptr));
  int first = rand();
  int second = rand();
  wchar_t text[64];
  swprintf(text, 64, L"%d_%d_%d_%d", index, (int)grid->LastAccess, first, second);
  if (grid->IO) grid->IO->SetString(L"Session", text);
  grid->CopySession();
}

int TGrids::UpdateGrid(int index, const wchar_t* xml) {
  return Forward(index, -1, [&](TGrid* grid) {
    int result = grid->UpdateGrid(xml);
    // A grid left without a session is named by its index alone.
    if (!grid->HasSession() && grid->IO) {
      grid->IO->SetInt(L"Session", index);
      grid->CopySession();
    }
    return result;
  });
}

// ---- TGrids: search ----

int TGrids::FindGrid(const wchar_t* xml) {
  std::unique_ptr<TTree> tree(new TTree());
  if (!xml || !*xml || !tree->SetXml(xml) || !tree->Root) return -3;
  TNode* io = tree->Root->GetChildByName(L"IO", false);
  const wchar_t* session = io ? io->GetString(L"Session") : EmptyString;
  if (!*session) return -2;
  int found = -2;
  TableLock.EnterRead();
  for (int i = 0; i < Capacity && found < 0; i++)
    if (Table[i] && Table[i]->SessionEquals(session)) found = i;
  TableLock.LeaveRead();
  return found;
}

int TGrids::FindGrids(int* out, int max, const wchar_t* xml, int idleSeconds) {
  std::unique_ptr<TTree> tree(new TTree());
  if (!tree->SetXml(xml) || !tree->Root) return -3;
  const time_t threshold = time(nullptr) - idleSeconds;
  TNode* filter = tree->Root->GetChildByName(L"Cfg", false);
  if (!filter) return 0;
  int* indexes;
  int count = filter->GetIndexes(indexes);
  // The filter's id names the filter row, not a setting.
  if (count && (indexes[0] & 0xFFFF) == 3) indexes++, count--;
  const int mode = filter->Flags & FSpec ? 2 : 1;

  int found = 0;
  TableLock.EnterRead();
  for (int i = 0; i < Capacity; i++) {
    TGrid* grid = Enter(i);
    if (!grid) continue;
    bool match = !(idleSeconds && grid->LastAccess > threshold);
    for (int k = 0; match && k < count; k++) {
      int index = grid->Cfg ? grid->Cfg->GetIndex(tree->GetName(indexes[k], mode), 0) : -1;
      match = grid->Cfg ? filter->Compare(indexes[k], grid->Cfg, index) : false;
    }
    Back(grid);
    if (!match) continue;
    if (out) out[found] = i;
    if (++found == max) break;
  }
  TableLock.LeaveRead();
  return found;
}

wchar_t* TGrids::GetSession(const wchar_t* xml) {
  std::unique_ptr<TTree> tree(new TTree());
  if (!tree->SetXml(xml) || !tree->Root) return nullptr;
  TNode* io = tree->Root->GetChildByName(L"IO", false);
  if (!io || !io->Has(L"Session")) return nullptr;
  return CopyText(io->GetString(L"Session"));
}

// Reads the 8-bit text itself (UTF-8, or wide text behind an FF FE mark, as
// the tree reads it) and, unlike the wide form, gives an empty text for an
// absent Session; hosts rely on both.
char* TGrids::GetSession(const char* xml) {
  std::unique_ptr<TTree> tree(new TTree());
  if (!tree->SetXml(xml) || !tree->Root) return nullptr;
  TNode* io = tree->Root->GetChildByName(L"IO", false);
  if (!io) return nullptr;
  return ToUTF8(io->GetString(L"Session"), 0, nullptr, false);
}

wchar_t* TGrids::GetGridSession(int index) {
  // The index comes from a host and is bounded even so.
  if (index < 0) return nullptr;
  wchar_t* session = nullptr;
  TableLock.EnterRead();
  if (index < Capacity && Table[index]) session = Table[index]->CopySessionText();
  TableLock.LeaveRead();
  return session;
}

char* TGrids::GetGridSessionA(int index) { return Narrow(GetGridSession(index)); }

// ---- TGrids: locale ----

int TGrids::SetLocale(int index, const char* name) {
  const unsigned long long* table = nullptr;
  if (name && *name) {
    table = FindLocaleTable();
    if (!table) table = BuildLocaleTable(name);
    if (!table) return -2;
  }
  THeld held(*this, Get(index));
  if (!held.Grid) return -1;
  held.Grid->LocaleTable = table;
  return 0;
}

const unsigned long long* TGrids::FindLocaleTable() {
  TableLock.EnterRead();
  auto table = (const unsigned long long*)LocaleTables.GetValue(LocaleKey, 0);
  TableLock.LeaveRead();
  return table;
}

// Null when setlocale refuses the name. The process keeps the new locale.
const unsigned long long* TGrids::BuildLocaleTable(const char* name) {
  TableLock.EnterWrite();
  // Another thread may have built it since we looked; a second build would
  // free the table that grids already point at.
  auto table = (const unsigned long long*)LocaleTables.GetValue(LocaleKey, 0);
  if (!table && setlocale(LC_ALL, name)) table = StoreCollation();
  TableLock.LeaveWrite();
  return table;
}

// Builds the table by the locale just set and enters it; the caller holds the
// table lock for writing.
const unsigned long long* TGrids::StoreCollation() {
  const size_t bytes = 65536 * sizeof(unsigned long long);
  unsigned long long* built = (unsigned long long*)malloc(bytes);
  if (!built) return nullptr;
  FillCollation(built);
  // Only asks: the locale set above stays in force.
  setlocale(LC_ALL, nullptr);
  int entry = LocaleTables.Get(LocaleKey, 1);
  LocaleTables.SetValue(entry, built, (int)bytes);
  free(built);
  return (const unsigned long long*)LocaleTables.GetValue(entry);
}

// ---- TGrids: operations of one grid ----

template <class R, class F> R TGrids::Forward(int index, R none, F call) {
  THeld held(*this, Get(index));
  if (!held.Grid) return none;
  R result = call(held.Grid);
  held.Grid->Stamp();
  return result;
}

wchar_t* TGrids::GetBody(int index, const wchar_t* xml, int* outLength) {
  return Forward(index, (wchar_t*)nullptr, [&](TGrid* grid) { return grid->GetBody(xml, outLength); });
}

wchar_t* TGrids::GetPage(int index, const wchar_t* xml, int* outLength) {
  return Forward(index, (wchar_t*)nullptr, [&](TGrid* grid) { return grid->GetPage(xml, outLength); });
}

wchar_t* TGrids::GetExport(int index, const wchar_t* xml, int* outLength) {
  return Forward(index, (wchar_t*)nullptr, [&](TGrid* grid) { return grid->GetExport(xml, outLength); });
}

wchar_t* TGrids::GetCells(int index, const wchar_t* rowId, const wchar_t* column, int flags, const wchar_t* format,
                          int* outLength) {
  return Forward(index, (wchar_t*)nullptr,
                 [&](TGrid* grid) { return grid->GetCells(rowId, column, flags, format, outLength); });
}

int TGrids::SaveExportXlsx(int index, const wchar_t* xml, const wchar_t* path) {
  return Forward(index, -1, [&](TGrid* grid) { return grid->SaveExportXlsx(xml, path); });
}

int TGrids::Save(int index, const wchar_t* xml, int flags) {
  return Forward(index, -1, [&](TGrid* grid) { return grid->Save(xml, flags); });
}

int TGrids::SaveToFile(int index, const wchar_t* fileName, int flags) {
  return Forward(index, -1, [&](TGrid* grid) { return grid->SaveToFile(fileName, flags); });
}

wchar_t* TGrids::GetGridData(int index, int* outLength) {
  return Forward(index, (wchar_t*)nullptr, [&](TGrid* grid) { return grid->SaveToData(outLength); });
}

wchar_t* TGrids::GetChanges(int index, int flags) {
  return Forward(index, (wchar_t*)nullptr, [&](TGrid* grid) {
    grid->Stamp();
    return grid->GetChanges(flags);
  });
}

// Deliberately not stamped: asking for ids doesn't count as using the grid.
wchar_t* TGrids::GetLastId(int index) {
  THeld held(*this, Get(index));
  if (!held.Grid) return nullptr;
  TIds ids;
  return CopyText(held.Grid->GetLastId(&ids));
}

// ---- TGrids: 8-bit twins ----
// Each widens its UTF-8 arguments for the call (TWideArg) and hands a text
// result back as UTF-8 (Narrow); the length out is that of the UTF-8 text.

int TGrids::CreateGrid(const char* doc1, const char* doc2, const char* doc3, const char* doc4, const char* doc5,
                       const char* doc6) {
  return CreateGrid(TWideArg(doc1), TWideArg(doc2), TWideArg(doc3), TWideArg(doc4), TWideArg(doc5),
                    TWideArg(doc6));
}

int TGrids::UpdateGrid(int index, const char* xml) { return UpdateGrid(index, TWideArg(xml)); }
int TGrids::FindGrid(const char* xml) { return FindGrid(TWideArg(xml)); }

int TGrids::FindGrids(int* out, int max, const char* xml, int idleSeconds) {
  return FindGrids(out, max, TWideArg(xml), idleSeconds);
}

char* TGrids::GetBody(int index, const char* xml, int* outLength) {
  return Narrow(GetBody(index, TWideArg(xml), nullptr), outLength);
}

char* TGrids::GetPage(int index, const char* xml, int* outLength) {
  return Narrow(GetPage(index, TWideArg(xml), nullptr), outLength);
}

char* TGrids::GetExport(int index, const char* xml, int* outLength) {
  return Narrow(GetExport(index, TWideArg(xml), nullptr), outLength);
}

char* TGrids::GetCells(int index, const char* rowId, const char* column, int flags, const char* format,
                       int* outLength) {
  return Narrow(GetCells(index, TWideArg(rowId), TWideArg(column), flags, TWideArg(format), nullptr), outLength);
}

int TGrids::SaveExportXlsx(int index, const char* xml, const char* path) {
  return SaveExportXlsx(index, TWideArg(xml), TWideArg(path));
}

int TGrids::Save(int index, const char* xml, int flags) { return Save(index, TWideArg(xml), flags); }

int TGrids::SaveToFile(int index, const char* fileName, int flags) {
  return SaveToFile(index, TWideArg(fileName), flags);
}

char* TGrids::GetGridDataA(int index, int* outLength) { return Narrow(GetGridData(index, nullptr), outLength); }
char* TGrids::GetChangesA(int index, int flags) { return Narrow(GetChanges(index, flags)); }
char* TGrids::GetLastIdA(int index) { return Narrow(GetLastId(index)); }
