// A typed program against both layers, checked by `tsc --noEmit` (test/docs/types.test.js).
// It is never run: it only has to type-check, and the mistakes marked below must not.
import * as kl from 'keyloom';
import { createClient, KeyloomError, type KeyloomClient } from 'keyloom/client';
import * as promises from 'keyloom/promises';

// The idiomatic client.
const db: KeyloomClient = createClient({ servers: ['127.0.0.1:6379'], hash: 'md5', distribution: 'ketama' });
db.set('greeting', 'hello', { ttl: 60 });
const greeting: string | null = db.get('greeting');
const bytes: Buffer | null = db.get('greeting', { buffer: true });
const top: Array<{ member: string; score?: number }> = db.zrange('board', 0, 9, { withScores: true, reverse: true });
const names: string[] = db.zrange('board', 0, 9);
const user: Record<string, string | null> = db.hgetall('user:1');
const hits = db.dclose('cities', 'par').map((h) => `${h.word}=${h.value}`);
const n: number | bigint = db.incr('visits', { ttl: 10 });
try {
  db.lpush('greeting', 'x');
} catch (err) {
  if (err instanceof KeyloomError) console.log(err.code, err.codeName, err.message);
}
db.close();

// The exact layer: cells, readers and releasing the reply.
const client = kl.kl_client_create(kl.KL_HASH_DEFAULT, kl.KL_DISTRIBUTION_CONSISTENT, kl.new_mm(), kl.KL_FLAG_NONE);
if (client !== null) {
  kl.server_add(client, '127.0.0.1', 6379, '_NL_');
  const value = kl.new_charpp();
  const length = kl.new_ulongp();
  const rc: number = kl.kl_get_whole(client, 'greeting', 8, value, length, '', 0);
  const text: string | null = rc === kl.KL_SUCCESS ? kl.charpp_value(value, length) : null;
  kl.kl_free_php_reply_p(value);
  kl.delete_charpp(value);
  kl.delete_ulongp(length);
  // @ts-expect-error: a size_t * cell is not a char ** cell
  kl.kl_get_whole(client, 'greeting', 8, length, length, '', 0);
  // @ts-expect-error: lengths are separate arguments
  kl.kl_set(client, 'k', 'v', 0);
  kl.kl_client_destroy(client);
  console.log(text);
}

// @ts-expect-error: 'sha1' is not a hash kind
createClient({ hash: 'sha1' });

// The promise client: the same commands, each answering with a Promise.
async function service(): Promise<void> {
  const pdb: promises.KeyloomClient = promises.createClient({ servers: ['127.0.0.1:6379'], maxQueued: 5000 });
  await pdb.ready;
  const value: string | null = await pdb.get('greeting', { timeoutMs: 200 });
  const raw: Buffer | null = await pdb.get('greeting', { buffer: true, signal: AbortSignal.timeout(100) });
  const board: Array<{ member: string; score?: number }> = await pdb.zrange('board', 0, 9, { withScores: true });
  const [a, b] = await Promise.all([pdb.incr('visits'), pdb.set('k', 'v', { ttl: 5, timeoutMs: 100 })]);
  // @ts-expect-error: an answer is a Promise, not the value
  const wrong: string | null = pdb.get('greeting');
  try {
    await pdb.lpush('greeting', 'x');
  } catch (err) {
    if (err instanceof promises.KeyloomError) console.log(err.serverMessage);
  }
  await pdb.close();
  console.log(value, raw, board, a, b, wrong);
}
void service;

console.log(greeting, bytes, top, names, user, hits, n);
