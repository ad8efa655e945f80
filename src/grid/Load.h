// TGridLoad: the root of the grid chain. Holds the fields every level reads,
// reads the documents into one tree (Load) and turns that raw tree into the
// grid's working form once, at creation (Update). It reaches the higher levels
// only through the seven virtual operations below, in this slot order.
//
// After Update: Cfg, Body and IO are set, Body has at least one page, the
// defaults C and R exist, every other default is flat (its base chain merged
// in), and every row of Body, FilterRows and FixedRows has a base. All
// elements belong to Tree; the tables and lists only point at them.
#pragma once
#include <string>
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
  // Gives the row and its subtree their defaults (Def, else the parent's
  // CDef, else R). The arguments are the indexes of Def and CDef.
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

protected:
  // Paging modes from Cfg; also refreshed by each merged request.
  void ReadPaging();
  // Merges source's attributes over target's. With destroySource the source
  // is destroyed afterwards. A merge that changes target's id moves its entry
  // in the id table, so that no entry is left pointing at a node that no
  // longer carries its id.
  void MergeOver(TNode* target, TNode* source, bool destroySource);

private:
  int LoadDocument(const wchar_t* document);

  // The section walk: each root child by its name.
  void WalkSections(TNodetable& sections);
  void MergeTableSection(TNode* section, const std::wstring& name, TNodetable& sections);
  void SortRowSection(TNode* section, int number, TNodetable& sections);
  void PlaceRow(TNode* row, TNode* section, int number, TNodetable& sections);
  void MergeOrdinarySection(TNode* section, const std::wstring& name, TNodetable& sections);
  void KeepOrDropSection(TNode* section, const std::wstring& name, TNodetable& sections);

  TNode* Section(TNodetable& sections, const wchar_t* name);
  TNode* TakeSection(TNodetable& sections, const wchar_t* name, bool first);
  void AddToolbar(TNode* toolbar);
  void AddHeader(TNode* header);
  void ReadLang(TNode* lang);
  TNode* TakeDefault(TNodetable& sections, const wchar_t* name);
  void CompleteColumns(TNode* columnDefault);
  void CopyCellAttributes(TNode* rowDefault);
  void CopyCellAttribute(TNode* rowDefault, TNode* column, const std::wstring& columnName, int index);
  void LinkDefaults(TNode* columnDefault, TNode* rowDefault);
  bool LeadsTo(TNode* from, TNode* target) const;
  void FlattenDefaults();
  void PrepareFirstPage(TNode* header, TNode* rootSection);
  void ApplyPagesCreated();
  void WireBody(int cdefIndex);
  void MergeFilterRows();
  void WireFixedRows(int cdefIndex);
  void WireList(TNodeList& list, TNode* fixed, int cdefIndex);
  void ReadTreeSettings();
  TNode* DefaultOf(TNode* row, int defIndex, int cdefIndex);
  void Rekey(TNode* node, const std::wstring& oldId);
};
