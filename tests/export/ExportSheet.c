/* Writes the export of a small grid to a file, for the spreadsheet check:
   rows sorted by N, one hidden and one filtered away. */
#include <stdio.h>
#include <string.h>

#include "sarvendo.h"

static const char* Layout =
    "<Grid><Cfg Paging='3' PageLength='100' MainCol='T' Sorting='1'/>"
    "<Def><D Name='R' CanFilter='1'/></Def>"
    "<Cols><C Name='T' Type='Text' Width='120'/><C Name='N' Type='Int' Width='60'/>"
    "<C Name='F' Type='Float' Width='60'/><C Name='D' Type='Date' Format='yyyy-MM-dd' Width='80'/>"
    "<C Name='S' Type='Text' Width='60'/></Cols>"
    "<Head><Filter id='Flt'/></Head>"
    "<Body><B>"
    "<I T='third' N='30' F='-0.5' D='86400000' S='1-2'/>"
    "<I T='a&lt;b &amp; c &quot;q&quot; \xc3\xa9\xe2\x82\xac' N='10' F='12.25' D='1700000000000' S='1.2.3'/>"
    "<I T='hidden' N='15' F='1' Visible='0'/>"
    "<I T='filtered' N='99' F='1'/>"
    "<I T='second' N='20' F='1234.5' S='12 apples'/>"
    "</B></Body></Grid>";

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  int grid = CreateGridA(Layout, NULL, NULL, NULL, NULL, NULL);
  if (grid < 0) return 3;
  /* The filter and sort run in the body request; the export takes the rows as they are then. */
  char* body = GetBodyA(grid, "<Grid><Cfg Sort='N'/><Filters><I id='Flt' N='50' NFilter='3'/></Filters></Grid>");
  if (!body) return 4;
  FreeStringA(body);
  char* text = GetExportA(grid, "<Grid><Cfg ExportType='strings indent'/><Cols><C Name='T'/><C Name='N'/>"
                                "<C Name='F'/><C Name='D'/><C Name='S'/></Cols></Grid>");
  if (!text) return 5;
  FILE* file = fopen(argv[1], "wb");
  if (!file) return 6;
  size_t length = strlen(text);
  int ok = fwrite(text, 1, length, file) == length;
  fclose(file);
  FreeStringA(text);
  DeleteGrid(grid);
  return ok ? 0 : 7;
}
