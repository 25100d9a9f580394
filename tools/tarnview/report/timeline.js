"use strict";
// The data: texts are numbers of entries in `texts`; times are microseconds from `base` on.
const data = JSON.parse(document.getElementById("data").textContent);
const rows = data.activities.map((r, index) => ({
  index, id: r[0], name: data.texts[r[1]], parent: r[2], lane: r[3], level: r[4], begin: r[5],
  length: r[6], exclusive: r[7], cpu: r[8], memory: r[9], result: data.texts[r[10]],
  detail: data.texts[r[11]], more: r[12], failed: r[13], children: []}));
for (const row of rows) if (row.parent >= 0) rows[row.parent].children.push(row.index);
const end = rows.reduce((last, row) => Math.max(last, row.begin + row.length), 1);
const element = id => document.getElementById(id);
const dark = matchMedia("(prefers-color-scheme: dark)");

function duration(us) {
  if (Math.abs(us) < 1e3) return Math.round(us) + " us";
  if (Math.abs(us) < 1e6) return (us / 1e3).toPrecision(3) + " ms";
  return (us / 1e6).toPrecision(4) + " s";
}
function bytes(count) {
  const units = ["B", "kB", "MB", "GB", "TB"];
  let unit = 0;
  while (Math.abs(count) >= 1000 && unit < 4) { count /= 1000; ++unit; }
  return (unit ? count.toPrecision(3) : count) + " " + units[unit];
}
const hues = new Map();
function colour(name, failed) {
  if (failed) return dark.matches ? "#b3403a" : "#e57368";
  if (!hues.has(name)) {
    let hash = 7;
    for (const letter of name) hash = (hash * 31 + letter.codePointAt(0)) >>> 0;
    hues.set(name, 40 + hash % 290);
  }
  return `hsl(${hues.get(name)} ${dark.matches ? "45% 36%" : "60% 74%"})`;
}
const ink = () => getComputedStyle(document.body).color;

function prepare(canvas, height) {
  const scale = devicePixelRatio || 1, width = canvas.clientWidth;
  canvas.style.height = height + "px";
  canvas.width = width * scale; canvas.height = height * scale;
  const context = canvas.getContext("2d");
  context.scale(scale, scale);
  context.font = "11px system-ui, sans-serif";
  context.textBaseline = "middle";
  return {context, width};
}
function box(context, x, y, width, height, text, fill, isMarked) {
  context.fillStyle = fill;
  context.fillRect(x, y, Math.max(width, 0.7), height - 1);
  if (isMarked) {
    context.strokeStyle = ink(); context.lineWidth = 2;
    context.strokeRect(x + 1, y + 1, Math.max(width - 2, 1), height - 3);
  }
  if (width > 24) {
    context.fillStyle = ink();
    const room = Math.floor((width - 4) / 6);
    context.fillText(text.length > room ? text.slice(0, room - 1) + "\u2026" : text, x + 3, y + height / 2);
  }
}

// Timeline: a band for each lane, as high as its activities are nested.
const labelWidth = 150, rowHeight = 16, axisHeight = 20;
const lanes = data.lanes.map((name, index) => ({name, rows: [], depth: 1, top: 0, index}));
for (const row of rows) {
  lanes[row.lane].rows.push(row);
  lanes[row.lane].depth = Math.max(lanes[row.lane].depth, row.level + 1);
}
let height = axisHeight;
for (const lane of lanes) {
  lane.rows.sort((a, b) => a.begin - b.begin || a.level - b.level);
  let latest = -1;  // so that what ended before the view can be passed over
  lane.ends = lane.rows.map(row => latest = Math.max(latest, row.begin + row.length));
  lane.top = height;
  height += lane.depth * rowHeight + 6;
}
const canvas = element("timeline");
let view = {from: 0, to: end}, chosen = -1, found = new Set(), foundList = [], at = -1;

function firstVisible(lane) {
  let low = 0, high = lane.ends.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (lane.ends[middle] < view.from) low = middle + 1; else high = middle;
  }
  return low;
}
function drawTimeline() {
  const {context, width} = prepare(canvas, height);
  const scale = (width - labelWidth) / (view.to - view.from);
  context.clearRect(0, 0, width, height);
  context.fillStyle = ink();
  const ticks = Math.max(2, Math.floor((width - labelWidth) / 120));
  for (let tick = 0; tick < ticks; ++tick) {
    const time = view.from + (view.to - view.from) * tick / ticks;
    context.fillText(duration(time), labelWidth + (width - labelWidth) * tick / ticks, axisHeight / 2);
  }
  let drawn = 0;
  for (const lane of lanes) {
    context.fillStyle = ink();
    context.fillText(lane.name, 4, lane.top + rowHeight / 2, labelWidth - 8);
    context.save();
    context.beginPath();
    context.rect(labelWidth, lane.top, width - labelWidth, lane.depth * rowHeight);
    context.clip();
    const last = [];  // of each level the pixel that is drawn already
    for (let index = firstVisible(lane); index < lane.rows.length; ++index) {
      const row = lane.rows[index];
      if (row.begin > view.to) break;
      const x = labelWidth + (row.begin - view.from) * scale, wide = row.length * scale;
      const isSpecial = row.failed || row.index === chosen || found.has(row.index);
      if (!isSpecial && x + wide < (last[row.level] ?? -1e9)) continue;
      last[row.level] = x + Math.max(wide, 0.7);
      box(context, x, lane.top + row.level * rowHeight, wide, rowHeight, row.name,
          colour(row.name, row.failed), row.index === chosen || found.has(row.index));
      ++drawn;
    }
    context.restore();
  }
  canvas.dataset.drawn = drawn;
  canvas.dataset.span = view.to - view.from;
}
function clampView() {
  const span = Math.min(Math.max(view.to - view.from, 5), end);
  view.from = Math.min(Math.max(view.from, 0), end - span);
  view.to = view.from + span;
  drawTimeline();
}
function zoom(factor, share = 0.5) {
  const span = view.to - view.from, point = view.from + span * share;
  view = {from: point - span * factor * share, to: point + span * factor * (1 - share)};
  clampView();
}
function move(share) {
  const step = (view.to - view.from) * share;
  view = {from: view.from + step, to: view.to + step};
  clampView();
}
function reveal(row) {
  const span = Math.max(row.length * 1.6, 20);
  view = {from: row.begin - (span - row.length) / 2, to: row.begin - (span - row.length) / 2 + span};
  clampView();
  element("lanes").scrollTop = lanes[row.lane].top - 60;
}
function choose(index, isRevealed) {
  chosen = index;
  const row = rows[index], chain = [];
  for (let next = row.parent; next >= 0; next = rows[next].parent) chain.push(rows[next].name);
  const lines = [
    ["name", row.name], ["id", row.id], ["result", row.result + (row.detail ? ": " + row.detail : "")],
    ["begin", duration(row.begin) + " after the first"], ["elapsed", duration(row.length)],
    ["exclusive", duration(row.exclusive)], ["cpu, exclusive", duration(row.cpu)],
    ["memory, exclusive", bytes(row.memory)], ["where", lanes[row.lane].name],
    ["within", chain.join(" < ") || "-"], ["children", row.children.length],
    ...Object.entries(row.more).map(([name, text]) => [name, data.texts[text]])];
  element("details").textContent = lines.map(([name, text]) => name.padEnd(20) + text).join("\n");
  if (isRevealed) reveal(row); else drawTimeline();
}
function rowAt(x, y) {
  const lane = lanes.find(it => y >= it.top && y < it.top + it.depth * rowHeight);
  if (!lane || x < labelWidth) return -1;
  const level = Math.floor((y - lane.top) / rowHeight);
  const span = view.to - view.from, width = canvas.clientWidth - labelWidth;
  const time = view.from + (x - labelWidth) / width * span, slack = 2 * span / width;
  let best = -1, distance = Infinity;
  for (let index = firstVisible(lane); index < lane.rows.length; ++index) {
    const row = lane.rows[index];
    if (row.begin > time + slack) break;
    const away = Math.max(row.begin - time, time - row.begin - row.length, 0);
    if (row.level === level && away <= slack && away <= distance) { best = row.index; distance = away; }
  }
  return best;
}
let drag = null;
canvas.addEventListener("wheel", event => {
  if (!event.ctrlKey && event.shiftKey) return;
  event.preventDefault();
  zoom(event.deltaY > 0 ? 1.25 : 0.8,
       Math.max(0, (event.offsetX - labelWidth) / (canvas.clientWidth - labelWidth)));
}, {passive: false});
canvas.addEventListener("pointerdown", event => {
  drag = {x: event.offsetX, from: view.from, moved: false};
  canvas.setPointerCapture(event.pointerId);
});
canvas.addEventListener("pointermove", event => {
  if (!drag || Math.abs(event.offsetX - drag.x) < 3 && !drag.moved) return;
  drag.moved = true;
  const span = view.to - view.from;
  const from = drag.from - (event.offsetX - drag.x) / (canvas.clientWidth - labelWidth) * span;
  view = {from, to: from + span};
  clampView();
});
canvas.addEventListener("pointerup", event => {
  const hit = drag && !drag.moved ? rowAt(event.offsetX, event.offsetY) : -1;
  drag = null;
  if (hit >= 0) choose(hit, false);
});
// From the chosen one: up and down the tree, and to what came before and after it.
function step(key) {
  if (chosen < 0) return choose(0, true);
  const row = rows[chosen];
  const siblings = row.parent >= 0 ? rows[row.parent].children
                                   : rows.filter(it => it.parent < 0).map(it => it.index);
  const place = siblings.indexOf(chosen);
  const next = {p: row.parent, c: row.children[0], k: siblings[place - 1], j: siblings[place + 1]}[key];
  if (next >= 0) choose(next, true);
}
document.addEventListener("keydown", event => {
  if (event.target.matches("input, select") || event.ctrlKey || event.metaKey || event.altKey) return;
  const actions = {"+": () => zoom(0.6), "=": () => zoom(0.6), "-": () => zoom(1.6),
    "0": () => { view = {from: 0, to: end}; clampView(); }, n: () => nextHit(),
    "/": () => element("search").focus(), ArrowLeft: () => move(-0.2), ArrowRight: () => move(0.2)};
  for (const key of "pckj") actions[key] = () => step(key);
  if (actions[event.key]) { event.preventDefault(); actions[event.key](); }
});
canvas.addEventListener("keydown", event => { if (event.key === "Enter") step("c"); });
element("in").onclick = () => zoom(0.6);
element("out").onclick = () => zoom(1.6);
element("all").onclick = () => { view = {from: 0, to: end}; clampView(); };

function find() {
  const text = element("search").value.toLowerCase();
  foundList = text ? rows.filter(row => row.name.toLowerCase().includes(text) ||
                                        row.id.toLowerCase().startsWith(text)).map(row => row.index) : [];
  found = new Set(foundList);
  at = -1;
  element("hits").textContent = text ? foundList.length + " found" : "";
  drawTimeline();
}
function nextHit() {
  if (!foundList.length) return;
  at = (at + 1) % foundList.length;
  element("hits").textContent = `${at + 1} of ${foundList.length}`;
  choose(foundList[at], true);
}
element("search").addEventListener("input", find);
element("search").addEventListener("keydown", event => {
  if (event.key === "Enter") nextHit();
  if (event.key === "Escape") canvas.focus();
});
element("next").onclick = nextHit;
