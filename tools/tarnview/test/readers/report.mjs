// The report page of the logs in a browser, light and dark, used with keys and the mouse as a
// reader would; what it shows is compared with the logs.
import assert from "node:assert/strict";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { Browser, findBrowser } from "./browser.mjs";
import { assertShown } from "./figures.mjs";
import { readLogs, selfTime, sums } from "./log.mjs";
import { isKept, logs, run, scratch, skip } from "./setup.mjs";

if (!findBrowser()) skip("there is no Chromium");
const page = join(scratch(), "report.html");
run("report", "-o", page, ...logs);
const { activities } = readLogs(logs);
const ended = activities.filter(it => it.end !== null);
const browser = await Browser.open();
const shown = name => browser.evaluate(`Number(document.getElementById("timeline").dataset.${name})`);
const text = selector => browser.evaluate(`document.querySelector(${JSON.stringify(selector)}).innerText`);
const detail = async name => browser.evaluate(`[...document.querySelectorAll("#details dt")]
  .find(it => it.innerText === ${JSON.stringify(name)})?.nextSibling.innerText`);

/** That the details are those of an activity; in a fresh log, or of one that begins with it. */
async function assertDetailsOf(activity) {
  const id = await detail("id");
  const isTwin = !isKept && activities.find(it => it.id === id)?.begin === activity.begin;
  assert.ok(id === activity.id || isTwin, `${id}, not ${activity.id}`);
}

async function usesKeys() {
  assert.ok(await shown("drawn") > 20);
  const whole = await shown("span");
  await browser.press("+");
  assert.ok(await shown("span") < whole);
  const from = await shown("from");
  assert.ok(Math.abs(from + await shown("span") / 2 - whole / 2) < 1, "the middle has moved");
  await browser.press("ArrowRight");
  assert.ok(await shown("from") > from);
  await browser.press("-");
  await browser.press("0");
  assert.deepEqual([await shown("from"), await shown("span")], [0, whole]);

  await browser.press("/");
  await browser.type("call-p");
  const calls = ended.filter(it => it.name === "call-peer").sort((a, b) => a.begin - b.begin);
  assert.equal(await text("#hits"), `${calls.length} found`);
  await browser.press("Enter");
  assert.equal(await text("#hits"), `1 of ${calls.length}`);
  await assertDetailsOf(calls[0]);
  const call = await detail("id");
  const { sponsor } = activities.find(it => it.id === call);
  await browser.press("Escape");
  await browser.press("p");
  await assertDetailsOf(activities.find(it => it.id === sponsor));
  await browser.press("c");
  await browser.press("j");
  const siblings = activities.filter(it => it.sponsor === sponsor).sort((a, b) => a.begin - b.begin);
  await assertDetailsOf(siblings[1]);
  await browser.press("k");
  await assertDetailsOf(siblings[0]);
}

async function usesTheMouse() {
  await browser.press("0");
  const { id, name } = ended.filter(it => it.name === "load").at(-1);
  const [x, y] = await browser.evaluate(`(() => {
    const row = rows.find(it => it.id === "${id}"), place = canvas.getBoundingClientRect();
    scroller.scrollIntoView({block: "start"});
    scroller.scrollTop = lanes[row.lane].top - 40;
    const box = canvas.getBoundingClientRect(), scale = (box.width - labels()) / end;
    return [box.x + labels() + (row.begin + row.length / 2) * scale,
            box.y + lanes[row.lane].top - scroller.scrollTop + row.level * rowHeight + 8]; })()`);
  await browser.click(x, y);
  assert.deepEqual([await detail("name"), await detail("id")], [name, id]);
  const span = await shown("span");
  await browser.wheel(x, y, -300, { ctrl: true });
  await browser.until(`Number(canvas.dataset.span) < ${span}`);
  const from = await shown("from");
  await browser.drag(x, x - 200, y);
  assert.ok(await shown("from") > from);
  await browser.press("0");
}

async function showsDetails() {
  const noted = ended.find(it => it.endBody.logs && it.name === "execute");
  await browser.evaluate(`search(${JSON.stringify(noted.id)})`);
  assert.equal(await detail("name"), noted.name);
  assert.equal((await detail("supplements")).split("\n").length, noted.endBody.logs.length);
  assert.ok((await detail("supplements")).includes(`slow-step=${noted.endBody.logs[0]["slow-step"]}`));
  assert.equal(await detail("user"), noted.user === "-" ? undefined : noted.user);
  const odd = ended.find(it => it.user.includes("Größte"));
  await browser.evaluate(`search(${JSON.stringify(odd.id)})`);
  assert.equal(await detail("user"), odd.user);
}

async function showsTables() {
  const failed = ended.filter(it => !["ok", "early-termination"].includes(it.result));
  const early = ended.filter(it => it.result === "early-termination");
  assert.match(await text("#summary"), new RegExp(
    `^${activities.length} activities .* ${failed.length} failed, ${early.length} terminated early, ` +
    `${activities.length - ended.length} never ended`));
  const table = () => browser.evaluate(
    `[...document.querySelectorAll("#top tbody tr")].map(row => [...row.cells].map(it => it.innerText))`);
  const counts = sums(ended, it => it.name, () => 1);
  const failures = sums(failed, it => it.name, () => 1);
  for (const [name, count, bad, , open] of await table()) {
    assert.deepEqual([count, bad, open].map(Number),
                     [counts.get(name) ?? 0, failures.get(name) ?? 0,
                      activities.filter(it => it.name === name && it.end === null).length], name);
  }
  assert.equal((await table()).length, new Set(activities.map(it => it.name)).size);
  const memory = sums(ended, it => it.name, it => it.res.alloc.ae);
  await browser.click(...await browser.middleOf("#top th:last-child button"));
  assert.equal((await table())[0][0], [...memory].sort((a, b) => b[1] - a[1])[0][0]);
  assert.equal(await browser.evaluate(`document.querySelector("#top th[aria-sort]").innerText`), "memory");

  // Groups of failures, each with its number, which open to their members.
  const kinds = await browser.evaluate(
    `[...document.querySelectorAll("#failures .kind")].map(row => [...row.cells].map(it => it.innerText))`);
  const bad = activities.filter(it => it.result !== "ok");
  assert.equal(kinds.reduce((sum, it) => sum + Number(it[0].replace(/\D/g, "")), 0), bad.length);
  assert.ok(kinds.length < bad.length, "nothing is grouped");
  await browser.evaluate(`document.querySelector("#failures .kind button").focus()`);
  await browser.press("Enter");
  const [, name, result] = kinds[0];
  const members = await browser.evaluate(`document.querySelectorAll("#failures tr[data-index]").length`);
  assert.equal(members, Number(kinds[0][0].replace(/\D/g, "")));
  await browser.evaluate(`document.querySelector("#failures tr[data-index]").focus()`);
  await browser.press("Enter");
  assert.deepEqual([await detail("name"), (await detail("result")).split(":")[0]], [name, result]);
}

const search = async found => {
  await browser.evaluate(`element("search").value = ${JSON.stringify(found)}; find()`);
  return Number((await text("#hits")).split(" ")[0]);
};

async function findsEveryText() {
  const some = ended.find(it => it.user && it.user !== "-");
  assert.ok(await search(some.user) >= activities.filter(it => it.user === some.user).length, "user");
  const failed = ended.find(it => it.result === "exception" && it.details?.msg);
  if (failed) assert.ok(await search(failed.details.msg) >= 1, "message");
  assert.equal(await search("no text has this in it"), 0);
  await search("");
}

// What the clock says at the first and the last moment, and what of it the details say.
async function showsTheTimeOfDay() {
  const first = [...activities].sort((a, b) => a.begin - b.begin)[0];
  await browser.evaluate(`choose(rows.findIndex(it => it.begin === 0), true)`);
  const iso = new Date(Math.floor(first.begin / 1000)).toISOString();
  assert.ok((await detail("begin")).startsWith(`${iso.slice(0, 10)} ${iso.slice(11, 23)}`),
            await detail("begin"));
  await browser.evaluate(`element("clock").value = "relative"; element("clock").onchange()`);
  assert.equal(await browser.evaluate("moment(1500)"), "+1.50 ms");
  await browser.evaluate(`element("clock").value = "utc"; element("clock").onchange()`);
  assert.match(await browser.evaluate("moment(0)"), /^\d\d:\d\d:\d\d\.\d{6}$/);
}

async function showsOneRequest() {
  const call = activities.find(it => it.name === "call-peer");
  const whole = activities.filter(it => it.root === call.root);
  await browser.evaluate(`choose(rows.findIndex(it => it.id === "${call.id}"), true)`);
  assert.match(await text("#requestInfo"), new RegExp(`, ${whole.length} activities`));
  const parents = await browser.evaluate(`request.map(it => [it.row.index, it.row.parent])`);
  const seen = new Set([-1]);
  for (const [index, parent] of parents) {
    assert.ok(seen.has(parent), "a callee above its caller");
    seen.add(index);
  }
  const lanesOf = await browser.evaluate(`new Set(request.map(it => it.row.lane)).size`);
  assert.ok(lanesOf > 1, "all of it on one thread");
}

async function followsTheView() {
  const counts = () => browser.evaluate(
    `[...document.querySelectorAll("#top tbody tr")].reduce((sum, row) => sum + Number(row.cells[1].innerText), 0)`);
  const all = await counts();
  await browser.evaluate(`view = {from: 0, to: end / 50}; clampView(); element("inView").checked = true;
                          element("inView").onchange()`);
  const some = await counts();
  assert.ok(some > 0 && some < all, `${some} of ${all}`);
  const within = await browser.evaluate(`rows.filter(it => isInView(it) && !isOpen(it)).length`);
  assert.equal(some, within);
  await browser.evaluate(`element("inView").checked = false; element("inView").onchange(); showAll()`);
  assert.equal(await counts(), all);
  await search("call-peer");
  await browser.evaluate(`element("areFound").checked = true; element("areFound").onchange()`);
  const found = await browser.evaluate(`rows.filter(it => found.has(it.index) && !isOpen(it)).length`);
  assert.equal(await counts(), found);
  assert.ok(found > 0 && found < all, `${found} of ${all}`);
  await browser.evaluate(`element("areFound").checked = false; element("areFound").onchange()`);
  await search("");
}

// A brush over a third of the overview: the timeline, the tables, the failures and the flame chart
// are of that time, and a double click brings all back.
async function followsTheBrush() {
  const sum = () => browser.evaluate(
    `[...document.querySelectorAll("#top tbody tr")].reduce((sum, row) => sum + Number(row.cells[1].innerText), 0)`);
  const flame = () => browser.evaluate("flameRoot.total");
  const [all, allFlame] = [await sum(), await flame()];
  const place = await browser.evaluate(`(() => { overview.scrollIntoView({block: "center"});
    const it = overview.getBoundingClientRect(); return [it.x, it.width, it.y + it.height / 2]; })()`);
  await browser.drag(place[0] + place[1] / 3, place[0] + place[1] * 2 / 3, place[2]);
  await browser.until("shownRows.length < rows.length");
  const [from, to, last] = await browser.evaluate("[view.from, view.to, end]");
  assert.ok(Math.abs(from - last / 3) < last / 100 && Math.abs(to - last * 2 / 3) < last / 100);
  const within = await browser.evaluate(`rows.filter(it => isInView(it) && !isOpen(it)).length`);
  assert.equal(await sum(), within);
  assert.ok(within < all);
  const own = await browser.evaluate(
    "rows.filter(it => isInView(it)).reduce((sum, it) => sum + Math.max(it.self, 0), 0)");
  assert.ok(Math.abs(await flame() - own) < 1 && own < allFlame, "the flame chart is of something else");
  await browser.evaluate(`overview.dispatchEvent(new MouseEvent("dblclick"))`);
  await browser.until("shownRows.length === rows.length");
  assert.deepEqual([await sum(), await flame()], [all, allFlame]);
}

async function sortsAndFiltersFailures() {
  const kinds = () => browser.evaluate(
    `[...document.querySelectorAll("#failures .kind")].map(row => row.cells[1].innerText)`);
  const all = await kinds();
  const sort = () => browser.evaluate(
    `[...document.querySelectorAll("#failures th button")].find(it => it.innerText === "name").click()`);
  await sort();
  assert.deepEqual(await kinds(), [...all].sort());
  assert.equal(await browser.evaluate(`document.querySelector("#failures th[aria-sort]").ariaSort`), "ascending");
  await sort();
  assert.deepEqual(await kinds(), [...all].sort().reverse());
  const filter = text => browser.evaluate(
    `element("failureFilter").value = ${JSON.stringify(text)}; element("failureFilter").oninput()`);
  await filter(all[0].toUpperCase());
  const some = await kinds();
  assert.ok(some.length > 0 && some.length < all.length, `${some.length} of ${all.length}`);
  await filter("no failure has this in it");
  assert.deepEqual(await kinds(), []);
  await filter("");
  await browser.evaluate("failuresBy = null; drawFailures()");
  assert.deepEqual(await kinds(), all);
}

// What is saved is what the tables are of, with what the log says of each.
async function savesWhatIsShown() {
  await search("call-peer");
  await browser.evaluate(`element("areFound").checked = true; element("areFound").onchange()`);
  const lines = await browser.evaluate(`(async () => {
    const make = URL.createObjectURL, click = HTMLAnchorElement.prototype.click;
    let saved = null, name = null;
    URL.createObjectURL = blob => { saved = blob; return make(blob); };
    HTMLAnchorElement.prototype.click = function() { name = this.download; };
    element("download").click();
    URL.createObjectURL = make; HTMLAnchorElement.prototype.click = click;
    return [name, await saved.text()]; })()`);
  assert.equal(lines[0], "activities.jsonl");
  const saved = lines[1].trimEnd().split("\n").map(it => JSON.parse(it));
  const expected = activities.filter(it => it.name === "call-peer");
  assert.deepEqual(saved.map(it => it.id).sort(), expected.map(it => it.id).sort());
  for (const it of saved) {
    const activity = expected.find(other => other.id === it.id && (isKept ||
      Date.parse(it.begin) === Math.floor(other.begin / 1000)));
    if (!activity) continue;  // a fresh log may have ids twice
    assert.equal(it.result, activity.end === null ? "never ended" : activity.result);
    assert.equal(Date.parse(it.begin), Math.floor(activity.begin / 1000));
    assert.equal(it.user, activity.user === "-" ? undefined : activity.user);
  }
  await browser.evaluate(`element("areFound").checked = false; element("areFound").onchange()`);
  await search("");
}

// The edge of what terminated early is dashed, and what never ended is open at its end; of what is
// good or failed neither.
async function tellsStatesApartWithoutColour() {
  for (const panel of ["timeline", "request"]) {
    const drawn = await browser.evaluate(`(() => {
      const marks = {}, draw = hatch;
      for (const state of [0, 1, 2, 3]) {
        const row = rows.find(it => it.state === state && it.length > 0);
        choose(row.index, true);
        view = {from: row.begin - 1, to: row.begin + row.length + 1};
        const dashes = [], stroke = CanvasRenderingContext2D.prototype.stroke;
        CanvasRenderingContext2D.prototype.stroke = function() {
          if (this.canvas.id === "${panel}") dashes.push(this.getLineDash().length);
          return stroke.call(this);
        };
        let own = 0;  // strokes for this activity alone
        globalThis.hatch = (context, x, y, width, of, ink) => {
          const before = dashes.length;
          draw(context, x, y, width, of, ink);
          if (of === state && dashes.length > before) own = dashes.at(-1) ? "dashed" : "open";
        };
        "${panel}" === "timeline" ? drawTimeline() : drawRequest(row);
        globalThis.hatch = draw;
        CanvasRenderingContext2D.prototype.stroke = stroke;
        marks[state] = own;
      }
      return marks; })()`);
    assert.deepEqual(drawn, { 0: 0, 1: 0, 2: "dashed", 3: "open" }, panel);
  }
  await browser.evaluate("showAll()");
}

// Each activity that ended is in one cell and one bar, in the class of its length; a part of time has
// its own.
async function showsHowLongItTook() {
  const sums = () => browser.evaluate(`(() => { const classes = {};
    heat.sums.forEach((count, level) => { if (count) classes[Math.round(beginOfClass(heat.first + level))] = count; });
    return [classes, heat.cells.reduce((a, b) => a + b, 0)]; })()`);
  const expected = {};
  for (const { duration } of ended) {
    const own = duration < 1 ? 0 : 1 + Math.floor(Math.log10(duration) * 3 + 1e-9);
    const begin = own ? Math.round(10 ** ((own - 1) / 3)) : 0;
    expected[begin] = (expected[begin] ?? 0) + 1;
  }
  assert.deepEqual(await sums(), [expected, ended.length]);
  assert.match(await text("#heatInfo"), new RegExp(`^${ended.length} activities: half took `));
  await browser.evaluate(`view = {from: 0, to: end / 50}; clampView(); element("inView").checked = true;
                          element("inView").onchange()`);
  assert.equal((await sums())[1], await browser.evaluate("shownRows.filter(it => !isOpen(it)).length"));
  await browser.evaluate(`element("inView").checked = false; element("inView").onchange(); showAll()`);
}

// The picture of a request, as a tree that is read out.
async function tellsTheRequestToAScreenReader() {
  const call = activities.find(it => it.name === "call-peer");
  await browser.evaluate(`choose(rows.findIndex(it => it.id === "${call.id}"), true)`);
  const items = await browser.evaluate(`[...document.querySelectorAll("#requestTree [role=treeitem]")]
    .map(it => [Number(it.ariaLevel), it.textContent, it.ariaSelected])`);
  assert.equal(items.length, activities.filter(it => it.root === call.root).length);
  assert.equal(items[0][0], 1);
  assert.ok(items.some(([, text, selected]) => selected === "true" && text.startsWith("call-peer, ")));
  items.slice(1).forEach(([level], place) => assert.ok(level <= items[place][0] + 1));
  const unnamed = await browser.evaluate(`[...document.querySelectorAll("canvas, input, select, section, ul")]
    .filter(it => !it.ariaLabel && !it.labels?.length).map(it => it.outerHTML)`);
  assert.deepEqual(unnamed, [], "without a name");
  const signs = await browser.evaluate(`[...document.querySelectorAll("button")]
    .map(it => it.ariaLabel ?? it.innerText).filter(name => !/[\\p{L}\\p{N}]{2}/u.test(name))`);
  assert.deepEqual(signs, [], "named by a sign that nobody reads out");
}

// As wide as a phone: nothing but the tables is wider than the screen, and they scroll by themselves.
async function fitsAPhone() {
  const phone = await Browser.open({ width: 420, height: 900 });
  await phone.load(pathToFileURL(page).href);
  await phone.until("document.body.ariaBusy === 'false'");
  assert.ok(await phone.evaluate("document.documentElement.scrollWidth") <= 420, "wider than the screen");
  assert.ok(await phone.evaluate("scroller.clientWidth - labels()") > 250, "no room for times");
  const [x, y] = await phone.middleOf("#next");
  assert.ok(x > 0 && x < 420 && y > 0);
  const rows = await phone.evaluate(`["in", "out", "all"].map(it => element(it).getBoundingClientRect().top)`);
  assert.equal(new Set(rows).size, 1, "what zooms is apart");
  assert.deepEqual(phone.errors, []);
  await phone.close();
}

async function isRestoredByItsLink() {
  await browser.evaluate(`choose(5, true); view = {from: end / 4, to: end / 2}; clampView(); saveLink()`);
  const [link, id, from] = await browser.evaluate(`[location.hash, rows[5].id, Math.round(view.from)]`);
  await browser.evaluate(`history.replaceState(null, "", location.pathname); choose(1, true); showAll()`);
  await browser.evaluate(`location.hash = ${JSON.stringify(link)}`);
  await browser.until(`document.querySelector("#details").innerText.includes(${JSON.stringify(id)})`);
  assert.equal(await shown("from"), from);
  await browser.evaluate(`showAll()`);
}

async function showsTheFlameChart() {
  const all = async () => (await text("#flameInfo")).match(/^all: (.*)/)[1];
  const own = ended.reduce((sum, it) => sum + selfTime(it, activities), 0);
  assertShown(await all(), own / 1e6, "all times");
  if (isKept) assert.match(await all(), /^1\.220 s/);
  await browser.evaluate(`element("weight").value = "memory"; element("weight").onchange()`);
  const bytes = ended.reduce((sum, it) => sum + it.res.alloc.ae, 0);
  assertShown(await all(), bytes, "all memory");
  if (isKept) assert.match(await all(), /^1\.55 GB/);
  await browser.evaluate(`element("flame").focus()`);
  await browser.press("Enter");
  assert.match(await text("#flameInfo"), /^all > [a-z-]+: /);
  await browser.press("Backspace");
  assert.match(await text("#flameInfo"), /^all: /);
}

async function roundsUpToTheNextUnit() {
  const shownBy = (name, values) => browser.evaluate(`[${values}].map(${name})`);
  assert.deepEqual(
    await shownBy("bytes", [0, 999, 999_499, 999_700, 1.1e9, -1.1e9, 999.7e9, 1.2e15]),
    ["0 B", "999 B", "999 kB", "1.00 MB", "1.10 GB", "-1.10 GB", "1.00 TB", "1200 TB"]);
  assert.deepEqual(
    await shownBy("duration", [0, 999, 999.7, 999_400, 999_700, -999_700, 1e7, 12_345_678_900]),
    ["0 us", "999 us", "1.00 ms", "999 ms", "0.9997 s", "-0.9997 s", "10.00 s", "3 h 25 min"]);
}

for (const scheme of ["light", "dark"]) {
  await browser.load(pathToFileURL(page).href, scheme);
  await browser.until("document.body.ariaBusy === 'false'");
  await usesKeys();
  await usesTheMouse();
  await showsDetails();
  await showsTables();
  await findsEveryText();
  await showsTheTimeOfDay();
  await showsOneRequest();
  await followsTheView();
  await followsTheBrush();
  await sortsAndFiltersFailures();
  await savesWhatIsShown();
  await tellsStatesApartWithoutColour();
  await showsHowLongItTook();
  await tellsTheRequestToAScreenReader();
  await isRestoredByItsLink();
  await showsTheFlameChart();
  await roundsUpToTheNextUnit();
  const colour = await browser.evaluate("getComputedStyle(document.body).backgroundColor");
  const brightness = Math.max(...colour.match(/\d+/g).map(Number));
  assert.ok(scheme === "light" ? brightness > 200 : brightness < 80, `${scheme}: ${colour}`);
  assert.equal(await browser.evaluate("performance.getEntriesByType('resource').length"), 0);
}
await fitsAPhone();
assert.deepEqual(browser.errors, []);
await browser.close();
console.log(`${activities.length} activities, light and dark`);
