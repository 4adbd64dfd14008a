// What a TypeScript user writes first, in a project whose tsconfig names no
// types of its own: the declarations must bring what they need (Buffer).
import { createClient, KeyloomError } from 'keyloom/client';

const db = createClient({ url: 'redis://127.0.0.1:6379' });
const value: string | null = db.get('greeting');
const bytes = db.getBuffer('greeting');
const length: number | undefined = bytes?.length;
try {
  db.set('greeting', 'hello', { ttl: 30 });
} catch (err) {
  if (err instanceof KeyloomError) console.log(err.codeName, err.server, value, length);
}
db.close();
