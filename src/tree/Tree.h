// TTree: one XML document in memory: the root element, the name table, the id
// table, the scratch ring of short-lived texts, and the grid-wide settings that
// value conversion reads. Reading and writing documents: Xml.h.
#pragma once
#include <vector>
#include "tree/Store.h"
#include "tree/Hashtable.h"

class TNode;

class TTree {
public:
  static const int TmpSize = 16384;
  static const int TmpMargin = 128;

  explicit TTree(const wchar_t* rootName = nullptr);
  ~TTree();
  TTree(const TTree&) = delete;
  TTree& operator=(const TTree&) = delete;

  // Tree-level names get slot numbers in both spaces when created.
  int GetIndex(const wchar_t* name, int create) { return Names.GetIndex(name, create ? 3 : 0); }
  int GetIndex(const wchar_t* n1, const wchar_t* n2, int create) { return Names.GetIndex(n1, n2, create ? 3 : 0); }
  int GetSpecIndex(const wchar_t* name, int mode) { return Names.GetIndex(name, mode); }
  int GetSpecIndex(const wchar_t* n1, const wchar_t* n2, int mode) { return Names.GetIndex(n1, n2, mode); }
  const wchar_t* GetName(int index, int mode) const { return Names.GetName(index, mode); }
  int GetIdIndex(const wchar_t* text, int create) { return Ids.Get(text, create); }

  TNode* CreateElement(const wchar_t* name);
  // A nameless element in the store's memory (the reader's children), or on
  // the heap when the store gives none.
  TNode* CreatePooledElement();
  TNode* GetElem(const wchar_t* id);
  TNode* GetRowById(const wchar_t* id) { return GetElem(id); }
  void RemoveId(const wchar_t* id) { Ids.Remove(id); }
  int GetIds(wchar_t**& keys) { keys = Ids.GetKeys(); return Ids.GetCount(); }

  // Scratch for length + 1 cells from the ring (see TData::GetTmp). A request
  // larger than the ring gets a block of its own, valid like ring scratch for
  // a few further such requests.
  wchar_t* GetTmp(int length);

  // Documents (Xml.cpp). The wide form returns non-null on success; the 8-bit
  // form takes UTF-8 or a buffer marked FF FE holding wide text.
  const wchar_t* SetXml(const wchar_t* text);
  const char* SetXml(const char* text);
  int LoadXml(const wchar_t* path);
  wchar_t* GetXml(int* length, int flags);
  char* GetXml(bool reversed, int* length, int flags);
  int SaveXml(const wchar_t* path, int encoding);

  // Declared first, so that it outlives every node of the tree.
  TStore Store;
  TIndextable Names;
  TNodetable Ids;
  wchar_t Tmp[TmpSize + TmpMargin];
  wchar_t* TmpEnd;
  wchar_t* TmpPos;
  TNode* Root;
  TNode* Format;
  int TimeZone;
  int Precision;
  bool Hirji;
  int IdIndex;
  int ExpandedIndex;
  int DefIndex;
  int AggChildrenIndex;
  int MaxChildrenOffline;

private:
  static const int BigTmpCount = 4;
  std::vector<wchar_t> BigTmp[BigTmpCount];
  int BigTmpNext = 0;
  const wchar_t* AddDocument(TNode* element, const wchar_t* text);
  // SetXml of 8-bit text; discard as for TNodeXml::SetXml.
  const char* SetXml(const char* text, bool discard);
  // Reads a whole file's text, which nothing else reads, as LoadXml reports it.
  int ReadLoaded(const char* text);
  // Makes a read element the root or merges it into the root; an element
  // that failed to read is deleted. Returns read.
  bool AttachDocument(TNode* element, bool read);
};
