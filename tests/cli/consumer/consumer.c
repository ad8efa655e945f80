/* A program of a host's own, built against an installed copy of the library:
 * loads a grid from text, applies a change and checks the cell. */
#include <stdio.h>
#include <string.h>

#include <sarvendo.h>

int main(void) {
  int grid = CreateGridA("<Grid><Cols><C Name='A' Type='Int'/></Cols><Body><B><I id='r' A='1'/></B></Body></Grid>",
                         NULL, NULL, NULL, NULL, NULL);
  if (grid < 0 || SaveA(grid, "<Grid><Changes><I id='r' A='41'/></Changes></Grid>") < 0) return 1;
  char* cell = GetCellsA(grid, "r", 0, "A", NULL);
  int ok = cell && strcmp(cell, "41") == 0;
  printf("cell %s\n", cell ? cell : "(none)");
  FreeStringA(cell);
  DeleteGrid(grid);
  return ok ? 0 : 1;
}
