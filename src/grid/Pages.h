// TGridPages: cuts the body's root rows into pages and names them.
//
// A page is a B child of Body; the root rows are the pages' children. The
// pages are only a partition of one ordered list, so joining them back
// (RemovePages) is the exact opposite of cutting (CreatePages), and both only
// relink rows. Page names are what the pager shows: Name<x><y>, with y the
// sort column and x 0 for a value common to the page's first and last row,
// 1 for the first row's name and 2 for the last row's.
#pragma once
#include "grid/Calc.h"

class TGridPages : public TGridCalc {
public:
  // Longest page name stored; longer ones are cut silently.
  static const int MaxPageName = 64;

  void RemovePages() override;
  void CreatePages();
  // The same for one run of the body pipeline. rows: the root rows in order,
  // listed here once (several pages followed at once), walked by the later
  // stages instead of the links; CreatePages notes where each page starts.
  void RemovePages(std::vector<TNode*>& rows);
  void CreatePages(const std::vector<TNode*>& rows, std::vector<size_t>& starts);
  // CalcPages with the rows of the next pages read ahead.
  void CalcPages(const std::vector<TNode*>& rows, const std::vector<size_t>& starts);
  void SetPageNames();
  // Up to three names for one edge of a page: side 0 its first row, 1 its last.
  // The names lie in the tree's scratch ring.
  void GetPageNames(TNode* page, const wchar_t** names, int side, int* valueIndexes);
  // The row's <column>PageNameValue, or its formatted value of the column.
  const wchar_t* GetPageString(TNode* row, int col, int valueIndex);

private:
  // Moves the rows of page behind last, the last row of first; returns the
  // new last row.
  TNode* JoinPage(TNode* first, TNode* last, TNode* page, bool reparent = true);
  // Joins the pages after the first one into it; their rows' Parent must
  // already be the first page when reparent is false.
  void JoinPages(bool reparent);
  // Ends page before row and opens the next page with row.
  TNode* StartPage(TNode* page, TNode* row);
  // Index of <column>PageNameValue, not created; -1 if there is none.
  int PageNameValueIndex(int col);
  // PageLength 1: Name00 of each page from its first row. False when no
  // column names the pages.
  bool NameSinglePages(int nameIndexes[3][3], int* valueIndexes);
  void ClearNames(TNode* page, int nameIndexes[3][3]);
  void NamePage(TNode* page, int nameIndexes[3][3], int* valueIndexes);
  // Text, Lines and Enum columns get names shortened to what tells them apart.
  bool IsShortenedType(int col);
};
