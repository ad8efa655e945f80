// Shared by the tree tests: a fresh tree, and nodes in their text and room forms.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tree/Data.h"
#include "tree/Node.h"
#include "tree/Tree.h"
#include "tree/Xml.h"

class TreeTest : public ::testing::Test {
protected:
  void SetUp() override { TData::Initialize(); }
  bool Load(const std::wstring& text) { return tree.SetXml(text.c_str()) != nullptr; }
  // The node written out; the length reported must match the text.
  static std::wstring Xml(TNode* node, int flags = 0) {
    int length = -1;
    wchar_t* text = static_cast<TNodeXml*>(node)->GetXml(&length, L"", L"", flags);
    if (!text) return L"<null>";
    std::wstring s(text);
    EXPECT_EQ(length, static_cast<int>(s.size()));
    free(text);
    return s;
  }
  // The record's room as "Used/Capacity/SlotCount/SlotWidth".
  static std::string Room(TNode* n) {
    return std::to_string(n->Used) + "/" + std::to_string(n->Capacity) + "/" +
           std::to_string(n->SlotCount) + "/" + std::to_string(n->SlotWidth);
  }

  TTree tree;
};
