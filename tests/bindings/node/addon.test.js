'use strict';
// The addon's own contract: argument types, missing grids, UTF-8, sessions.
const test = require('node:test');
const assert = require('node:assert');
const { sv, layout, data, withSession } = require('./helpers');

test.beforeEach(() => sv.clear());

test('wrong argument types throw a TypeError naming the function, async forms reject', async () => {
  const calls = [
    ['getBody', 'x'], ['getBody', 0, 5], ['updateGrid', 0, null], ['findGrid'], ['findGrids', '<G/>', '1'],
    ['deleteGrid', null], ['createGrid', 1], ['createGrid', 'a', 'b', 'c', 'd', 'e', 'f', 'g'],
    ['getCells', 0, 'r', {}], ['saveToFile', 0, undefined], ['setGridLocale', 0n, ''], ['getIndexes', 1],
    ['getChanges', 0, '1'], ['getSession', Symbol('x')],
  ];
  for (const [name, ...args] of calls) {
    assert.throws(() => sv[name](...args), (e) => e instanceof TypeError && e.message.startsWith(name + ': '),
      name);
  }
  for (const name of ['createGrid', 'getBody', 'getPage', 'save', 'saveToFile', 'getData', 'getExport']) {
    await assert.rejects(sv[name + 'Async']([]), (e) => e instanceof TypeError && e.message.startsWith(name + 'Async: '));
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
      sv.setGridLocale(index, ''), sv.deleteGrid(index), await sv.saveAsync(index, '<Grid/>')];
    assert.deepStrictEqual(codes, Array(codes.length).fill(-1), String(index));
  }
  assert.deepStrictEqual(sv.getIndexes(), [grid]);
});

test('negative codes come back as numbers', () => {
  assert.strictEqual(sv.createGrid('<Grid><Cfg'), -3);
  assert.strictEqual(sv.createGrid('/nonexistent/grid.xml'), -1);
  assert.strictEqual(sv.createGrid(null, undefined, ''), -1);
  assert.strictEqual(sv.findGrid(withSession('nobody')), -2);
  assert.strictEqual(sv.findGrids('<Grid'), -3);
  assert.deepStrictEqual(sv.getIndexes(), []);
});

test('UTF-8 with two- and three-byte characters crosses both ways', () => {
  const texts = ['Žluťoučký kůň', 'čaj ☕ za 5 €', 'ĀāĂ ‰ ﬁ'];
  const grid = sv.createGrid(layout, '<Grid><Body><B>' +
    texts.map((t, k) => `<I id="${k}" A="${t}"/>`).join('') + '</B></Body></Grid>', withSession(texts[1]));
  assert.deepStrictEqual(texts.map((t, k) => sv.getCells(grid, String(k), 'A')), texts);
  assert.strictEqual(sv.getGridSession(grid), texts[1]);
  assert.strictEqual(sv.findGrid(withSession(texts[1])), grid);
  assert.strictEqual(sv.getSession(withSession(texts[2])), texts[2]);
  assert.match(sv.getBody(grid, '<Grid><Cfg Sort="A"/></Grid>'), /<IO Session="čaj ☕ za 5 €"\/>/);
});

test('many grids are found again by session and by Cfg', () => {
  const made = [];
  for (let k = 0; k < 100; k++) made.push(sv.createGrid(layout, withSession(`s${k}-ž`)));
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
  assert.strictEqual(sv.createGrid(layout), 3);
});
