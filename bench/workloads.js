'use strict';
// What is measured: every workload with its contenders. A contender is one way
// of doing the workload: the C program on hiredis ('hiredis', the limit), the
// exact layer, the idiomatic client, ioredis, node-redis, or a call-overhead
// reference. The first contender of a workload is its baseline (ratio 1).
const K = require('./lib/keys');

const C = {
  hiredis: { name: 'hiredis (C)', runner: 'c' },
  exact: { name: 'keyloom exact', contender: 'exact' },
  exactBuild: { name: 'keyloom exact, keys built per call', contender: 'exact', kind: 'mget-build' },
  idiomatic: { name: 'keyloom client', contender: 'idiomatic' },
  ioSeq: { name: 'ioredis', contender: 'ioredis', variant: 'seq' },
  io100: { name: 'ioredis 100 in flight', contender: 'ioredis', variant: 'inflight' },
  ioAp: { name: 'ioredis auto-pipelining 100 in flight', contender: 'ioredis', variant: 'autopipeline' },
  nrSeq: { name: 'node-redis', contender: 'node-redis', variant: 'seq' },
  empty: { name: 'empty native callback', contender: 'calls', variant: 'empty' },
  trivial: { name: 'keyloom intp_value', contender: 'exact' },
  koffi: { name: 'koffi kl_exists(null)', contender: 'calls', variant: 'koffi' },
  exists: { name: 'keyloom kl_exists(null)', contender: 'exact' },
};

// The contenders of a workload with `depth` commands in flight; the C loop
// pipelines batches of `depth` commands on one connection.
const inFlight = (op, depth) => [
  { name: 'hiredis pipelined (C)', runner: 'c', kind: `${op}-pipelined`, depth },
  { name: 'keyloom promises', contender: 'promises', depth },
  ...(depth === 1 ? [{ name: 'keyloom client', contender: 'idiomatic' }] : []),
  { name: 'ioredis', contender: 'ioredis', variant: depth === 1 ? 'seq' : 'inflight', depth },
  { name: 'ioredis auto-pipelining', contender: 'ioredis', variant: 'autopipeline', depth },
  { name: 'node-redis', contender: 'node-redis', variant: depth === 1 ? 'seq' : 'inflight', depth },
];
const IN_FLIGHT = [1, 10, 100, 1000];

const sizeLabel = (n) => (n >= 1048576 ? `${n / 1048576} MiB` : n >= 1024 ? `${n / 1024} KiB` : `${n} B`);

function workloads() {
  const list = [];
  const add = (w) => list.push({ servers: 1, unit: 'ops/s', ...w });

  add({ id: 'call-trivial', group: 'calls', title: 'trivial export vs empty callback', unit: 'ns/call',
    kind: 'call-trivial', contenders: [C.empty, C.trivial] });
  add({ id: 'call-exists', group: 'calls', title: 'kl_exists(null, "k", 1): koffi vs keyloom', unit: 'ns/call',
    kind: 'call-exists', contenders: [C.koffi, C.exists] });

  const single = [C.hiredis, C.exact, C.idiomatic, C.ioSeq, C.nrSeq, C.io100, C.ioAp];
  for (const op of ['get', 'set']) {
    for (const size of [3, 1024]) {
      add({ id: `${op}-${size}`, group: 'single', title: `${op.toUpperCase()} ${sizeLabel(size)}`, kind: op,
        prefix: op === 'get' ? K.strKey(size) : K.setKey(size), nkeys: 1000, size, contenders: single });
    }
  }

  for (const op of ['mget', 'mset']) {
    for (const count of [100, 1000]) {
      for (const servers of [1, 4]) {
        const peers = servers === 1 ? [C.ioSeq, C.nrSeq] : [];
        const mine = op === 'mget' ? [C.exact, C.exactBuild, C.idiomatic] : [C.exact, C.idiomatic];
        add({ id: `${op}-${count}-s${servers}`, group: 'multi', unit: 'keys/s', servers,
          title: `${op.toUpperCase()} ${count} keys, 3 B, ${servers} server${servers > 1 ? 's' : ''}`,
          kind: op, prefix: op === 'mget' ? K.strKey(3) : K.setKey(3), count, size: 3,
          contenders: [C.hiredis, ...mine, ...peers] });
      }
    }
  }

  const struct = [C.hiredis, C.exact, C.idiomatic, C.ioSeq, C.nrSeq];
  add({ id: 'hgetall-100', group: 'structures', title: 'HGETALL of 100 fields', kind: 'hgetall', key: K.HASH_KEY,
    contenders: struct });
  add({ id: 'zrange-100', group: 'structures', title: 'ZRANGE 0 -1 WITHSCORES of 100 members', kind: 'zrange',
    key: K.ZSET_KEY, contenders: struct });

  const sweep = [C.hiredis, C.exact, C.idiomatic, C.ioSeq];
  for (const op of ['get', 'set']) {
    for (const size of SWEEP_SIZES) {
      add({ id: `sweep-${op}-${size}`, group: 'value-size', title: `${op.toUpperCase()} ${sizeLabel(size)}`,
        kind: op, prefix: op === 'get' ? K.strKey(size) : K.setKey(size), nkeys: SWEEP_KEYS, size,
        contenders: sweep });
    }
  }

  for (const op of ['get', 'set']) {
    for (const depth of IN_FLIGHT) {
      add({ id: `inflight-${op}-${depth}`, group: 'in-flight', title: `${op.toUpperCase()} 3 B, ${depth} in flight`,
        kind: op, prefix: op === 'get' ? K.strKey(3) : K.setKey(3), nkeys: 1000, size: 3, depth,
        contenders: inFlight(op, depth) });
    }
  }
  for (const servers of [1, 4]) {
    // The client on a CPU of its own (servers stay on theirs), so that more
    // servers are more capacity rather than more processes on one CPU.
    add({ id: `mixed-s${servers}`, group: 'mixed', servers, ownCpu: true,
      title: `GET, SET, INCR, HSET, HGET, 100 in flight, ${servers} server${servers > 1 ? 's' : ''}, client on its own CPU`, kind: 'mixed',
      contenders: [{ name: 'keyloom promises', contender: 'promises', depth: 100 }, C.idiomatic] });
  }

  for (const servers of [1, 2, 4, 8]) {
    add({ id: `servers-${servers}`, group: 'server-count', title: `GET 3 B, ${servers} server${servers > 1 ? 's' : ''}`,
      kind: 'get', prefix: K.strKey(3), nkeys: 1000, size: 3, servers, contenders: [C.hiredis, C.exact, C.idiomatic] });
  }
  return list;
}

const SWEEP_SIZES = [16, 256, 4096, 65536, 1048576];
const SWEEP_KEYS = 8;
const CONTINUUM_SIZES = [1, 10, 100, 1000];
const MAX_SERVERS = 8;

module.exports = { workloads, sizeLabel, SWEEP_SIZES, SWEEP_KEYS, CONTINUUM_SIZES, MAX_SERVERS, IN_FLIGHT };
