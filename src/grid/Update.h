// TGridUpdate: what the browser sends back: settings merged into the tree
// (AddCfg), row changes (Save), the id generator and the log of changes.
//
// AddCfg parses a request into a temporary tree before anything is merged, so
// a request that does not parse changes nothing. Ids continue the grid's
// sequence: IdPrefix, digits from IdChars, IdPostfix, all read from Cfg.
//
// Save applies the changes one by one with no rollback; it recalculates as
// the rows' Recalc asks, and leaves sorting, filtering and grouping to the
// next GetBody through Body's UpdateState. Only rows of the body (under a
// page) are ever deleted or moved: the layout's elements, which the grid's
// tables and lists point at, take value changes only.
#pragma once
#include <string>
#include <unordered_map>
#include <vector>
#include "grid/Pages.h"

// State of the id generator for one operation; lives on the caller's stack.
struct TIds {
  static const int MaxIdLength = 255;  // longer ids are never taken as LastId

  TIds() : Ready(false) {}
  TIds(const TIds&) = delete;
  TIds& operator=(const TIds&) = delete;

  int Order[256];  // digit value by the low byte of a character; -1 none
  const wchar_t* IdChars;
  int DigitCount;
  const wchar_t* IdPrefix;
  int PrefixLength;
  const wchar_t* IdPostfix;
  int PostfixLength;
  wchar_t LastId[MaxIdLength + 1];
  bool NumberId;
  bool Ready;
  // Own copies of IdChars, IdPrefix and IdPostfix: text read from a record
  // may live in the scratch ring, which the operation comes round.
  std::wstring Texts[3];
};

class TGridUpdate : public TGridPages {
public:
  TGridUpdate();
  ~TGridUpdate();
  // Null or empty text: true, nothing done; false when the text does not parse.
  bool AddCfg(const wchar_t* xml);
  void AddCfg(TTree* tree);
  int UpdateGrid(const wchar_t* xml);
  // More changes than this are calculated in one pass at the end of Save.
  static const int MaxRowRecalcs = 10;

  // Applies a change document: the count of changes without id, or -3 when
  // it does not parse. Flag 1 logs the changes, flag 2 the replaced ids.
  int Save(const wchar_t* xml, int flags);
  // Gives the row its default: its Def, else its parent's CDef, else R.
  void SetDef(TNode* row);
  // Copies the row's attribute name to its children as <name>CopyTo says.
  void CopyTo(TNode* row, const wchar_t* name);
  // The highest id of the grid, or the empty text without IdChars.
  const wchar_t* GetLastId(TIds* ids);
  // Gives row (and with recursive all its descendants, depth first) the
  // next ids; returns the last one given.
  const wchar_t* SetId(TIds* ids, TNode* row, bool recursive);
  TNode* AllocChanges();
  void ClearChanges();

  TNode* Changes;

private:
  // Where the last search for the highest id stopped. The id table only ever
  // appends keys (a removed id keeps its key) for the tree's life, so a later
  // search with the same settings resumes behind the keys already seen.
  struct TLastIdScan {
    std::wstring Texts[3];  // IdChars, IdPrefix, IdPostfix searched with
    int Skipped = -1;       // section ids passed over; -1 nothing searched yet
    int Scanned = 0;        // keys seen
    int Found = -1;         // entry of the highest id; -1 none
    int Longest = 0;        // its length, or the shortest possible id
  };

  // What one Save carries from change to change.
  struct TSaveRun {
    TIds Ids;
    // Added rows that took copies of other rows' children, in order; a row
    // deleted later in the same Save is nulled through its position.
    std::vector<TNode*> Copied;
    std::unordered_map<TNode*, size_t> CopiedAt;
    bool FullRecalc = false;
    bool StructureChanged = false;
    int RootCount = 0;
    int WithoutId = 0;
  };

  void ReplaceCollisions(TNode* changes, TIds& ids, bool log);
  void LogReplacement(const std::wstring& old, const std::wstring& fresh);
  void ApplyChange(TSaveRun& run, TNode* change);
  int ReadRecalc(TSaveRun& run, TNode* row);
  void DeleteRow(TSaveRun& run, TNode* row, int recalc);
  void ForgetCopied(TSaveRun& run, TNode* row);
  void RecalcParent(TNode* parent, int recalc);
  void ChangeRow(TSaveRun& run, TNode* row, TNode* change, int recalc);
  void MoveRow(TSaveRun& run, TNode* row, TNode* change, bool added, int recalc);
  TNode* FindParent(TNode* change, TNode* row);
  TNode* FindPlace(TNode* change, TNode* parent, TNode*& next);
  void PlaceRow(TNode* row, TNode* parent, TNode* next, TNode* place, bool added);
  void CopyToAll(TNode* row, TNode* change);
  void CopyChildren(TSaveRun& run, TNode* row);
  void AddEditCols(TNode* row);
  std::wstring GroupColumnName(TNode* row);
  std::wstring LevelColumnName(int level);
  TNode* LastPage();
  // A row of the body: under a page, not a page itself.
  bool IsBodyRow(TNode* node) const;
  bool IsPage(TNode* node) const { return node && node->Parent == Body; }
  TNode* FindBodyRow(const wchar_t* id);
  void AddFilters(TNode* filters);
  void AddSection(TNode* section);
  void ReadTimeZone();
  void ReadIdSettings(TIds* ids);
  void FindLastId(TIds* ids);
  // Resumes LastIdScan when the settings and the sections it passed over are
  // unchanged: fills ids->LastId and returns the first key still to see.
  int ResumeLastIdScan(TIds* ids, int skipped, int count, int& longest);
  int SkippedIds();
  bool IsHigherId(const TIds* ids, const wchar_t* id, int length) const;
  bool IsIdText(const TIds* ids, const wchar_t* id) const;
  void NextId(TIds* ids);

  TLastIdScan LastIdScan;
};
