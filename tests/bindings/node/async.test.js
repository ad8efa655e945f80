'use strict';
// The promise forms on Node's worker pool: many at once, on different grids,
// with the results of the plain forms on twin grids.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { sv, layout, data, withSession } = require('./helpers');

const rows = (n) => '<Grid><Body><B>' + Array.from({ length: n }, (_, k) =>
  `<I id="${k + 1}" A="ř${(k * 7919) % 1000}" B="${(k * 104729) % 997}" C="${k / 4}"/>`).join('') +
  '</B></Body></Grid>';
const requests = ['<Grid><Cfg Sort="A"/></Grid>', '<Grid><Cfg Sort="-B,A"/></Grid>', '<Grid><Cfg Sort="C"/></Grid>'];
const change = '<Grid><Changes><I id="2" A="nový"/></Changes></Grid>';

// One grid's life through the given forms: everything it answered, in order.
async function life(forms, k) {
  const grid = await forms.createGrid(layout, rows(2000 + k), withSession(`twin ${k}`));
  const answers = [];
  for (const request of requests) {
    answers.push(await forms.getBody(grid, request));
    answers.push(await forms.getPage(grid, '<Grid><Body><B Pos="3"/></Body></Grid>'));
  }
  answers.push(await forms.save(grid, change), await forms.getData(grid), await forms.getExport(grid, '<Grid/>'));
  answers.push(await forms.saveToFile(grid, path.join(forms.dir, `${k}.xml`), 0));
  return answers;
}

const names = ['createGrid', 'getBody', 'getPage', 'save', 'getData', 'getExport', 'saveToFile'];
const plain = Object.fromEntries(names.map((n) => [n, sv[n]]));
const promised = Object.fromEntries(names.map((n) => [n, sv[n + 'Async']]));

test('several grids served at once give what the plain forms give', async () => {
  plain.dir = fs.mkdtempSync(path.join(os.tmpdir(), 'sarvendo-plain-'));
  promised.dir = fs.mkdtempSync(path.join(os.tmpdir(), 'sarvendo-async-'));
  const count = 8;
  const expected = [];
  for (let k = 0; k < count; k++) expected.push(await life(plain, k));
  const got = await Promise.all([...Array(count).keys()].map((k) => life(promised, k)));
  assert.deepStrictEqual(got, expected);
  assert.ok(expected[0][0].length > 100);
  for (const dir of [plain.dir, promised.dir]) fs.rmSync(dir, { recursive: true, force: true });
});

test('one grid asked many times at once answers each request whole', async () => {
  const grid = sv.createGrid(layout, data);
  const bodies = await Promise.all(Array.from({ length: 40 }, (_, k) => sv.getBodyAsync(grid, requests[k % 3])));
  const alone = requests.map((r) => sv.getBody(grid, r));
  bodies.forEach((body, k) => assert.strictEqual(body, alone[k % 3]));
});
