// The export for speedscope, opened in speedscope itself: the totals and self times that its page
// shows are those of the log and of tarnview's own table.
import assert from "node:assert/strict";
import { join } from "node:path";
import { Browser, findBrowser } from "./browser.mjs";
import { amount, assertShown } from "./figures.mjs";
import { serve } from "./files.mjs";
import { ownTime, readLogs, sums } from "./log.mjs";
import { logs, packageFolder, run, scratch, skip, topRows } from "./setup.mjs";

const page = join(packageFolder("speedscope"), "dist", "release");
if (!findBrowser()) skip("there is no Chromium");
const { activities } = readLogs(logs);

const profile = join(scratch(), "profile.json");
run("export", "--to", "speedscope", "-o", profile, ...logs);
const server = await serve(page, { "profile.json": profile });
const browser = await Browser.open();
await browser.load(`${server.url}index.html#profileURL=${encodeURIComponent(server.url)}profile.json`);
await browser.until("document.body.innerText.includes('Sandwich')");
await browser.press("3");

// Each profile's table: [total, self, name] a row.
const readTable = `(() => {
  const heading = [...document.querySelectorAll("table")].find(
    it => it.innerText.includes("Symbol Name"));
  return [...heading?.parentElement.querySelectorAll("tr") ?? []]
    .map(row => [...row.querySelectorAll("td")].map(it => it.innerText.trim()))
    .filter(cells => cells.length === 3); })()`;
const readTitle = "document.body.innerText.match(/^(.*) \\((\\d+)\\/(\\d+)\\)$/m)?.slice(1)";
const profiles = new Map();
let [, at, count] = await browser.until(readTitle);
// It opens on the busiest thread; back to the first.
for (let number = Number(at); number > 1; --number) {
  await browser.press("p");
  await browser.until(`(${readTitle})?.[1] === "${number - 1}"`);
}
for (let number = 1; number <= Number(count); ++number) {
  const [title] = await browser.until(`(${readTitle})?.[1] === "${number}" && ${readTitle}`);
  // The table is drawn with the title or right after it.
  await browser.nextFrame();
  await browser.nextFrame();
  const rows = await browser.until(`(rows => rows.length && rows)(${readTable})`);
  profiles.set(title, rows);
  await browser.press("n");
}
assert.deepEqual(browser.errors, []);
await browser.close();
await server.close();

// Thread by thread against the log.
const sites = new Map();  // by process: the first that is known
for (const { pid, site } of activities) {
  if (site && site !== "-" && !sites.has(pid)) {
    sites.set(pid, `${site} `);
  }
}
const threads = new Map();
for (const activity of activities) {
  const key = `${sites.get(activity.pid) ?? ""}process ${activity.pid} thread ${activity.tid}`;
  threads.set(key, [...(threads.get(key) ?? []), activity]);
}
const processes = new Set(activities.map(it => it.pid));
assert.deepEqual([...profiles.keys()].sort(),
                 [...threads.keys(),
                  ...[...processes].map(it => `${sites.get(it) ?? ""}process ${it} memory allocated`)].sort());
const shown = new Map();  // by name: sums of what the page shows
for (const [title, its] of threads) {
  const totals = sums(its, it => it.name, it => it.duration / 1e6);
  const own = sums(its, it => it.name, it => ownTime(it, its) / 1e6);
  assert.deepEqual(profiles.get(title).map(row => row[2]).sort(), [...totals.keys()].sort(), title);
  for (const [total, self, name] of profiles.get(title)) {
    const sum = shown.get(name) ?? { total: 0, self: 0, slack: 0 };
    const [totalShown, slack] = assertShown(total, totals.get(name), `total of ${name} in ${title}`);
    const [selfShown] = assertShown(self, own.get(name), `self time of ${name} in ${title}`);
    shown.set(name, { total: sum.total + totalShown, self: sum.self + selfShown,
                      slack: sum.slack + slack });
  }
}

// And together against tarnview's table, in which times are cut to milliseconds.
const top = topRows();
let compared = 0;
for (const [name, { total, self, slack }] of shown) {
  const row = top.get(name);
  const number = activities.filter(it => it.name === name).length;
  const children = activities.filter(it => it.parent?.name === name).length;
  if (row.open) continue;  // these have no total in the table
  ++compared;
  assert.ok(total >= row.total_seconds - slack &&
            total <= row.total_seconds + 0.002 * number + slack,
            `${name}: speedscope ${total} s, top ${row.total_seconds} s`);
  assert.ok(Math.abs(self - row.exclusive_seconds) <= 0.002 * (number + children) + slack,
            `${name}: speedscope ${self} s itself, top ${row.exclusive_seconds} s`);
}
assert.ok(compared >= 5, "too few names to compare");

// Memory: bytes that each name allocated itself.
const memory = new Map();
for (const [title, rows] of profiles) {
  for (const [, self, name] of title.includes("memory") ? rows : []) {
    const [value, slack] = amount(self, 1024);
    const sum = memory.get(name) ?? [0, 0];
    memory.set(name, [sum[0] + value, sum[1] + slack]);
  }
}
for (const [name, row] of top) {
  const [value, slack] = memory.get(name) ?? [0, 0];
  assert.ok(Math.abs(value - row.memory_exclusive_bytes) <= slack,
            `${name}: speedscope ${value} bytes, top ${row.memory_exclusive_bytes}`);
}
console.log(`${profiles.size} profiles, ${shown.size} names, ${compared} compared with top, ` +
            `${activities.length} activities`);
