"use strict";
// What the page shows. In the data, texts are numbers of entries in `texts`; times are microseconds
// from `base` on; a state is 0 good, 1 failed, 2 terminated early, 3 never ended. What was not
// measured is null.
const data = JSON.parse(document.getElementById("data").textContent);
const rows = data.activities.map((r, index) => ({
  index, id: r[0], name: data.texts[r[1]], parent: r[2], lane: r[3], level: r[4], begin: r[5],
  length: r[6], exclusive: r[7], cpu: r[8], memory: r[9], result: data.texts[r[10]],
  detail: data.texts[r[11]], more: r[12], state: r[13], cpuAll: r[14], memoryAll: r[15],
  self: r[16], children: []}));
for (const row of rows) if (row.parent >= 0) rows[row.parent].children.push(row.index);
for (const row of rows) row.children.sort((a, b) => rows[a].begin - rows[b].begin);
const tops = rows.filter(row => row.parent < 0).sort((a, b) => a.begin - b.begin)
  .map(row => row.index);
const end = rows.reduce((last, row) => Math.max(last, row.begin + row.length), 1);
const isOpen = row => row.state === 3;

const element = id => document.getElementById(id);
const dark = matchMedia("(prefers-color-scheme: dark)");

// So many digits, and no exponent for what has more of them before the point.
function rounded(number, digits) {
  return Math.abs(number) < 10 ** digits - 0.5 ? number.toPrecision(digits) : String(Math.round(number));
}
// What would be rounded up to a thousand is one of the next unit.
function duration(us) {
  if (Math.abs(us) < 999.5) return Math.round(us) + " us";
  if (Math.abs(us) < 999.5e3) return rounded(us / 1e3, 3) + " ms";
  return rounded(us / 1e6, 4) + " s";
}
function bytes(count) {
  const units = ["B", "kB", "MB", "GB", "TB"];
  let unit = 0;
  while (Math.abs(count) >= 999.5 && unit < 4) { count /= 1000; ++unit; }
  return (unit ? rounded(count, 3) : count) + " " + units[unit];
}

// Names that take the most time get hues that lie far apart. Red is for failures.
const hues = new Map();
{
  const totals = new Map();
  for (const row of rows) totals.set(row.name, (totals.get(row.name) ?? 0) + row.exclusive);
  const order = [...totals].sort((a, b) => b[1] - a[1] || (a[0] < b[0] ? -1 : 1));
  order.forEach(([name], place) => hues.set(name, 35 + (170 + place * 137.508) % 300));
}
function colour(name, state, isThin) {
  if (state === 1) return dark.matches ? "#d1453b" : "#dc4a3d";
  const light = dark.matches ? (isThin ? 55 : 38) : (isThin ? 50 : 76);
  return `hsl(${hues.get(name) ?? 210} ${dark.matches ? 42 : 62}% ${light}%)`;
}
const style = name => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

/** A canvas of this size in pixels of the page, sharp on every screen. */
function prepare(canvas, width, height) {
  const scale = devicePixelRatio || 1;
  canvas.style.height = height + "px";
  canvas.width = Math.round(width * scale); canvas.height = Math.round(height * scale);
  const context = canvas.getContext("2d");
  context.scale(scale, scale);
  context.font = "11px system-ui, sans-serif";
  context.textBaseline = "middle";
  return context;
}
function box(context, x, y, width, height, text, fill, ink) {
  context.fillStyle = fill;
  context.fillRect(x, y, Math.max(width, 1), height - 1);
  if (width > 24) {
    context.fillStyle = ink;
    const room = Math.floor((width - 8) / 6);
    context.fillText(text.length > room ? text.slice(0, Math.max(room - 2, 1)) + "\u2026" : text,
                     x + 3, y + height / 2);
  }
}
