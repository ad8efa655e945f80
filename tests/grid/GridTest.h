// A grid that records the calls its load and pipeline make upward, and fixtures for grids and lone rows.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "grid/Export.h"
#include "tree/Data.h"

class TTestGrid final : public TGridExport {
public:
  void CopySession() override { Session = IO ? IO->GetString(L"Session") : L"", Calls += L"CopySession,"; }
  void RemovePages() override { Calls += L"RemovePages,", TGridExport::RemovePages(); }
  void InitCalc() override { Calls += L"InitCalc,", TGridExport::InitCalc(); }
  void InitGroup() override { Calls += L"InitGroup,", TGridExport::InitGroup(); }
  bool UpdateSort() override { return Calls += L"UpdateSort,", TGridExport::UpdateSort(); }
  bool UpdateFilter() override { return Calls += L"UpdateFilter,", TGridExport::UpdateFilter(); }
  bool UpdateGroup() override { return Calls += L"UpdateGroup,", TGridExport::UpdateGroup(); }
  std::wstring Session, Calls;
};

class GridTest : public ::testing::Test {
protected:
  void SetUp() override { TData::Initialize(); }
  // A new grid from these documents, brought to its working form.
  TTestGrid* Create(std::initializer_list<std::wstring> documents) {
    grid.reset(new TTestGrid());
    std::vector<const wchar_t*> list;
    for (const std::wstring& d : documents) list.push_back(d.c_str());
    EXPECT_EQ(grid->Load(list.data(), (int)list.size()), 0);
    grid->Update();
    return grid.get();
  }
  TTestGrid* Create(const std::wstring& document) { return Create({document}); }
  TNode* Row(const wchar_t* id) { return grid->Tree->GetElem(id); }
  static std::wstring Take(wchar_t* text) {
    std::wstring s = text ? text : L"<null>";
    free(text);
    return s;
  }
  static std::wstring Attr(TNode* node, const wchar_t* name) { return node->Has(name) ? node->GetString(name) : L"-"; }
  static std::wstring Xml(TNode* node) { return Take(static_cast<TNodeXml*>(node)->GetXml(nullptr, L"", L"", 3)); }
  // Ids (or names) of a node's children, comma-joined; the links are checked on the way.
  static std::wstring Kids(TNode* parent, bool names = false) {
    std::wstring s;
    TNode* previous = nullptr;
    for (TNode* child = parent->FirstChild; child; previous = child, child = child->Next) {
      EXPECT_TRUE(child->Prev == previous && child->Parent == parent);
      s += (previous ? L"," : L"") + std::wstring(names ? child->GetName() : child->GetId());
    }
    EXPECT_EQ(parent->LastChild, previous);
    return s;
  }
  // Row ids page by page: "r0,r1|r2".
  std::wstring Pages() {
    std::wstring s;
    Kids(grid->Body, true);
    for (TNode* page = grid->Body->FirstChild; page; page = page->Next)
      s += (page == grid->Body->FirstChild ? L"" : L"|") + Kids(page);
    return s;
  }
  TNode* Page(int n) { return grid->Body->GetChild(n); }
  std::unique_ptr<TTestGrid> grid;
};

// A row whose column attributes live on its default, as after a load.
class CellTest : public ::testing::Test {
protected:
  void SetUp() override {
    TData::Initialize();
    def = tree.CreateElement(L"R");
    row = tree.CreateElement(L"I");
    row->Base = def;
  }
  void TearDown() override {
    tree.Format = nullptr;
    for (TNode* n : {row, def, format}) if (n) TNode::Delete(n);
  }
  TNode* Format() { return tree.Format = format ? format : (format = tree.CreateElement(L"Format")); }
  std::wstring Cell() { return row->GetStringFormat(L"C", -1); }
  // Sets (or with a null value removes) attributes of a node.
  static void Set(TNode* node, std::initializer_list<std::pair<const wchar_t*, const wchar_t*>> attributes) {
    for (auto& a : attributes) a.second ? node->SetString(a.first, a.second) : node->SetNull(a.first);
  }
  // A heap copy of exactly the text's size: a read past its end is caught.
  static std::vector<wchar_t> Exact(const std::wstring& s) { return {s.c_str(), s.c_str() + s.size() + 1}; }
  TTree tree;
  TNode *def = nullptr, *row = nullptr, *format = nullptr;
};
