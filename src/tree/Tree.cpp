#include "tree/Tree.h"
#include <cstring>
#include <new>
#include "grid/Calc.h"

TTree::TTree(const wchar_t* rootName)
    : Store(), Names(8191), Ids(32767), TmpEnd(Tmp + TmpSize), TmpPos(Tmp), Root(nullptr), Format(nullptr), TimeZone(0),
      Precision(10000), Hirji(false), IdIndex(IIdIndex), ExpandedIndex(IExpandedIndex), DefIndex(IDefIndex),
      AggChildrenIndex(-1), MaxChildrenOffline(3) {
  Tmp[0] = 0;
  // A million rows would make chains of thousands on the fixed buckets.
  Ids.AllowGrowth();
  static const wchar_t* const fixed[] = {L"#Name", L"#Type", L"#Text", L"id", L"Expanded", L"Def"};
  for (const wchar_t* name : fixed) Names.GetIndex(name, 3);
  if (rootName) Root = CreateElement(rootName);
}

TTree::~TTree() {
  // With the id table empty, a large tree falls apart without hash work.
  Ids.Clear();
  if (Root) TNode::Delete(Root);
}

TNode* TTree::CreateElement(const wchar_t* name) {
  TNode* node = new TNodeCalc();
  node->Tree = this;
  if (name) node->SetString(INameIndex, name);
  return node;
}

TNode* TTree::CreatePooledElement() {
  void* memory = Store.TakeNode(sizeof(TNodeCalc));
  if (!memory) return CreateElement(nullptr);
  memset(memory, 0, sizeof(TNodeCalc));
  TNode* node = ::new (memory) TNodeCalc();
  node->Pooled = PooledNode;
  node->Tree = this;
  return node;
}

TNode* TTree::GetElem(const wchar_t* id) {
  if (!id || !*id) return nullptr;
  return Ids.GetNode(Ids.Get(id, 0));
}

wchar_t* TTree::GetTmp(int length) {
  if (length < 0) length = 0;
  if (length + 1 > TmpSize + TmpMargin) {
    // Beyond the ring: blocks of their own, taken in turn, so that a text
    // held across a few calls is not freed by the next large request.
    std::vector<wchar_t>& block = BigTmp[BigTmpNext++ % BigTmpCount];
    if ((int)block.size() < length + 1) block.assign(length + 1, 0);
    return block.data();
  }
  wchar_t* result = TmpPos;
  if ((TmpPos - Tmp) + length + 1 < TmpSize) {
    TmpPos += length + 1;
    return result;
  }
  // The wrapping call hands out the ring's start without advancing.
  TmpPos = Tmp;
  return Tmp;
}
