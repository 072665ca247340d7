import assert from 'node:assert/strict';
import { test } from 'node:test';
import visible from '../../lib/visible_text.js';

const { visibleText } = visible;

test('what can be seen is left as it is', () => {
  const text = 'Ünï "c\\o" – 日本 😀 \u00a0';
  assert.equal(visibleText(text), text);
});

test('control characters are written out', () => {
  assert.equal(visibleText('a\nb\tc\rd\x1b[2Je\x7f\0'),
    String.raw`a\nb\tc\u000dd\u001b[2Je\u007f\u0000`);
  // Those above ASCII, of which U+009B begins a command of a terminal as well.
  assert.equal(visibleText('\u0080\u009b\u009f'),
    String.raw`\u0080\u009b\u009f`);
});

test('ends of lines and marks of direction are written out', () => {
  assert.equal(visibleText('gpj.\u202eexe\u2028\u2029'),
    String.raw`gpj.\u202eexe\u2028\u2029`);
  for (const mark of '\u061c\u200e\u200f\u202a\u202b\u202c\u202d' +
    '\u2066\u2067\u2068\u2069') {
    assert.equal(visibleText(mark),
      `\\u${mark.charCodeAt(0).toString(16).padStart(4, '0')}`);
  }
});

test('halves of characters are written out', () => {
  assert.equal(visibleText('a\ud83d'), String.raw`a\ud83d`);
  assert.equal(visibleText('\ud83d\ude00'), '😀');
});
