<?php
// The PHP extension in the php CLI: each SV function, texts both ways,
// results for grids that don't exist and for arguments that can't be
// parsed, and many grids told apart by session.
$failures = 0;

function check(string $what, $got, array $allowed): void {
  global $failures;
  foreach ($allowed as $expected) if ($got === $expected) return;
  $failures++;
  fwrite(STDERR, "FAIL $what: got " . var_export($got, true) . "\n");
}

function contains(string $what, $got, string $part): void {
  check($what, is_string($got) && strpos($got, $part) !== false, [true]);
  if (!is_string($got) || strpos($got, $part) === false) fwrite(STDERR, "  ($part)\n");
}

function grid(string $session, string $value): string {
  return "<Grid><IO Session='$session'/><Cfg Kind='php'/><Cols><C Name='A' Type='Text'/></Cols>"
    . "<Body><B><I id='r1' A='$value'/></B></Body></Grid>";
}

SVClear();
$text = "é€ ü";  // two- and three-byte characters; the engine stops at three
$g = SVCreateGrid(grid("first", $text), "", "", "", "", "");
check("create", $g, [0]);

// [what, result, allowed results]; operations still being built elsewhere
// allow today's result and the one they will give.
$scratch = sys_get_temp_dir() . "/sarvendo-php-" . getmypid() . ".xml";
$cases = [
  ["session", SVGetGridSession($g), ["first"]],
  ["find", SVFindGrid("<Grid><IO Session='first'/></Grid>"), [$g]],
  ["find none", SVFindGrid("<Grid><IO Session='none'/></Grid>"), [-2]],
  ["find bad", SVFindGrid("<Grid"), [-3]],
  ["find grids", SVFindGridsStr(0, "<Grid><Cfg Kind='php'/></Grid>", 0, 0), ["0"]],
  ["find grids none", SVFindGridsStr(0, "<Grid><Cfg Kind='no'/></Grid>", 0, 0), [null]],
  ["document session", SVGetSession("<Grid><IO Session='$text'/></Grid>"), [$text]],
  ["document without session", SVGetSession("<Grid><IO/></Grid>"), [""]],
  ["cell, UTF-8 both ways", SVGetCells($g, "r1", "A", 0, ""), [$text]],
  ["last id", SVGetLastId($g), [""]],
  ["update", SVUpdateGrid($g, "<Grid><Cfg Kind='php'/></Grid>"), [0]],
  ["update bad", SVUpdateGrid($g, "<Grid"), [-3]],
  ["locale", SVSetGridLocale($g, ""), [0]],
  ["last error", SVLastError(), [null]],
  ["debug", SVSetDebug(1, "x"), [-1]],
  ["free string", SVFreeString("not the engine's"), [null]],
  ["read lock", [SVEnterRead(), SVLeaveRead(), SVEnterWrite(), SVLeaveWrite()], [[null, null, null, null]]],
  ["save", SVSave($g, "<Grid><Changes><I id='r1' B='2' Changed='1'/><I A='3'/></Changes></Grid>"), [1]],
  ["save ex", SVSaveEx($g, "<Grid><Changes><I id='r1' B='4'/></Changes></Grid>", 1), [0]],
  ["save to file", SVSaveToFile($g, $scratch, 0), [0]],
  // 0 with the workbook library, -5 without it.
  ["workbook", SVSaveExportXlsx($g, "<Grid/>", $scratch . ".xlsx"), [0, -5]],
  ["workbook, no folder", SVSaveExportXlsx($g, "<Grid/>", "/nonexistent/x.xlsx"), [-4, -5]],
  ["workbook, no grid", SVSaveExportXlsx(77, "<Grid/>", $scratch . ".xlsx"), [-1]],
  ["changes", strpos(SVGetChanges($g, 1), "<I id=\"r1\" B=\"4\"") !== false, [true]],
  ["changes emptied", SVGetChanges($g, 0), [null]],
  ["export", is_null(SVGetExport($g, "<Grid/>")) || is_string(SVGetExport($g, "<Grid/>")), [true]],
  ["page", is_null(SVGetPage($g, "<Grid/>")) || is_string(SVGetPage($g, "<Grid/>")), [true]],
  // no grid
  ["body, no grid", SVGetBody(77, "<Grid/>"), [null]],
  ["page, no grid", SVGetPage(-1, "<Grid/>"), [null]],
  ["data, no grid", SVGetData(77), [null]],
  ["cells, no grid", SVGetCells(77, "r1", "A", 0, ""), [null]],
  ["changes, no grid", SVGetChanges(77, 0), [null]],
  ["export, no grid", SVGetExport(77, "<Grid/>"), [null]],
  ["last id, no grid", SVGetLastId(77), [null]],
  ["session, no grid", SVGetGridSession(77), [null]],
  ["update, no grid", SVUpdateGrid(77, "<Grid/>"), [-1]],
  ["save, no grid", SVSave(77, "<Grid/>"), [-1]],
  ["save to file, no grid", SVSaveToFile(77, $scratch, 0), [-1]],
  ["locale, no grid", SVSetGridLocale(77, ""), [-1]],
  ["delete, no grid", SVDeleteGrid(77), [-1]],
  // arguments that can't be parsed: -15, never an exception
  ["body, array", SVGetBody($g, []), [-15]],
  ["body, too few", SVGetBody($g), [-15]],
  ["body, too many", SVGetBody($g, "<Grid/>", 1), [-15]],
  ["data, text index", SVGetData("zero"), [-15]],
  ["cells, order", SVGetCells($g, "r1", 0, "A"), [-15]],
  ["create, five", SVCreateGrid("<Grid/>", "", "", "", ""), [-15]],
  ["session, object", SVGetSession(new stdClass()), [-15]],
  ["free string, none", SVFreeString(), [-15]],
];
foreach ($cases as [$what, $got, $allowed]) check($what, $got, $allowed);
@unlink($scratch);
@unlink($scratch . ".xlsx");

contains("body", SVGetBody($g, "<Grid/>"), "<I id=\"r1\" A=\"$text\"");
contains("data", SVGetData($g), "Session=\"first\"");

// Many grids in one script, each found again by its session.
$indexes = [];
for ($i = 0; $i < 40; $i++) $indexes[$i] = SVCreateGrid(grid("s$i", "v$i"), "", "", "", "", "");
check("indexes", $indexes, [range(1, 40)]);
foreach ($indexes as $i => $index) {
  check("found s$i", SVFindGrid("<Grid><IO Session='s$i'/></Grid>"), [$index]);
  check("cell of s$i", SVGetCells($index, "r1", "A", 0, ""), ["v$i"]);
}
check("delete", SVDeleteGrid(5), [0]);
check("found after delete", SVFindGrid("<Grid><IO Session='s4'/></Grid>"), [-2]);
check("slot reused", SVCreateGrid(grid("again", "x"), "", "", "", "", ""), [5]);
check("clear", SVClear(), [null]);
check("cleared", SVGetGridSession(0), [null]);

echo $failures ? "$failures failures\n" : "all passed\n";
exit($failures ? 1 : 0);
