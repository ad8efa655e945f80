'use strict';
// The promise forms on Node's worker pool: many at once, on different grids,
// with the results of the plain forms on twin grids.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { sv, layout, data, withSession } = require('./helpers');

const requests = ['A', '-B,A', 'C'].map((sort) => `<Grid><Cfg Sort="${sort}"/></Grid>`);
const rows = (n) => '<Grid><Body><B>' + Array.from({ length: n }, (_, k) =>
  `<I id="${k + 1}" A="ř${(k * 7919) % 1000}" B="${(k * 104729) % 997}" C="${k / 4}"/>`).join('') +
  '</B></Body></Grid>';

// One grid's life through the plain (suffix '') or promise forms: all it answered, in order.
async function life(suffix, k, dir) {
  const call = (name, ...args) => sv[name + suffix](...args);
  const grid = await call('createGrid', layout, rows(2000 + k), withSession(`twin ${k}`));
  const answers = [];
  for (const request of requests) {
    answers.push(await call('getBody', grid, request));
    answers.push(await call('getPage', grid, '<Grid><Body><B Pos="3"/></Body></Grid>'));
  }
  answers.push(await call('save', grid, '<Grid><Changes><I id="2" A="nový"/></Changes></Grid>'),
    await call('getData', grid), await call('getExport', grid, '<Grid/>'),
    await call('saveToFile', grid, path.join(dir, `${k}.xml`), 0));
  return answers;
}

test('several grids served at once give what the plain forms give', async (t) => {
  const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'sarvendo-async-'));
  t.after(() => fs.rmSync(dir, { recursive: true, force: true }));
  const expected = [];
  for (let k = 0; k < 8; k++) expected.push(await life('', k, dir));
  assert.deepStrictEqual(await Promise.all([...expected.keys()].map((k) => life('Async', k, dir))), expected);
  assert.ok(expected[0][0].length > 100);
});

test('one grid asked many times at once answers each request whole', async () => {
  const grid = sv.createGrid(layout, data);
  const bodies = await Promise.all(Array.from({ length: 40 }, (_, k) => sv.getBodyAsync(grid, requests[k % 3])));
  const alone = requests.map((r) => sv.getBody(grid, r));
  bodies.forEach((body, k) => assert.strictEqual(body, alone[k % 3]));
});
