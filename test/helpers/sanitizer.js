'use strict';
// Running node under AddressSanitizer and UndefinedBehaviorSanitizer (a build made
// with `node scripts/build.js --sanitize`): the environment that preloads their
// runtimes, and whether this process runs under them.
const { execFileSync } = require('node:child_process');
const path = require('node:path');

const suppressions = path.join(__dirname, '..', 'sanitizer', 'asan.supp');

/** The environment for a sanitized child; asanOptions are added to the common ones. */
function sanitizerEnv(asanOptions = []) {
  const lib = (name) => execFileSync('g++', [`-print-file-name=${name}`], { encoding: 'utf8' }).trim();
  return {
    LD_PRELOAD: [lib('libasan.so'), lib('libubsan.so')].join(' '),
    // A small quarantine: freed blocks held back by the sanitizer otherwise pass
    // for growth in the memory tests (up to its 256 MB default).
    ASAN_OPTIONS: [`suppressions=${suppressions}`, 'quarantine_size_mb=16', ...asanOptions].join(':'),
    UBSAN_OPTIONS: 'print_stacktrace=1:halt_on_error=1',
  };
}

const underSanitizer = /libasan/.test(process.env.LD_PRELOAD || '');

module.exports = { sanitizerEnv, underSanitizer };
