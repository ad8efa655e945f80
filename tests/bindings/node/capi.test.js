'use strict';
// Every function gives what the C function gives for the same calls.
const test = require('node:test');
const assert = require('node:assert');
const fs = require('fs');
const os = require('os');
const path = require('path');
const { sv, layout, data, withSession, throughC } = require('./helpers');

const dir = fs.mkdtempSync(path.join(os.tmpdir(), 'sarvendo-node-'));
test.after(() => fs.rmSync(dir, { recursive: true, force: true }));

function script(file, saved) {
  const sort = (s) => `<Grid><Cfg Sort="${s}"/></Grid>`;
  return [
    ['createGrid', layout, data, withSession('first ž')],
    ['createGrid', file],
    ['createGrid', '<Grid><Cfg'], ['createGrid', path.join(dir, 'missing.xml')], ['createGrid'],
    ['getBody', 0, sort('A')], ['getPage', 0, '<Grid><Body><B Pos="1"/></Body></Grid>'],
    ['getBody', 0, sort('-C')], ['getPage', 0, '<Grid><Body><B Pos="0"/></Body></Grid>'],
    ['getCells', 0, '3', 'A'], ['getCells', 0, '2', 'C', 4], ['getCells', 0, '1', 'A', 2 | 16 | 32, null],
    ['getLastId', 0], ['getChanges', 0], ['getChanges', 0, 1],
    ['save', 0, '<Grid><Changes><I id="2" A="kůň €" Changed="1"/></Changes></Grid>'],
    ['saveEx', 0, '<Grid><Changes><I id="9" Added="1" A="x"/></Changes></Grid>', 0],
    ['getChanges', 0], ['getData', 0], ['getExport', 0, '<Grid/>'], ['saveToFile', 0, saved, 0],
    ['setGridLocale', 0, ''], ['setGridLocale', 0, 'xx_NOWHERE'], ['setGridLocale', 9, ''],
    ['updateGrid', 1, withSession('second €')], ['updateGrid', 1, '<Grid'],
    ['getSession', withSession('ses ☕')], ['getSession', '<Grid/>'], ['getSession', '<Grid'],
    ['getGridSession', 0], ['getGridSession', 1], ['findGrid', withSession('second €')],
    ['findGrid', withSession('none')], ['findGrid', '<'],
    ['findGrids', '<Grid><Cfg Kind="orders"/></Grid>'], ['findGrids', '<Grid><Cfg/></Grid>', 0, 1],
    ['findGrids', '<Grid><Cfg/></Grid>', 3600], ['findGrids', '<Grid'],
    ['getIndexes'], ['deleteGrid', 0], ['deleteGrid', 0], ['getBody', 0, sort('A')], ['save', 0, '<Grid/>'],
    ['getIndexes'], ['clear'], ['getIndexes'],
  ];
}

test('each call gives the C result', () => {
  const file = path.join(dir, 'grid.xml');
  fs.writeFileSync(file, layout.replace('</Grid>', '') + data.replace('<Grid>', ''));
  const mine = script(file, path.join(dir, 'node.xml'));
  sv.clear();
  const got = mine.map(([name, ...args]) => sv[name](...args));
  const expected = throughC(script(file, path.join(dir, 'c.xml')));
  mine.forEach((call, k) => assert.deepStrictEqual(got[k] ?? null, expected[k], JSON.stringify(call)));
  const saved = (name) => (fs.existsSync(path.join(dir, name)) ? fs.readFileSync(path.join(dir, name), 'utf8') : null);
  assert.strictEqual(saved('node.xml'), saved('c.xml'));
});
