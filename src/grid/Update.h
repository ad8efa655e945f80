// TGridUpdate: what the browser sends back: settings merged into the tree
// (AddCfg), row changes (Save), the id generator and the log of changes.
//
// AddCfg parses a request into a temporary tree before anything is merged, so
// a request that does not parse changes nothing. Ids continue the grid's
// sequence: IdPrefix, digits from IdChars, IdPostfix, all read from Cfg.
#pragma once
#include <string>
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
  // Applies a change document; count of changes or a negative code.
  int Save(const wchar_t* xml, int flags);
  // The highest id of the grid, or the empty text without IdChars.
  const wchar_t* GetLastId(TIds* ids);
  // Gives row (and with recursive all its descendants, depth first) the
  // next ids; returns the last one given.
  const wchar_t* SetId(TIds* ids, TNode* row, bool recursive);
  TNode* AllocChanges();
  void ClearChanges();

  TNode* Changes;

private:
  void AddFilters(TNode* filters);
  void AddSection(TNode* section);
  void ReadTimeZone();
  void ReadIdSettings(TIds* ids);
  void FindLastId(TIds* ids);
  int SkippedIds();
  bool IsHigherId(const TIds* ids, const wchar_t* id, int length) const;
  bool IsIdText(const TIds* ids, const wchar_t* id) const;
  void NextId(TIds* ids);
};
