<?php
// A page script that serves one grid to a browser through the extension:
//   php -d extension=build/php/sarvendo.so -S 127.0.0.1:8080 examples/php/index.php
// The browser posts its request document in the field "Data" and names the
// answer it wants with "Action" (Body, Page or Save). The grid lives in the
// server process, found again by its session.
const SESSION = "example";

function layout(): string {
  return "<Grid><IO Session='" . SESSION . "'/><Cfg id='Example' Paging='3' PageLength='20'/>"
    . "<Cols><C Name='Item' Type='Text'/><C Name='Amount' Type='Int'/></Cols>"
    . "<Body><B><I id='1' Item='Pen' Amount='3'/><I id='2' Item='Ink' Amount='12'/></B></Body></Grid>";
}

// The grid of this session, created on first use.
function gridIndex(): int {
  $index = SVFindGrid("<Grid><IO Session='" . SESSION . "'/></Grid>");
  return $index >= 0 ? $index : SVCreateGrid(layout(), "", "", "", "", "");
}

$request = $_POST["Data"] ?? "<Grid/>";
$index = gridIndex();
header("Content-Type: text/xml; charset=utf-8");
switch ($_REQUEST["Action"] ?? "Body") {
  case "Page":
    echo SVGetPage($index, $request) ?? "<Grid><IO Result='-1'/></Grid>";
    break;
  case "Save":
    $result = SVSave($index, $request);
    echo "<Grid><IO Result='" . ($result < 0 ? $result : 0) . "'/></Grid>";
    break;
  default:
    echo SVGetBody($index, $request) ?? "<Grid><IO Result='-1'/></Grid>";
}
