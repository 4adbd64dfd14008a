#!/usr/bin/env node
'use strict';
// A service's way: one promise client for the process, many requests at once.
// An HTTP server answers a page-view counter and a cached profile per request;
// a burst of concurrent requests shows that the commands of one tick share
// each server's write while the event loop keeps serving. `node examples/service.js`
const http = require('node:http');
const { runExample } = require('./support/local.js');

runExample(2, async (servers) => {
  const { createClient } = require('keyloom/promises');
  const db = createClient({ servers }); // made once, used by every request

  async function profile(user) {
    const cached = await db.hgetall(`profile:${user}`);
    if (Object.keys(cached).length > 0) return cached;
    const fresh = { name: `user ${user}`, since: '2026' }; // the slow source, here made up
    await db.hmset(`profile:${user}`, fresh, { ttl: 60 });
    return fresh;
  }

  const server = http.createServer(async (req, res) => {
    const user = new URL(req.url, 'http://local').searchParams.get('user') ?? 'anonymous';
    try {
      const [views, who] = await Promise.all([db.incr(`views:${user}`, { timeoutMs: 500 }), profile(user)]);
      res.end(JSON.stringify({ user, views, name: who.name }));
    } catch (err) {
      res.statusCode = 503; // the store could not answer in time: say so, do not hang
      res.end(JSON.stringify({ error: err.message }));
    }
  });
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  const get = (user) => fetch(`http://127.0.0.1:${port}/?user=${user}`).then((r) => r.json());

  try {
    console.log('one request:', JSON.stringify(await get('ada')));
    const started = Date.now();
    const answers = await Promise.all(Array.from({ length: 200 }, (_, i) => get(['ada', 'bob', 'cy'][i % 3])));
    console.log(`200 concurrent requests answered in ${Date.now() - started} ms`);
    const views = Object.fromEntries(['ada', 'bob', 'cy'].map((u) => [u, Math.max(...answers.filter((a) => a.user === u).map((a) => a.views))]));
    console.log('page views now:', JSON.stringify(views));
    console.log('views of ada as stored:', await db.get('views:ada'));
    await db.del(['views:ada', 'views:bob', 'views:cy', 'profile:ada', 'profile:bob', 'profile:cy']);
  } finally {
    server.close();
    await db.close(); // after the commands in flight have settled
  }
});
