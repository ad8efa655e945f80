// The demo page in a real browser: `sarvendo serve` on a free loopback port,
// headless Chromium driven by playwright-core. Sorts, filters, groups, edits,
// reloads, downloads the export and the workbook and leaves a screenshot in the build folder.
// Exits 77 (skipped) when playwright-core or the browser is missing.
"use strict";
const assert = require("node:assert/strict");
const { spawn } = require("node:child_process");
const fs = require("node:fs");
const os = require("node:os");
const path = require("node:path");

const skip = (why) => { console.log(`${why}: skipped`); process.exit(77); };
let chromium;
try {
  ({ chromium } = require(path.join(__dirname, "node_modules", "playwright-core")));
} catch {
  skip("playwright-core not installed (run .ci/setup)");
}
const browserPath = process.env.SARVENDO_CHROMIUM || "/usr/bin/chromium";
if (!fs.existsSync(browserPath)) skip(`no browser at ${browserPath}`);
const command = process.env.SARVENDO_COMMAND;
const artifacts = process.env.SARVENDO_ARTIFACTS || fs.mkdtempSync(path.join(os.tmpdir(), "sarvendo-browser-"));
fs.mkdirSync(artifacts, { recursive: true });
const data = path.join(__dirname, "..", "..", "examples", "data");

// Starts the server and resolves with its address, read from its first line.
function startServer() {
  const server = spawn(command, ["serve", path.join(data, "layout.xml"), path.join(data, "data.xml"), "--port", "0"],
    { stdio: ["ignore", "pipe", "inherit"] });
  return new Promise((resolve, reject) => {
    let out = "";
    server.stdout.on("data", (chunk) => {
      out += chunk;
      const found = /http:\/\/127\.0\.0\.1:(\d+)\//.exec(out);
      if (found) resolve({ server, url: found[0] });
    });
    server.on("exit", (code) => reject(new Error(`sarvendo serve ended with ${code}`)));
  });
}

const visibleRows = (page) => page.$$eval("#rows tr:not([hidden])", (rows) =>
  rows.map((tr) => ({ id: tr.dataset.id, group: tr.className === "group", cells: [...tr.cells].map((td) => td.textContent) })));
const rootNames = async (page) => (await visibleRows(page)).filter((r) => /^C\d+$/.test(r.id)).map((r) => r.cells[0].replace(/^[▸▾]/, ""));
const pagerCount = (page) => page.$$eval("#pager button", (buttons) => buttons.length);

// Runs an action that makes the page ask the server, and waits for the page's answer.
async function andWait(page, action) {
  const answered = page.waitForResponse((r) => r.url().endsWith("/page"));
  await action();
  await answered;
  await page.waitForTimeout(50);
}

async function expand(page, id) {
  await andWait(page, () => page.click(`#rows tr[data-id="${id}"] .toggle`));
}

async function run(page, url) {
  await andWait(page, () => page.goto(url));

  // First page: ten customers in the order of the data, collapsed.
  const roots = (await visibleRows(page)).map((r) => r.id);
  assert.deepEqual(roots, ["C1", "C2", "C3", "C4", "C5", "C6", "C7", "C8", "C9", "C10"]);
  assert.equal((await rootNames(page))[0], "Ada Adler");
  assert.equal(await pagerCount(page), 4);

  // A click sorts ascending, a second one descending; shift-click adds a column.
  const nameHead = 'th[data-col="Name"]';
  await andWait(page, () => page.click(nameHead));
  await andWait(page, () => page.click(nameHead));
  const descending = await rootNames(page);
  assert.equal(descending[0], "Tomás Dvořák");
  assert.deepEqual(descending, [...descending].sort((a, b) => b.localeCompare(a, "en")));
  await andWait(page, () => page.click('th[data-col="Quantity"]', { modifiers: ["Shift"] }));
  assert.match(await page.textContent(nameHead), /▼/);
  assert.match(await page.textContent('th[data-col="Quantity"]'), /▲/);

  // Filter: only orders of 19 or more stay, and customers without one go.
  await andWait(page, async () => {
    await page.fill('#filters input[data-col="Quantity"]', ">=19");
    await page.press('#filters input[data-col="Quantity"]', "Enter");
  });
  assert.equal(await pagerCount(page), 2);
  const first = (await visibleRows(page))[0].id;
  await expand(page, first);
  const orders = (await visibleRows(page)).filter((r) => /^O\d+$/.test(r.id));
  assert.ok(orders.length > 0);
  for (const order of orders) assert.ok(Number(order.cells[2]) >= 19, `${order.id} has ${order.cells[2]}`);
  await andWait(page, async () => {
    await page.fill('#filters input[data-col="Quantity"]', "");
    await page.press('#filters input[data-col="Quantity"]', "Enter");
  });
  assert.equal(await pagerCount(page), 4);

  // Group by region: customers move under group rows, which expand.
  await andWait(page, () => page.selectOption("#group", "Region"));
  const groups = await visibleRows(page);
  assert.deepEqual(groups.map((r) => r.group), [true, true, true, true, true]);
  assert.deepEqual(groups.map((r) => r.cells[0].replace(/^[▸▾]/, "")).sort(), ["Centre", "East", "North", "South", "West"]);
  await expand(page, groups[0].id);
  const region = groups[0].cells[0].replace(/^[▸▾]/, "");
  const members = (await visibleRows(page)).filter((r) => /^C\d+$/.test(r.id));
  assert.equal(members.length, 8);
  for (const member of members) assert.equal(member.cells[1], region);
  await andWait(page, () => page.selectOption("#group", ""));

  // Edit: a new quantity for the first visible order, saved, and still there after a reload.
  const order = (await visibleRows(page)).find((r) => /^O\d+$/.test(r.id));
  const cell = `#rows tr[data-id="${order.id}"] td:nth-child(3)`;
  await page.dblclick(cell);
  await andWait(page, async () => {
    await page.fill(`${cell} input`, "777");
    await page.press(`${cell} input`, "Enter");
  });
  await andWait(page, () => page.reload());
  await page.evaluate(() => document.querySelectorAll("#rows tr").length);
  const customer = await page.$eval(`#rows tr[data-id="${order.id}"]`, (tr) => {
    let row = tr.previousElementSibling;
    while (row && !/^C\d+$/.test(row.dataset.id)) row = row.previousElementSibling;
    return row.dataset.id;
  });
  await expand(page, customer);
  assert.equal(await page.textContent(cell), "777");

  // The export downloads as an HTML sheet holding the saved value.
  const [download] = await Promise.all([page.waitForEvent("download"), page.click("#export")]);
  const sheet = path.join(artifacts, "export.html");
  await download.saveAs(sheet);
  const text = fs.readFileSync(sheet, "utf8");
  assert.match(text, /^<html/);
  assert.match(text, />777</);

  // The workbook downloads as an .xlsx file (a zip holding the sheet), or the
  // page says the build has no workbook writer.
  if (process.env.SARVENDO_XLSX === "OFF") {
    await page.click("#workbook");
    await page.waitForFunction(() => /not available/.test(document.getElementById("status").textContent));
  } else {
    const [workbook] = await Promise.all([page.waitForEvent("download"), page.click("#workbook")]);
    assert.equal(workbook.suggestedFilename(), "grid.xlsx");
    const file = path.join(artifacts, "grid.xlsx");
    await workbook.saveAs(file);
    const bytes = fs.readFileSync(file);
    assert.equal(bytes.subarray(0, 4).toString("binary"), "PK\x03\x04");
    assert.ok(bytes.includes("xl/worksheets/sheet1.xml"));
  }

  await page.screenshot({ path: path.join(artifacts, "demo.png") });
}

async function main() {
  const { server, url } = await startServer();
  const profile = fs.mkdtempSync(path.join(os.tmpdir(), "sarvendo-chromium-"));
  let context;
  try {
    context = await chromium.launchPersistentContext(profile, {
      executablePath: browserPath, headless: true, acceptDownloads: true, viewport: { width: 1000, height: 600 },
      args: ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run",
        "--disable-background-networking", "--disable-component-update", "--disable-sync"],
    });
    const page = context.pages()[0] || await context.newPage();
    page.on("pageerror", (error) => { throw error; });
    await run(page, url);
    console.log(`browser test passed; screenshot in ${artifacts}`);
  } finally {
    if (context) await context.close();
    server.kill();
    fs.rmSync(profile, { recursive: true, force: true });
  }
}

main().catch((error) => { console.error(error); process.exit(1); });
