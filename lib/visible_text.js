'use strict';

// Characters that command a terminal, end a line, turn the direction of what
// follows, or stand for no character.
const invisible =
  /[\p{Cc}\p{Cs}\u061c\u200e\u200f\u2028-\u202e\u2066-\u2069]/gu;

const shortNames = Object.freeze({ '\n': '\\n', '\t': '\\t' });

/**
 * A text of somebody else, such as the title of a window, as it may be shown:
 * what cannot be seen is written out, as in "\n" and "\u202e".
 */
const visibleText = (text) => text.replace(invisible, (character) =>
  shortNames[character] ??
    `\\u${character.charCodeAt(0).toString(16).padStart(4, '0')}`);

/** The same as a name within a sentence. */
const quoted = (text) => `"${visibleText(text)}"`;

module.exports = { quoted, visibleText };
