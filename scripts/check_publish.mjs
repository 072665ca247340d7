// What npm runs before it publishes: refuses a package that does not yet say
// where it comes from, or that lacks a processor. A checkout leaves these fields
// open, since only who publishes knows the addresses.
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import process from 'node:process';
import { fileURLToPath } from 'node:url';

const isAddress = (value) =>
  typeof value === 'string' && /^(git\+)?https:\/\/[^\s/]+\/\S/.test(value);

const isHomepage = (value) =>
  typeof value === 'string' && /^https:\/\/\S+$/.test(value);

/**
 * What keeps a package with this package.json from being published; `prebuilt`
 * are the names in its folder "prebuilds".
 */
export function publishProblems({ repository, homepage, bugs, version },
  changelog, prebuilt) {
  const wanted = [
    ['repository.url', isAddress(repository?.url)],
    ['homepage', isHomepage(homepage)],
    ['bugs.url', isAddress(bugs?.url)],
  ];
  const problems = wanted.filter(([, isFilled]) => !isFilled)
    .map(([name]) => `"${name}" in package.json is to be an https address`);
  if (!changelog.split('\n').includes(`## ${version}`)) {
    problems.push(`CHANGELOG.md has no section "## ${version}"`);
  }
  // That of x86-64 is built when npm packs.
  if (!prebuilt.includes('linux-arm64')) {
    problems.push('prebuilds/linux-arm64 is missing: run ' +
      '"npm run prebuild:arm64"');
  }
  return problems;
}

function main() {
  const read = (name) =>
    readFileSync(new URL(`../${name}`, import.meta.url), 'utf8');
  const prebuilds = new URL('../prebuilds', import.meta.url);
  const problems = publishProblems(JSON.parse(read('package.json')),
    read('CHANGELOG.md'), existsSync(prebuilds) ? readdirSync(prebuilds) : []);
  for (const problem of problems) console.error(`publish: ${problem}`);
  return problems.length === 0 ? 0 : 1;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  process.exitCode = main();
}
