// The demo page: a grid served page by page by `sarvendo serve`. Every
// request is XML sent by POST; the server hands it to the engine and answers
// with the engine's text.
"use strict";

const state = { cols: [], header: {}, defs: {}, sort: [], group: "", filters: {}, pages: 0, page: 0, open: {} };
const $ = (id) => document.getElementById(id);
const esc = (text) => String(text).replace(/&/g, "&amp;").replace(/</g, "&lt;").replace(/"/g, "&quot;");
const parse = (text) => new DOMParser().parseFromString(text, "text/xml");

async function post(path, body) {
  const response = await fetch(path, { method: "POST", body });
  if (!response.ok) throw new Error(`${path}: ${response.status} ${await response.text()}`);
  return response;
}

// Columns, their types and the row defaults come from the layout.
async function loadLayout() {
  const layout = parse(await (await fetch("layout")).text());
  state.cols = [...layout.querySelectorAll("LeftCols > C, Cols > C, RightCols > C")].map((c) => ({
    name: c.getAttribute("Name"), type: c.getAttribute("Type") || "Text",
    format: c.getAttribute("Format") || "", enumText: c.getAttribute("Enum") || "",
  }));
  const header = layout.querySelector("Header");
  for (const col of state.cols) state.header[col.name] = (header && header.getAttribute(col.name)) || col.name;
  for (const d of layout.querySelectorAll("Def > D")) state.defs[d.getAttribute("Name")] = d;
}

// The settings of the client: sort, group and filter conditions.
function bodyRequest() {
  const sort = state.sort.map((s) => (s.desc ? "-" : "") + s.col).join(",");
  const filter = Object.entries(state.filters).map(([col, f]) => ` ${col}="${esc(f.value)}" ${col}Filter="${f.op}"`);
  return `<Grid><Cfg PageLength="10" Sorting="${sort ? 1 : 0}" Sort="${sort}" Group="${state.group}"/>` +
    `<Filters><Filter id="Filter"${filter.join("")}/></Filters></Grid>`;
}

async function refresh() {
  const body = await (await post("body", bodyRequest())).text();
  const count = /""P"(\d+)/.exec(body);
  state.pages = count ? Number(count[1]) : 1;
  state.page = Math.min(state.page, Math.max(state.pages - 1, 0));
  await showPage(state.page);
}

async function showPage(pos) {
  state.page = pos;
  const page = parse(await (await post("page", `<Grid><Body><B Pos="${pos}"/></Body></Grid>`)).text());
  const rows = $("rows");
  rows.textContent = "";
  const top = page.querySelector("Body > B");
  for (const row of top ? top.children : []) addRow(rows, row, 0, true, top.getAttribute("CDef"));
  drawPager();
}

function defOf(row, parentCDef) {
  return state.defs[row.getAttribute("Def") || parentCDef || "R"];
}

function isExpanded(row, def) {
  const id = row.getAttribute("id");
  if (id in state.open) return state.open[id];
  const own = row.getAttribute("Expanded") ?? (def && def.getAttribute("Expanded"));
  return own !== "0";
}

// One row and, below it, its children; hidden ones when a parent is collapsed.
function addRow(rows, row, level, visible, parentCDef) {
  const def = defOf(row, parentCDef);
  const id = row.getAttribute("id");
  const group = row.getAttribute("GroupCol") !== null;
  const children = [...row.children];
  const open = isExpanded(row, def);
  const tr = rows.insertRow();
  tr.dataset.id = id;
  tr.hidden = !visible;
  if (group) tr.className = "group";
  state.cols.forEach((col, i) => {
    const td = tr.insertCell();
    const value = row.getAttribute(col.name);
    if (i === 0) {
      td.style.paddingLeft = `${level * 1.2 + 0.3}em`;
      const toggle = document.createElement("span");
      toggle.className = "toggle";
      toggle.textContent = children.length ? (open ? "▾" : "▸") : "";
      toggle.onclick = () => { state.open[id] = !open; showPage(state.page); };
      td.append(toggle);
    }
    const shown = group && i === 0 ? display({ ...col, type: row.getAttribute(`${col.name}Type`) || col.type,
      enumText: row.getAttribute(`${col.name}Enum`) || col.enumText }, value) : display(col, value);
    td.append(document.createTextNode(shown));
    if (col.type === "Int" || col.type === "Float") td.className = "num";
    if (!group && editable(col)) td.ondblclick = () => edit(td, id, col, value ?? "");
  });
  const cdef = row.getAttribute("CDef") || (def && def.getAttribute("CDef"));
  for (const child of children) addRow(rows, child, level + 1, visible && open, cdef);
}

// The text of a value by its column's type.
function display(col, value) {
  if (value === null || value === "") return "";
  const list = (text) => text.slice(1).split(text[0]);
  if (col.type === "Enum" && col.enumText) return list(col.enumText)[Number(value)] ?? value;
  if (col.type === "Bool" && col.format) return list(col.format)[Number(value) ? 1 : 0] ?? value;
  if (col.type === "Date" && Number(value)) return new Date(Number(value)).toISOString().slice(0, 10);
  return value;
}

const editable = (col) => ["Text", "Lines", "Int", "Float"].includes(col.type);

function edit(td, id, col, value) {
  const input = document.createElement("input");
  input.value = value;
  td.textContent = "";
  td.append(input);
  input.focus();
  input.onblur = () => showPage(state.page);
  input.onkeydown = async (event) => {
    if (event.key === "Escape") return showPage(state.page);
    if (event.key !== "Enter") return;
    input.onblur = null;
    await post("save", `<Grid><Changes><I id="${esc(id)}" ${col.name}="${esc(input.value)}"/></Changes></Grid>`);
    $("status").textContent = `Saved ${id}`;
    await refresh();
  };
}

function drawHeads() {
  const heads = $("heads");
  const filters = $("filters");
  for (const col of state.cols) {
    const th = document.createElement("th");
    th.dataset.col = col.name;
    th.onclick = (event) => sortBy(col.name, event.shiftKey);
    heads.append(th);
    const input = document.createElement("input");
    input.dataset.col = col.name;
    input.onchange = () => { setFilter(col, input.value.trim()); state.page = 0; refresh(); };
    filters.insertCell().append(input);
    $("group").add(new Option(state.header[col.name], col.name));
  }
  drawSortMarks();
}

function drawSortMarks() {
  for (const th of $("heads").children) {
    const s = state.sort.find((s) => s.col === th.dataset.col);
    th.textContent = state.header[th.dataset.col] + (s ? (s.desc ? " ▼" : " ▲") : "");
  }
}

// A click sorts by the column alone; shift-click adds it; a second click turns it round.
function sortBy(col, add) {
  const found = state.sort.find((s) => s.col === col);
  if (found) found.desc = !found.desc;
  else if (add) state.sort.push({ col, desc: false });
  else state.sort = [{ col, desc: false }];
  if (!add && found) state.sort = [found];
  drawSortMarks();
  refresh();
}

// Filter text: an optional operator, then the value; text without one is searched for.
const operators = { "=": 1, "!=": 2, "<": 3, "<=": 4, ">": 5, ">=": 6 };
function setFilter(col, text) {
  const match = /^(!=|<=|>=|=|<|>)?\s*(.*)$/.exec(text);
  if (!text) delete state.filters[col.name];
  else if (match[1]) state.filters[col.name] = { op: operators[match[1]], value: match[2] };
  else state.filters[col.name] = { op: editable(col) && col.type !== "Int" && col.type !== "Float" ? 11 : 1, value: text };
}

function drawPager() {
  const pager = $("pager");
  pager.textContent = "";
  for (let i = 0; i < state.pages; i++) {
    const button = document.createElement("button");
    button.textContent = i + 1;
    if (i === state.page) button.className = "current";
    button.onclick = () => showPage(i);
    pager.append(button);
  }
}

// All rows as if expanded, as an outline with the tree indented: an HTML
// sheet from "export", a workbook from "export-xlsx".
async function download(path, name) {
  const cols = state.cols.map((c, i) => `<C Name="${esc(c.name)}" Visible="1" Width="${i ? 90 : 200}"/>`).join("");
  const request = `<Grid><Cfg ExportType="expanded,outline,indent"/><Cols>${cols}</Cols></Grid>`;
  const blob = await (await post(path, request)).blob();
  const link = document.createElement("a");
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  URL.revokeObjectURL(link.href);
}

const report = (work) => () => work().catch((error) => { $("status").textContent = error.message; });

async function start() {
  await loadLayout();
  drawHeads();
  $("group").onchange = () => { state.group = $("group").value; state.page = 0; refresh(); };
  $("export").onclick = report(() => download("export", "grid.html"));
  $("workbook").onclick = report(() => download("export-xlsx", "grid.xlsx"));
  await refresh();
}

start().catch((error) => { $("status").textContent = error.message; });
