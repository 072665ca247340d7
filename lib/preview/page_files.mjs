import { readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';

const folder = new URL('page/', import.meta.url);

const types = {
  '.css': 'text/css; charset=utf-8',
  '.html': 'text/html; charset=utf-8',
  '.mjs': 'text/javascript; charset=utf-8',
  '.svg': 'image/svg+xml',
};

/** All files of the page by name, each with its type and contents. */
export function readPageFiles() {
  return new Map(readdirSync(folder).map((name) => [name, {
    type: types[path.extname(name)],
    body: readFileSync(new URL(name, folder)),
  }]));
}

/** What every answer carries; `host` is where the page may connect to. */
export function securityHeaders(host) {
  return {
    'Cache-Control': 'no-store',
    'Content-Security-Policy': [
      "default-src 'none'",
      "script-src 'self'",
      "style-src 'self'",
      "img-src 'self'",
      `connect-src ws://${host}`,
      "base-uri 'none'",
      "form-action 'none'",
      "frame-ancestors 'none'",
      "require-trusted-types-for 'script'",
    ].join('; '),
    'Cross-Origin-Opener-Policy': 'same-origin',
    'Cross-Origin-Resource-Policy': 'same-origin',
    'Permissions-Policy': 'camera=(), geolocation=(), microphone=()',
    'Referrer-Policy': 'no-referrer',
    'X-Content-Type-Options': 'nosniff',
  };
}

const messagePage = (title, body, head = '') => `<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<meta name="color-scheme" content="light dark">
${head}<title>${title}</title>
<h1>${title}</h1>
${body}
</html>
`;

/**
 * Leads to the page proper. The browser gets there from this very site, and so
 * sends the strict cookie along wherever the address was opened from; the used
 * token does not stay in the address bar.
 */
export const entrancePage = (base) => messagePage('Opening the preview',
  `<p><a href="${base}">Continue</a></p>`,
  `<meta http-equiv="refresh" content="0;url=${base}">\n`);

/** The script that leads the browser that was let in back to the page. */
export const againPath = '/again.mjs';

export const refusalPage = messagePage('This preview is not open to you', `
<p>The address that <code>linux-capture preview</code> printed opens the preview
in the first browser that loads it, and that has happened, or it was not the
whole address.</p>
<p>In that browser it leads back to the preview. For another one, start
<code>linux-capture preview</code> again.</p>`,
`<script type="module" src="${againPath}"></script>\n`);

export const missingPage = messagePage('There is no such page', '');
