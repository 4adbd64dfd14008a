#!/usr/bin/env node
'use strict';
// Builds the client library, its test double and the addon with CMake, against
// the headers of the Node.js that runs this script.
//   node scripts/build.js [--sanitize] [--werror] [--build-dir DIR]
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

function defaultBuildDir(sanitize) {
  return path.join(root, sanitize ? 'build-asan' : 'build');
}

function build({ sanitize = false, werror = false, buildDir = defaultBuildDir(sanitize), quiet = false } = {}) {
  const stdio = quiet ? ['ignore', 'ignore', 'inherit'] : 'inherit';
  const hint = missingToolsHint();
  if (hint) throw new BuildToolsMissing(hint);
  const include = nodeIncludeDir();
  const cache = path.join(buildDir, 'CMakeCache.txt');
  const wanted = [
    `-DNODE_INCLUDE_DIR=${include}`,
    `-DKEYLOOM_SANITIZE=${sanitize ? 'ON' : 'OFF'}`,
    `-DKEYLOOM_WERROR=${werror ? 'ON' : 'OFF'}`,
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
    build({
      sanitize: args.includes('--sanitize'),
      werror: args.includes('--werror'),
      buildDir: dirIndex >= 0 ? path.resolve(args[dirIndex + 1]) : undefined,
    });
  } catch (err) {
    if (!(err instanceof BuildToolsMissing)) throw err;
    console.error(err.message);
    process.exitCode = 1;
  }
}
