/* Writes the workbook export of a small grid to a file, for the spreadsheet
   check: two header rows with spanned captions, rows grouped by G, sorted by
   N, one filtered away, one hidden, one hidden column, a closed tree row. */
#include <stdio.h>

#include "sarvendo.h"

static const char* Layout =
    "<Grid><Cfg Paging='3' PageLength='100' MainCol='T' Sorting='1'/>"
    "<Def><D Name='R' CanFilter='1' CanGroup='1'/><D Name='Group' Group='1'/></Def>"
    "<Cols><C Name='G' Type='Text' Width='50'/><C Name='T' Type='Text' Width='120'/>"
    "<C Name='N' Type='Int' Format='#,##0' Width='60'/><C Name='F' Type='Float' Format='#,##0.00' Width='60'/>"
    "<C Name='D' Type='Date' Format='yyyy-MM-dd' Width='80'/><C Name='X' Type='Text' Visible='0'/>"
    "<C Name='B' Type='Bool'/><C Name='S' Type='Text' Width='60'/><C Name='L' Type='Link'/></Cols>"
    "<Header Rows='2' Mid00='Names' Mid00Span='2' Mid01='Values' Mid01Span='4'/>"
    "<Head><Filter id='Flt'/></Head>"
    "<Body><B>"
    "<I G='two' T='third' N='3000' F='-0.5' D='86400000' X='x' B='1' S='007' L='|http://a.example/x|A'/>"
    "<I G='one' T='a&lt;b &amp; c &quot;q&quot; \xc3\xa9\xe2\x82\xac' N='10' F='12.25' D='1700000000000' S='1.2.3'>"
    "<I T='child' N='1' Expanded='0'><I T='grandchild' N='2'/></I></I>"
    "<I G='one' T='hidden' N='15' F='1' Visible='0'/>"
    "<I G='two' T='filtered' N='99' F='1'/>"
    "<I G='one' T='second' N='20' F='1234.5' S='12' B='1' L='|http://a.example/x|A'/>"
    "</B></Body></Grid>";

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  int grid = CreateGridA(Layout, NULL, NULL, NULL, NULL, NULL);
  if (grid < 0) return 3;
  /* Filter, group and sort run in the body request; the export takes the rows as they are then. */
  char* body = GetBodyA(grid, "<Grid><Cfg Sort='N' Group='G'/><Filters><I id='Flt' N='50' NFilter='3'/></Filters></Grid>");
  if (!body) return 4;
  FreeStringA(body);
  int result = SaveExportXlsxA(grid, "<Grid><Cols><C Name='G'/><C Name='T'/><C Name='N'/><C Name='F'/><C Name='D'/>"
                                     "<C Name='X'/><C Name='B'/><C Name='S'/><C Name='L'/></Cols></Grid>", argv[1]);
  DeleteGrid(grid);
  if (result == SARVENDO_UNAVAILABLE) return 77;
  return result == 0 ? 0 : 10 - result;
}
