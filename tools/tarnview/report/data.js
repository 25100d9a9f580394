"use strict";
// What the page shows. In the data, texts are numbers of entries in `texts`; times are microseconds
// from `base` on; a state is 0 good, 1 failed, 2 terminated early, 3 never ended. What was not
// measured is null.
const data = JSON.parse(document.getElementById("data").textContent);
const rows = data.activities.map((r, index) => ({
  index, id: r[0], name: data.texts[r[1]], parent: r[2], lane: r[3], level: r[4], begin: r[5],
  length: r[6], exclusive: r[7], cpu: r[8], memory: r[9], result: data.texts[r[10]],
  detail: data.texts[r[11]], texts: [r[1], r[10], r[11], ...Object.values(r[12])], more: r[12], state: r[13], cpuAll: r[14], memoryAll: r[15],
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
  if (Math.abs(us) < 600e6) return rounded(us / 1e6, 4) + " s";
  const sign = us < 0 ? "-" : "", seconds = Math.round(Math.abs(us) / 1e6);
  const parts = seconds < 3600 ? [Math.floor(seconds / 60), "min", seconds % 60, "s"]
    : seconds < 172800 ? [Math.floor(seconds / 3600), "h", Math.floor(seconds / 60) % 60, "min"]
    : [Math.floor(seconds / 86400), "d", Math.floor(seconds / 3600) % 24, "h"];
  return sign + parts.join(" ");
}

// Times of day, in UTC or as the clock of the reader's system shows them. A date has milliseconds
// only, so that the rest of the second is kept apart.
const base = {seconds: Math.floor(Date.parse(data.base) / 1000), micros: Number(data.base.slice(20, 26))};
let clock = "utc";
function timeOfDay(us, decimals = 6) {
  const micros = base.micros + us, whole = Math.floor(micros / 1e6);
  const date = new Date((base.seconds + whole) * 1000);
  const two = number => String(number).padStart(2, "0");
  const text = clock === "utc" ? date.toISOString().slice(11, 19)
    : [date.getHours(), date.getMinutes(), date.getSeconds()].map(two).join(":");
  return decimals === 0 ? text
    : `${text}.${String(Math.floor(micros - whole * 1e6)).padStart(6, "0").slice(0, decimals)}`;
}
function day(us) {
  const date = new Date(Date.parse(data.base) + us / 1000);
  const two = number => String(number).padStart(2, "0");
  return clock === "utc" ? date.toISOString().slice(0, 10)
    : [date.getFullYear(), two(date.getMonth() + 1), two(date.getDate())].join("-");
}
/** As the log has it. */
function isoTime(us) {
  const micros = base.micros + us, whole = Math.floor(micros / 1e6);
  return new Date((base.seconds + whole) * 1000).toISOString().slice(0, 19) + "." +
    String(micros - whole * 1e6).padStart(6, "0") + "Z";
}
/** When something began: the time of day, or how long after the first activity. */
const moment = us => clock === "relative" ? "+" + duration(us) : timeOfDay(us);
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
