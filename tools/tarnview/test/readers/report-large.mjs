// A report page of a hundred thousand activities: it draws, zooms, finds a name and shows details
// without making its reader wait.
import assert from "node:assert/strict";
import { writeFileSync } from "node:fs";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { Browser, findBrowser } from "./browser.mjs";
import { run, scratch, skip } from "./setup.mjs";

if (!findBrowser()) skip("there is no Chromium");

// Requests of five activities each on many threads, every fiftieth of which fails.
const requests = 20_000, threads = 40;
const time = us => new Date(1.77e12 + Math.floor(us / 1000)).toISOString().slice(0, 23) +
                   String(us % 1000).padStart(3, "0") + "Z";
const lines = [];
function write(phase, us, thread, name, id, sponsor, root, depth, elapsed, exclusive, result) {
  const activity = { depth, id, name, type: phase, ...(depth ? { root, sponsor } : { "req-desc": "-" }) };
  if (phase === "end") Object.assign(activity, { elapsed, exclusive, rk: result, rv: {} });
  lines.push([us, JSON.stringify({
    time: time(us), severity: "info", event: `${phase}-${name}`, pid: 1 + thread % 3, tid: thread,
    session: "-", request: root, user: `user-${thread % 7}`, site: "shop", environment: {}, activity,
    attributes: { vw: "-", wb: "-" }, body: phase === "begin" ? { number: us } : {} })]);
}
const idOf = (request, part) =>
  `${request.toString(16).toUpperCase().padStart(8, "0")}-0000-4000-8000-00000000000${part}`;
for (let request = 0; request < requests; ++request) {
  const thread = request % threads, start = Math.floor(request / threads) * 12_000 + thread * 250;
  const root = idOf(request, 0), result = request % 50 === 0 ? "error" : "ok";
  const part = (number, name, sponsor, depth, from, length, own) => {
    const id = idOf(request, number);
    write("begin", start + from, thread, name, id, sponsor, root, depth);
    write("end", start + from + length, thread, name, id, sponsor, root, depth,
          length / 1e6, own / 1e6, result);
  };
  part(0, "serve", "", 0, 0, 10_000, 1000);
  part(1, "parse", root, 1, 500, 2000, 2000);
  part(2, `query-${request % 200}`, root, 1, 3000, 7000, 1000);
  part(3, "read", idOf(request, 2), 2, 3500, 4000, 4000);
  part(4, "write", idOf(request, 2), 2, 7500, 2000, 2000);
}
const folder = scratch(), log = join(folder, "large.log"), page = join(folder, "large.html");
writeFileSync(log, lines.sort((a, b) => a[0] - b[0]).map(it => it[1]).join("\n") + "\n");
run("report", "-o", page, log);

const browser = await Browser.open();
const began = performance.now();
await browser.load(pathToFileURL(page).href);
await browser.until("Number(document.getElementById('timeline').dataset.drawn) > 1000");
const loaded = performance.now() - began;
assert.match(await browser.evaluate("document.getElementById('summary').innerText"),
             /^100000 activities on 40 lanes, 2000 failed/);

// Each step of the zoom, to and fro, as long as the browser takes to draw it.
const steps = [];
for (const factor of [...Array(25).fill(0.6), ...Array(25).fill(1.6)]) {
  steps.push(await browser.evaluate(
    `(() => { const began = performance.now(); zoom(${factor}, 0.3);
              return performance.now() - began; })()`));
  await browser.nextFrame();
}
await browser.press("/");
await browser.type("query-17");
await browser.press("Enter");
const finding = await browser.evaluate(
  "(() => { const began = performance.now(); find(); return performance.now() - began; })()");
assert.equal(await browser.evaluate("document.getElementById('hits').innerText"), "1100 found");
await browser.press("Enter");
assert.match(await browser.evaluate("document.getElementById('details').innerText"),
             /name\s+query-17\s+result\s+ok\s+elapsed\s+7\.00 ms, exclusive 1\.00 ms/);
assert.ok(Number(await browser.evaluate("canvas.dataset.span")) < 20_000, "the hit is not shown");
assert.deepEqual(browser.errors, []);
await browser.close();

const slowest = Math.max(...steps);
console.log(`shown after ${loaded.toFixed(0)} ms, a step of the zoom ${slowest.toFixed(0)} ms at ` +
            `most, finding ${finding.toFixed(0)} ms`);
assert.ok(loaded < 20_000 && slowest < 2000 && finding < 2000);
