#include "grid/Pages.h"

void TGridPages::RemovePages() {}
