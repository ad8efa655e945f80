'use strict';
// The addon's own contract: argument types, missing grids, UTF-8, sessions, memory.
const test = require('node:test');
const assert = require('node:assert');
const { sv, layout, data, withSession } = require('./helpers');

test.beforeEach(() => sv.clear());

test('wrong argument types throw a TypeError naming the function, async forms reject', async () => {
  const calls = [['getBody', 'x'], ['getBody', 0, 5], ['updateGrid', 0, null], ['findGrid'], ['findGrids', '<G/>', '1'],
    ['deleteGrid', null], ['createGrid', 1], ['createGrid', ...'abcdefg'], ['getCells', 0, 'r', {}], ['saveToFile', 0],
    ['saveExportXlsx', 0, '<Grid/>'], ['setGridLocale', 0n, ''], ['getIndexes', 1]];
  for (const [name, ...args] of calls) {
    assert.throws(() => sv[name](...args), (e) => e instanceof TypeError && e.message.startsWith(name + ': '), name);
  }
  for (const name of ['createGrid', 'getBody', 'getPage', 'save', 'saveToFile', 'getData', 'getExport']) {
    const typeError = (e) => e instanceof TypeError && e.message.startsWith(name + 'Async: ');
    await assert.rejects(sv[name + 'Async']([]), typeError);
  }
});

test('a missing grid gives null or -1, whatever the index', async () => {
  const grid = sv.createGrid(layout, data);
  for (const index of [-1, grid + 1, 2 ** 32 + grid, grid + 0.5, NaN, Infinity, -(2 ** 31) - 1]) {
    const texts = [sv.getBody(index, ''), sv.getPage(index), sv.getData(index), sv.getLastId(index),
      sv.getChanges(index), sv.getExport(index), sv.getGridSession(index), sv.getCells(index, '1', 'A'),
      await sv.getBodyAsync(index), await sv.getDataAsync(index)];
    assert.deepStrictEqual(texts, Array(texts.length).fill(null), String(index));
    const codes = [sv.updateGrid(index, '<Grid/>'), sv.save(index, '<Grid/>'), sv.saveEx(index, '<Grid/>', 1),
      sv.setGridLocale(index, ''), sv.deleteGrid(index), await sv.saveAsync(index, '<Grid/>'),
      sv.saveExportXlsx(index, '<Grid/>', '/nonexistent/x.xlsx'),
      await sv.saveExportXlsxAsync(index, '<Grid/>', '/nonexistent/x.xlsx')];
    assert.deepStrictEqual(codes, Array(codes.length).fill(-1), String(index));
  }
  assert.deepStrictEqual(sv.getIndexes(), [grid]);
});

test('UTF-8 with two- and three-byte characters crosses both ways', () => {
  const texts = ['Žluťoučký kůň', 'čaj ☕ za 5 €', 'ĀāĂ ‰ ﬁ'];
  const rows = texts.map((t, k) => `<I id="${k}" A="${t}"/>`).join('');
  const grid = sv.createGrid(layout, `<Grid><Body><B>${rows}</B></Body></Grid>`, withSession(texts[1]));
  assert.deepStrictEqual(texts.map((t, k) => sv.getCells(grid, String(k), 'A')), texts);
  assert.strictEqual(sv.getGridSession(grid), texts[1]);
  assert.strictEqual(sv.findGrid(withSession(texts[1])), grid);
  assert.strictEqual(sv.getSession(withSession(texts[2])), texts[2]);
  assert.match(sv.getBody(grid, '<Grid><Cfg Sort="A"/></Grid>'), /<IO Session="čaj ☕ za 5 €"\/>/);
});

test('many grids are found again by session and by Cfg', () => {
  const made = Array.from({ length: 100 }, (_, k) => sv.createGrid(layout, withSession(`s${k}-ž`)));
  assert.deepStrictEqual(made, [...made.keys()]);
  assert.deepStrictEqual(made.map((k) => sv.findGrid(withSession(`s${k}-ž`))), made);
  assert.deepStrictEqual(made.map((k) => sv.getGridSession(k)), made.map((k) => `s${k}-ž`));
  for (const k of [3, 50, 97]) sv.deleteGrid(k);
  const live = made.filter((k) => ![3, 50, 97].includes(k));
  assert.deepStrictEqual(sv.getIndexes(), live);
  assert.deepStrictEqual(sv.findGrids('<Grid><Cfg Kind="orders"/></Grid>'), live);
  assert.deepStrictEqual(sv.findGrids('<Grid><Cfg Kind="orders"/></Grid>', 0, 5), live.slice(0, 5));
  assert.deepStrictEqual(sv.findGrids('<Grid><Cfg Kind="other"/></Grid>'), []);
  assert.strictEqual(sv.findGrid(withSession('s50-ž')), -2);
});

test('thousands of grids made and destroyed keep memory steady', () => {
  // Some 20 kB of text per grid and answer, so that a leak of either shows.
  const rows = Array.from({ length: 200 }, (_, k) => `<I id="${k + 1}" A="žena ${k}" B="${k % 101}"/>`).join('');
  const cycle = (times) => {
    for (let k = 0; k < times; k++) {
      const grid = sv.createGrid(layout, `<Grid><Body><B>${rows}</B></Body></Grid>`, withSession(`loop ${k}`));
      assert.ok(sv.getBody(grid, '<Grid><Cfg Sort="-B"/></Grid>') && sv.getData(grid));
      assert.strictEqual(sv.deleteGrid(grid), 0);
    }
  };
  cycle(500);
  const before = process.memoryUsage().rss;
  cycle(4000);
  const grown = process.memoryUsage().rss - before;
  // The sanitizer's quarantine holds freed blocks back; there its own checks count.
  if (!process.env.SARVENDO_SANITIZED) assert.ok(grown < 16 << 20, `grew by ${grown} bytes`);
});
