// TGridUpdate: what the browser sends back: settings merged into the tree
// (AddCfg), row changes (Save), the id generator and the log of changes.
#pragma once
#include "grid/Pages.h"

// State of the id generator for one operation; lives on the caller's stack.
struct TIds {
  TIds() : Ready(false) {}
  int Order[256];
  const wchar_t* IdChars;
  int DigitCount;
  const wchar_t* IdPrefix;
  int PrefixLength;
  const wchar_t* IdPostfix;
  int PostfixLength;
  wchar_t LastId[256];
  bool NumberId;
  bool Ready;
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
  const wchar_t* GetLastId(TIds* ids);
  const wchar_t* SetId(TIds* ids, TNode* row, bool recursive);
  TNode* AllocChanges();
  void ClearChanges();

  TNode* Changes;
};
