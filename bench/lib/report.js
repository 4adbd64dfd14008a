'use strict';
// Tables for the console and for bench/RESULTS.md, from one run's results.
const { fmt, ratio } = require('./stats');

const GROUPS = [
  ['calls', 'Cost of one call from JavaScript (ns per call, lower is better; no server involved)'],
  ['single', 'One command per round trip, 1 server (ops/s)'],
  ['multi', 'Multi-key commands (keys/s), 3-byte values'],
  ['structures', 'Hashes and sorted sets, 1 server (ops/s)'],
  ['value-size', 'Value-size sweep, 1 server (ops/s)'],
  ['server-count', 'Server-count sweep: GET 3 B with the client spread over n servers (ops/s)'],
  ['in-flight', 'Many commands in flight, 1 server (ops/s): the promise client and its peers; the C loop pipelines batches of that many'],
  ['mixed', 'Mixed commands through the promise client, 100 in flight (ops/s)'],
];

function baselineOf(w) {
  return Object.keys(w.contenders)[0];
}

function cell(w, name) {
  const c = w.contenders[name];
  if (!c) return '';
  if (c.note && !c.samples.length) return c.note.startsWith('skipped') ? 'skipped' : 'error';
  const base = w.contenders[baselineOf(w)].median;
  return `${fmt(c.median, w.unit)} (${ratio(c.median / base)})`;
}

function groupTable(R, group) {
  const rows = Object.entries(R.workloads).filter(([, w]) => w.group === group);
  if (!rows.length) return null;
  const cols = [];
  for (const [, w] of rows) for (const name of Object.keys(w.contenders)) if (!cols.includes(name)) cols.push(name);
  const lines = [`| workload | ${cols.join(' | ')} |`, `|---|${cols.map(() => '---:').join('|')}|`];
  for (const [, w] of rows) lines.push(`| ${w.title} | ${cols.map((c) => cell(w, c)).join(' | ')} |`);
  return lines.join('\n');
}

function notes(R) {
  const out = [];
  for (const [id, w] of Object.entries(R.workloads)) {
    for (const [name, c] of Object.entries(w.contenders)) {
      if (c.note && !(c.note === 'skipped: not applicable')) out.push(`- ${id}, ${name}: ${c.note}`);
    }
  }
  return [...new Set(out)];
}

function spreads(R, ids) {
  const lines = ['| workload | contender | median | min | max | samples |', '|---|---|---:|---:|---:|---:|'];
  for (const id of ids) {
    const w = R.workloads[id];
    if (!w) continue;
    for (const [name, c] of Object.entries(w.contenders)) {
      if (!c.samples.length) continue;
      const s = c.samples.filter(Number.isFinite);
      lines.push(`| ${id} | ${name} | ${fmt(c.median, w.unit)} | ${fmt(Math.min(...s), w.unit)} | ${fmt(Math.max(...s), w.unit)} | ${s.length} |`);
    }
  }
  return lines.join('\n');
}

function targetTable(R) {
  const lines = ['| target | measured | met | why, when missed |', '|---|---:|:---:|---|'];
  for (const t of R.targets) {
    const met = t.ok === null ? 'not measured' : t.ok ? 'yes' : '**no**';
    lines.push(`| ${t.id}: ${t.text} | ${t.shown} | ${met} | ${t.ok === false ? t.reason : ''} |`);
  }
  return lines.join('\n');
}

function continuumTable(R) {
  if (!R.continuum) return null;
  const ms = (x) => (x && Number.isFinite(x.ms) ? fmt(x.ms, 'ms') : x && x.error ? 'error' : 'n/a');
  const lines = ['| servers | consistent (C) | ketama (C) | modula (C) | consistent, exact layer from JS |', '|---:|---:|---:|---:|---:|'];
  for (const r of R.continuum) lines.push(`| ${r.servers} | ${ms(r.consistent)} | ${ms(r.ketama)} | ${ms(r.modula)} | ${ms(r.js)} |`);
  return lines.join('\n');
}

function memoryText(R) {
  const m = R.memory;
  if (!m) return null;
  const out = [];
  const f = m.flat;
  if (f && f.series) {
    out.push(`Operation mix (SET 16 B, GET 3 B, MGET of 10 keys with arrays built per call, HGETALL of 100 fields), ` +
      `${f.ops.toLocaleString('en-US')} operations, resident memory sampled after a full collection every ` +
      `${(f.series[0].ops).toLocaleString('en-US')} operations:`, '',
    '| after ops | rss | external | JS heap used |', '|---:|---:|---:|---:|');
    for (const s of f.series) {
      out.push(`| ${s.ops.toLocaleString('en-US')} | ${fmt(s.rss, 'bytes')} | ${fmt(s.external, 'bytes')} | ${fmt(s.heapUsed, 'bytes')} |`);
    }
    out.push('', `Growth from the first sample after warm-up to the last: ${(f.growth / 1024).toFixed(0)} KiB ` +
      `(${(f.growth / Math.max(1, f.ops - f.warmOps)).toFixed(3)} bytes per operation).`);
  } else if (f) out.push(`Operation mix: ${f.error || f.skipped || 'not measured'}`);
  out.push('');
  const p = m.peak;
  const c = m.peakC;
  const row = (who, x, extra) => (x && Number.isFinite(x.peakBytes)
    ? `| ${who} | ${fmt(x.payload, 'bytes')} | ${fmt(x.peakBytes, 'bytes')} | ${(x.peakBytes / x.payload).toFixed(2)}x | ${extra} |`
    : `| ${who} | | ${x ? (x.error || x.skipped || 'n/a') : 'n/a'} | | |`);
  out.push('One multi-get of 1,000 keys of 1 KiB, peak resident memory above the level before the call (VmHWM after resetting it; median of 3 fresh processes):', '',
    '| who | payload | peak during the call | peak / payload | notes |', '|---|---:|---:|---:|---|',
    row('keyloom exact (kl_mget_whole)', p, p && Number.isFinite(p.peakBytes)
      ? `reading every value into JS strings as well: ${fmt(p.peakWithReadBytes, 'bytes')}; left after release: ${fmt(p.retainedAfterRelease, 'bytes')}` : ''),
    row('hiredis (C), one MGET, reply held', c, ''));
  return out.join('\n');
}

function markdown(R) {
  const M = R.machine;
  const parts = [
    '# keyloom benchmarks', '',
    `Generated by \`npm run bench\` (bench/run.js) on ${M.date}${R.options.quick ? ', **quick run**' : ''}; ` +
    `${R.options.rounds} interleaved rounds of ${R.options.durationMs} ms per measurement, median quoted; ` +
    `run time ${Math.round(R.seconds)} s.`, '',
    '| machine | |', '|---|---|',
    `| CPUs (nproc) / model | ${M.nproc} / ${M.cpu} |`, `| kernel | ${M.kernel} |`,
    `| load average at start | ${M.load} |`,
    `| redis-server | ${M.redis} |`, `| node | ${M.node} |`,
    `| hiredis (libhiredis-dev) | ${M.hiredis} |`, `| ioredis / node-redis / koffi | ${M.ioredis} / ${M.nodeRedis} / ${M.koffi} |`, '',
    '## How', '',
    `- Placement, the same for every contender: every redis-server main thread pinned to CPU ${R.options.cpu} ` +
    `(\`taskset -pc ${R.options.cpu} <pid>\`), every client process run under \`taskset -c ${R.options.cpu}\`. ` +
    'Loopback only; servers started by the run on free ports and stopped at its end.',
    '- Each measurement is a fresh process (a C program or `node bench/worker.js`), warmed up, then bounded by count and by time. ' +
    'Contenders of a workload run in turn, rotating the order every round (A B C, B C A, ...).',
    '- Ratios are the contender\'s median over the first column\'s median (for ns/call lower is better, otherwise higher).',
    '- `hiredis (C)` is the limit: bench/hiredis_limit.c, one command per round trip with `redisCommandArgv`; ' +
    'multi-key work split by server and pipelined with `redisAppendCommandArgv`, argument vectors built once.',
    '- `keyloom exact` is the exact layer as a user writes it: cells made once, then per operation the command, ' +
    'the readers (`charpp_value`, `charppp_value`, `doublepp_index_value`) and the releases (`kl_free_php_reply_p`, `kl_free_php_reply_pp`). ' +
    'Its MGET and MSET key arrays are built once (like the C program\'s argument vectors); ' +
    '"keys built per call" builds them with `new_charp_array`/`charp_array_set` on every call.',
    '- `keyloom client` is the idiomatic client (`require(\'keyloom/client\')`); ioredis and node-redis awaited one at a time ' +
    'unless "100 in flight" (100 concurrent awaiting loops on one connection). ioredis and node-redis do not shard, so they appear on one server only.',
    '- `keyloom promises` is the promise client (`require(\'keyloom/promises\')`) with N concurrent awaiting loops (N in flight); ' +
    'ioredis with and without `enableAutoPipelining` and node-redis likewise. `hiredis pipelined (C)` appends N commands, then reads their N replies: ' +
    'the limit of any client with N in flight on one connection.', '',
    '## Targets', '', targetTable(R), '',
  ];
  // What changed between runs and where the time goes are kept by hand beside
  // the generated tables; the report points at them instead of copying them.
  parts.push('What changed between runs, and why: [BEFORE-AFTER.md](BEFORE-AFTER.md). ' +
    'Where the time goes (profiles of the target rows): [PROFILE.md](PROFILE.md). ' +
    'The promise client\'s engine, and the one it was chosen over: [ENGINE.md](ENGINE.md).', '');
  for (const [g, title] of GROUPS) {
    const t = groupTable(R, g);
    if (t) parts.push(`## ${title}`, '', t, '');
  }
  const ct = continuumTable(R);
  if (ct) {
    parts.push('## Continuum build (ms to add n servers to a fresh client, median)', '',
      'bench/continuum_build.c through the public C interface, and the same from JavaScript through the exact layer: n `kl_server_add` calls, ' +
      'then one GET, whose routing builds the continuum (the library builds it once, on the first routing after the additions). ' +
      'The servers are loopback hosts on port 1, where nothing listens, so the GET\'s connection is refused at once (about 0.05 ms, included).', '', ct, '');
  }
  const mt = memoryText(R);
  if (mt) parts.push('## Memory', '', mt, '');
  parts.push('## Spread of the target rows', '',
    spreads(R, ['call-trivial', 'call-exists', 'get-3', 'get-1024', 'set-3', 'set-1024', 'mget-100-s1', 'mget-100-s4']), '');
  const n = notes(R);
  if (n.length) parts.push('## Skipped or failed', '', ...n, '');
  return parts.join('\n');
}

function progressLine(w, res, ms) {
  const bits = Object.entries(res.contenders).map(([name, c]) =>
    `${name}=${c.samples.length ? fmt(c.median, w.unit) : (c.note || '').slice(0, 60)}`);
  return `  ${w.id} (${(ms / 1000).toFixed(1)} s): ${bits.join(', ')}`;
}

function console_(R) {
  const out = ['', 'Targets:'];
  for (const t of R.targets) out.push(`  ${t.ok === null ? '  -  ' : t.ok ? ' met ' : 'MISS '} ${t.id}: ${t.text}: ${t.shown}`);
  for (const [g, title] of GROUPS) {
    const t = groupTable(R, g);
    if (t) out.push('', title, t);
  }
  const ct = continuumTable(R);
  if (ct) out.push('', 'Continuum build (ms)', ct);
  const mt = memoryText(R);
  if (mt) out.push('', mt);
  return out.join('\n');
}

module.exports = { markdown, console: console_, progressLine };
