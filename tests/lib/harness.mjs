// Shared by the Node clients: polling, the bus through slewctl, cases reported one by one.
import { execFile } from 'node:child_process';
import { promisify } from 'node:util';

export const run = promisify(execFile);
export const sleep = (ms) => new Promise((r) => setTimeout(r, ms));
export const failures = [];
export const skipped = [];
export function expect(cond, what) { if (!cond) throw new Error(what); }
// Polls check() until it gives a truthy value, at most ms; throws naming what when it never does.
export async function until(what, check, ms = 20000) {
  for (const end = Date.now() + ms; ; await sleep(50)) {
    const v = await check();
    if (v) return v;
    if (Date.now() > end) throw new Error(`timed out waiting for ${what}`);
  }
}
// Reading ("" when the key holds none) and writing one bus key, as another process would.
export const busOf = (slewctl) => ({
  get: (key) => run(slewctl, ['get', key]).then((r) => r.stdout.trim(), () => ''),
  set: (key, value) => run(slewctl, ['set', key, value]),
});
// Runs one case (a failure is recorded, the next still runs); it may return a note or "skip".
export async function check(name, body) {
  try {
    const note = await body();
    if (note === 'skip') skipped.push(name);
    console.log(note === 'skip' ? `SKIP ${name}` : `ok   ${name}${note ? ` (${note})` : ''}`);
  } catch (e) {
    failures.push(name);
    console.log(`FAIL ${name}: ${e.message}`);
  }
}
