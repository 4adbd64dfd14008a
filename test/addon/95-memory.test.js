'use strict';
// Under the sanitizers (node scripts/test.js --sanitize addon): one successful
// call of every wrapper leaks nothing of keyloom.node, and the leak detector
// does see the string copy that a failing later argument leaves behind.
// Skipped when libasan is not preloaded.
const { test } = require('node:test');
const assert = require('node:assert/strict');
const { spawnSync } = require('node:child_process');
const path = require('node:path');

const underAsan = /libasan/.test(process.env.LD_PRELOAD || '');
const child = path.join(__dirname, 'success-paths.js');

// Runs the child with leak detection and no leak suppressions at all; returns
// its stderr and the leak reports whose allocation was made by keyloom.node or
// the library double (the first frame below the allocator).
function run(mode) {
  const env = {
    ...process.env,
    ASAN_OPTIONS: 'detect_leaks=1:allocator_may_return_null=1',
    LSAN_OPTIONS: 'print_suppressions=0:fast_unwind_on_malloc=0',
  };
  const r = spawnSync(process.execPath, ['--expose-gc', child, ...(mode ? [mode] : [])], { env, encoding: 'utf8' });
  const blocks = r.stderr.split(/\n(?=(?:Direct|Indirect) leak of )/).slice(1);
  const ours = blocks.filter((block) => {
    const frames = block.split('\n').filter((line) => /^\s+#\d+ /.test(line));
    const first = frames.find((line) => !/libasan|operator new|malloc|calloc|realloc|strdup/.test(line));
    return first !== undefined && /keyloom\.node|libkeyloom/.test(first);
  });
  return { status: r.status, stderr: r.stderr, ours };
}

test('the success path of every wrapper leaks nothing and touches no freed memory', { skip: !underAsan }, () => {
  const r = run();
  assert.doesNotMatch(r.stderr, /ERROR: AddressSanitizer|runtime error:/, r.stderr);
  assert.deepEqual(r.ours, [], r.ours.join('\n'));
});

test('a string copy left by a failing later argument is reported as a leak', { skip: !underAsan }, () => {
  const r = run('fail-after-copy');
  assert.equal(r.ours.length, 1, r.stderr);
  assert.match(r.ours[0], /21 byte\(s\)/, 'the 20 bytes of the key and its NUL');
});
