'use strict';

const { lookup } = require('node:dns/promises');
const net = require('node:net');

const mostServers = 8;
const lookupLimitMs = 2_000;
// What fits a request to such a server.
const longestWord = 500;

/** The parts of a Link header, each as { target, parameters }. */
function readLinks(header) {
  const links = [];
  const pattern = /<([^<>]*)>((?:\s*;\s*[\w-]+\s*=\s*(?:"(?:[^"\\]|\\.)*"|[^\s;,"]+))*)/g;
  for (const [, target, rest] of header.matchAll(pattern)) {
    const parameters = {};
    for (const [, key, quoted, plain] of rest.matchAll(
      /([\w-]+)\s*=\s*(?:"((?:[^"\\]|\\.)*)"|([^\s;,"]+))/g)) {
      parameters[key.toLowerCase()] =
        quoted?.replace(/\\(.)/g, '$1') ?? plain;
    }
    links.push({ target, parameters });
  }
  return links;
}

/**
 * A server of ICE from such a link; null for others. Among these is turns:, for
 * which libnice would speak without encryption.
 */
function readServer({ target, parameters }) {
  if (!(parameters.rel ?? '').split(/\s+/).includes('ice-server')) return null;
  const found =
    /^(stun|turn):(\[[0-9a-f:]+\]|[\w.-]+)(?::(\d{1,5}))?(?:\?transport=(\w+))?$/i
      .exec(target);
  if (found === null) return null;
  const [, scheme, host, port, transport = 'udp'] = found;
  const server = {
    kind: scheme.toLowerCase() === 'stun' ? 'stun'
      : transport.toLowerCase() === 'tcp' ? 'turn-tcp' : 'turn',
    host: host.replace(/^\[|\]$/g, ''),
    port: Number(port ?? 3478),
    user: parameters.username ?? '',
    password: parameters.credential ?? '',
  };
  const isWord = (text) => text !== '' && text.length <= longestWord &&
    !/[\s\0]/.test(text);
  if (server.port === 0 || server.port > 65_535) return null;
  return server.kind === 'stun' ||
    (isWord(server.user) && isWord(server.password)) ? server : null;
}

async function addressOf(host) {
  if (net.isIP(host) !== 0) return host;
  let timer;
  const limit = new Promise((resolve) => {
    timer = setTimeout(resolve, lookupLimitMs, null);
  });
  try {
    const found = await Promise.race([lookup(host), limit]);
    return found?.address ?? null;
  } catch {
    // One that cannot be found is done without.
    return null;
  } finally {
    clearTimeout(timer);
  }
}

/** The servers of Link headers, their names looked up. */
async function findIceServers(header) {
  const servers = readLinks(header ?? '').map(readServer)
    .filter((server) => server !== null).slice(0, mostServers);
  const found = await Promise.all(servers.map(async ({ host, ...rest }) =>
    ({ ...rest, address: await addressOf(host) })));
  return found.filter(({ address }) => address !== null);
}

module.exports = { findIceServers, readLinks, readServer };
