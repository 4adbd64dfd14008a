#!/usr/bin/env node
'use strict';
// Builds the client library and the addons with CMake, against the headers of
// the Node.js that runs this script. Each setting has a folder of its own, so
// that switching between them never rebuilds everything: build/ (what an
// install and the examples use: no tests), build-strict/ (warnings as errors,
// with the test double and the C++ tests: `npm test`), build-asan/ (the
// sanitizers, with the tests).
//   node scripts/build.js [--sanitize] [--werror] [--tests] [--build-dir DIR]
const { execFileSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = path.resolve(__dirname, '..');

function nodeIncludeDir(nodeExe = process.execPath) {
  const candidates = [
    path.resolve(path.dirname(nodeExe), '..', 'include', 'node'),
    '/usr/include/node',
  ];
  const found = candidates.find((dir) => fs.existsSync(path.join(dir, 'node.h')));
  if (!found) throw new Error(`no Node.js headers found beside ${nodeExe}`);
  return found;
}

// What the build needs from the machine, each with the Debian package that has it.
const TOOLS = [
  { what: 'cmake', found: () => onPath('cmake'), pkg: 'cmake' },
  { what: 'a C++ compiler', found: () => onPath('c++') || onPath('g++'), pkg: 'g++' },
  { what: 'the hiredis headers', found: () => fs.existsSync('/usr/include/hiredis/hiredis.h'), pkg: 'libhiredis-dev' },
];

function onPath(command) {
  return (process.env.PATH || '').split(path.delimiter).some((dir) => {
    try {
      fs.accessSync(path.join(dir, command), fs.constants.X_OK);
      return true;
    } catch {
      return false;
    }
  });
}

/** The one line that says what is missing and how to install it, or null. */
function missingToolsHint() {
  const missing = TOOLS.filter((t) => !t.found());
  if (missing.length === 0) return null;
  return `keyloom: cannot build the addon: ${missing.map((t) => t.what).join(', ')} missing; ` +
    `install with: sudo apt-get install ${missing.map((t) => t.pkg).join(' ')}`;
}

class BuildToolsMissing extends Error {}

function defaultBuildDir(sanitize, werror = false) {
  return path.join(root, sanitize ? 'build-asan' : werror ? 'build-strict' : 'build');
}

/**
 * Builds into buildDir (by default the folder of the setting). tests: the test
 * double and the C++ tests too (on for the strict and sanitizer builds);
 * bench: the benchmark's C programs and empty addon.
 */
function build({
  sanitize = false, werror = false, tests = sanitize || werror, bench = false,
  buildDir = defaultBuildDir(sanitize, werror), quiet = false,
} = {}) {
  const stdio = quiet ? ['ignore', 'ignore', 'inherit'] : 'inherit';
  const hint = missingToolsHint();
  if (hint) throw new BuildToolsMissing(hint);
  const include = nodeIncludeDir();
  const cache = path.join(buildDir, 'CMakeCache.txt');
  const wanted = [
    `-DNODE_INCLUDE_DIR=${include}`,
    `-DKEYLOOM_NODE=${process.execPath}`,
    `-DKEYLOOM_SANITIZE=${sanitize ? 'ON' : 'OFF'}`,
    `-DKEYLOOM_WERROR=${werror ? 'ON' : 'OFF'}`,
    `-DKEYLOOM_TESTS=${tests ? 'ON' : 'OFF'}`,
    `-DKEYLOOM_BENCH=${bench ? 'ON' : 'OFF'}`,
  ];
  const cached = fs.existsSync(cache) ? fs.readFileSync(cache, 'utf8') : '';
  const stale = wanted.some((def) => {
    const [name, value] = def.slice(2).split('=');
    return !new RegExp(`^${name}:[A-Z]+=${value.replace(/[.*+?^${}()|[\]\\]/g, '\\$&')}$`, 'm').test(cached);
  });
  if (stale) {
    execFileSync('cmake', ['-S', root, '-B', buildDir, '-DCMAKE_BUILD_TYPE=Release', ...wanted], { stdio });
  }
  execFileSync('cmake', ['--build', buildDir, '-j', String(os.availableParallelism())], { stdio });
  return buildDir;
}

module.exports = { build, nodeIncludeDir, defaultBuildDir, missingToolsHint };

if (require.main === module) {
  const args = process.argv.slice(2);
  const dirIndex = args.indexOf('--build-dir');
  try {
    const sanitize = args.includes('--sanitize');
    const werror = args.includes('--werror');
    build({
      sanitize,
      werror,
      tests: args.includes('--tests') || sanitize || werror,
      buildDir: dirIndex >= 0 ? path.resolve(args[dirIndex + 1]) : undefined,
    });
  } catch (err) {
    if (!(err instanceof BuildToolsMissing)) throw err;
    console.error(err.message);
    process.exitCode = 1;
  }
}
