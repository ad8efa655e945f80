// TGridLoad: the root of the grid chain. Holds the fields every level reads,
// reads the documents into one tree (Load) and turns that raw tree into the
// grid's working form once, at creation (Update). It reaches the higher levels
// only through the seven virtual operations below, in this slot order.
#pragma once
#include "tree/Hashtable.h"
#include "tree/Node.h"
#include "tree/Tree.h"

class TGridLoad {
public:
  TGridLoad();
  ~TGridLoad();
  TGridLoad(const TGridLoad&) = delete;
  TGridLoad& operator=(const TGridLoad&) = delete;

  // Documents are texts (starting with '<' or '&' after blanks) or file
  // names; null and empty ones are skipped. 0, or the first failure code.
  int Load(const wchar_t** documents, int count);
  void Update();
  void UpdateRow(TNode* row, int defIndex, int cdefIndex);

  virtual void RemovePages() = 0;
  virtual void CopySession() = 0;
  virtual void InitCalc() = 0;
  virtual void InitGroup() = 0;
  virtual bool UpdateSort() = 0;
  virtual bool UpdateFilter() = 0;
  virtual bool UpdateGroup() = 0;

  TTree* Tree;
  TNodetable Cols;
  TNodetable Defs;
  TNode* Cfg;
  TNode* Body;
  TNode* IO;
  TNodeList FixedRows;
  TNodeList FilterRows;
  TNodeList SolidRows;
  bool ServerPaging;
  bool ServerChildPaging;
  const unsigned long long* LocaleTable;
};
