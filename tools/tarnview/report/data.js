"use strict";
// What the page shows: columns of numbers, an entry for each activity in the order of their begins,
// and texts in one piece, of which columns have the numbers. Times are microseconds from `base` on; a
// state is 0 good, 1 failed, 2 terminated early, 3 never ended. What was not measured is NaN in its
// column, and null in a row.
let columns = {}, texts = null, ids = null, rows = [], tops = [], children = null, end = 1;
const base = {text: "", seconds: 0, micros: 0};

/** Many texts as one string with a line end behind each, cut when they are asked for. */
class Texts {
  constructor(bytes, ends) {
    this.whole = new TextDecoder().decode(bytes);
    this.ends = ends;
    this.cut = new Array(ends.length);
    this.lower = null;
  }
  begin(number) { return number ? this.ends[number - 1] : 0; }
  get(number) { return this.cut[number] ??= this.whole.slice(this.begin(number), this.ends[number] - 1); }
  // As long as the original: one letter alone has two in lower case.
  lowered() { return this.lower ??= this.whole.replaceAll("\u0130", "I").toLowerCase(); }
  /** Of each text whether it has the other one in it, in lower case. */
  having(text) {
    const has = new Uint8Array(this.ends.length), whole = this.lowered();
    for (let at = whole.indexOf(text), number = 0; at >= 0; at = whole.indexOf(text, this.begin(number))) {
      let high = this.ends.length;
      while (number < high) {
        const middle = (number + high) >> 1;
        if (this.ends[middle] <= at) number = middle + 1; else high = middle;
      }
      has[number++] = 1;
      if (number === this.ends.length) break;
    }
    return has;
  }
}

const measured = value => Number.isNaN(value) ? null : value;
/** An activity: nothing but its number, all else is in the columns. */
class Row {
  constructor(index) { this.index = index; }
  get id() { return ids.get(this.index); }
  get name() { return texts.get(columns.name[this.index]); }
  get result() { return texts.get(columns.result[this.index]); }
  get detail() { return texts.get(columns.detail[this.index]); }
  get parent() { return columns.parent[this.index]; }
  get lane() { return columns.lane[this.index]; }
  get level() { return columns.level[this.index]; }
  get state() { return columns.state[this.index]; }
  get begin() { return columns.begin[this.index]; }
  get length() { return columns.length[this.index]; }
  get exclusive() { return columns.exclusive[this.index]; }
  get self() { return columns.self[this.index]; }
  get cpu() { return measured(columns.cpu[this.index]); }
  get cpuAll() { return measured(columns.cpuAll[this.index]); }
  get memory() { return measured(columns.memory[this.index]); }
  get memoryAll() { return measured(columns.memoryAll[this.index]); }
  get children() { return Array.from(group(children, this.index)); }
  /** All else that the log says, by name. */
  get more() {
    const more = {};
    for (let at = this.index ? columns.moreEnd[this.index - 1] : 0; at < columns.moreEnd[this.index]; ++at) {
      more[texts.get(columns.moreName[at])] = texts.get(columns.moreText[at]);
    }
    return more;
  }
}
const isOpen = row => row.state === 3;

// Runs in a worker, so that the page can be used in the meantime; it knows nothing but its argument.
async function decode(text) {
  const letters = atob(text), packed = new Uint8Array(letters.length);
  for (let at = 0; at < packed.length; ++at) packed[at] = letters.charCodeAt(at);
  const stream = new Blob([packed]).stream().pipeThrough(new DecompressionStream("gzip"));
  const buffer = await new Response(stream).arrayBuffer();
  const size = new DataView(buffer).getUint32(0, true), columns = {};
  const header = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, size)));
  let place = 4 + size;
  for (const [name, kind, length] of header.columns) {
    columns[name] = new {f64: Float64Array, i32: Int32Array, u8: Uint8Array}[kind](buffer, place, length);
    place += Math.ceil(columns[name].byteLength / 8) * 8;
  }
  // The members of each of so many groups, in their order: those of group g are in `list` from
  // starts[g] to starts[g + 1].
  const grouped = (groupOf, groups) => {
    const starts = new Int32Array(groups + 1), list = new Int32Array(groupOf.length);
    for (const it of groupOf) if (it >= 0) ++starts[it + 1];
    for (let it = 0; it < groups; ++it) starts[it + 1] += starts[it];
    const next = starts.slice();
    groupOf.forEach((it, index) => { if (it >= 0) list[next[it]++] = index; });
    return {starts, list};
  };
  const count = columns.begin.length, laneCount = header.lanes.length;
  const children = grouped(columns.parent, count), byLane = grouped(columns.lane, laneCount);
  // So that what ended before the view can be passed over.
  const ends = new Float64Array(count), depths = new Int32Array(laneCount).fill(1);
  let last = 1;
  for (let lane = 0; lane < laneCount; ++lane) {
    let latest = -1;
    for (let at = byLane.starts[lane]; at < byLane.starts[lane + 1]; ++at) {
      const index = byLane.list[at];
      ends[at] = latest = Math.max(latest, columns.begin[index] + columns.length[index]);
      depths[lane] = Math.max(depths[lane], columns.level[index] + 1);
    }
    last = Math.max(last, latest);
  }
  return {header, columns, children, byLane, ends, depths, last};
}
const group = ({starts, list}, number) => list.subarray(starts[number], starts[number + 1]);
function load(text) {
  const source = `${decode}
    onmessage = event => decode(event.data).then(
      it => postMessage(it, [it.columns.begin.buffer, it.ends.buffer]), error => postMessage({error: String(error)}));`;
  return new Promise((resolve, reject) => {
    const address = URL.createObjectURL(new Blob([source], {type: "text/javascript"}));
    const worker = new Worker(address);
    worker.onmessage = ({data}) => {
      worker.terminate();
      URL.revokeObjectURL(address);
      if (data.error) reject(data.error); else resolve(data);
    };
    worker.onerror = event => reject(event.message);
    worker.postMessage(text);
  });
}
function takeData(data) {
  columns = data.columns;
  texts = new Texts(columns.texts, columns.textEnd);
  ids = new Texts(columns.ids, columns.idEnd);
  rows = Array.from(columns.begin, (_, index) => new Row(index));
  children = data.children;
  tops = rows.filter(row => row.parent < 0).map(row => row.index);
  end = data.last;
  base.text = data.header.base;
  base.seconds = Math.floor(Date.parse(base.text) / 1000);
  base.micros = Number(base.text.slice(20, 26));
  chooseHues();
  makeLanes(data);
}

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
  const date = new Date(Date.parse(base.text) + us / 1000);
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
function chooseHues() {
  const totals = new Map();
  columns.name.forEach((name, index) => totals.set(name, (totals.get(name) ?? 0) + columns.exclusive[index]));
  const order = [...totals].map(([name, total]) => [texts.get(name), total])
    .sort((a, b) => b[1] - a[1] || (a[0] < b[0] ? -1 : 1));
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
