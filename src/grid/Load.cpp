#include "grid/Load.h"

TGridLoad::TGridLoad()
    : Tree(new TTree()), Cols(1023), Defs(1023), Cfg(nullptr), Body(nullptr), IO(nullptr), ServerPaging(false),
      ServerChildPaging(false), LocaleTable(nullptr) {}

TGridLoad::~TGridLoad() { delete Tree; }

int TGridLoad::Load(const wchar_t**, int) { return -1; }
void TGridLoad::Update() {}
void TGridLoad::UpdateRow(TNode*, int, int) {}
