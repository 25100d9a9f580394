// Timeline: a band for each lane, as high as its activities are nested. The canvas is as large as
// what can be seen of it, however many lanes there are.
const rowHeight = 16, axisHeight = 20, laneGap = 6;
const isNarrow = matchMedia("(max-width: 600px)");
const labels = () => isNarrow.matches ? 84 : 150;
let lanes = [], fullHeight = axisHeight;
const canvas = element("timeline"), scroller = element("lanes");
let view = {from: 0, to: 1}, chosen = -1, found = new Set(), foundList = [], at = -1;
function makeLanes({header, byLane, ends, depths}) {
  lanes = header.lanes.map((name, index) => {
    const lane = {name, index, rows: group(byLane, index), depth: depths[index], top: fullHeight,
                  ends: ends.subarray(byLane.starts[index], byLane.starts[index + 1])};
    fullHeight += lane.depth * rowHeight + laneGap;
    return lane;
  });
  element("strip").style.height = fullHeight + "px";
  scroller.style.height = Math.min(fullHeight + 2, 420) + "px";
  view = {from: 0, to: end};
}

function firstVisible(lane) {
  let low = 0, high = lane.ends.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (lane.ends[middle] < view.from) low = middle + 1; else high = middle;
  }
  return low;
}

// Ticks at round times, a hundred pixels apart or more.
function drawAxis(context, width, height) {
  const labelWidth = labels(), span = view.to - view.from, room = width - labelWidth;
  const rough = Math.max(span * 100 / room, 1), power = 10 ** Math.floor(Math.log10(rough));
  const step = [1, 2, 5, 10].find(it => it * power >= rough) * power;
  const [unit, name] = view.to >= 1e6 ? [1e6, "s"] : view.to >= 1e3 ? [1e3, "ms"] : [1, "us"];
  const isRelative = clock === "relative";
  const digits = Math.max(0, Math.round(Math.log10(isRelative ? unit : 1e6) - Math.floor(Math.log10(step))));
  // Round times of the clock are round ones after the first only by chance.
  const shift = isRelative ? 0 : base.micros % step;
  const first = Math.ceil((view.from + shift) / step) * step - shift;
  for (let time = first; time <= view.to; time += step) {
    const x = labelWidth + (time - view.from) / span * room;
    context.fillStyle = style("--line");
    context.fillRect(Math.round(x), axisHeight - 4, 1, height);
    context.fillStyle = style("--faint");
    if (x + 50 < width) {
      context.fillText(isRelative ? `${(time / unit).toFixed(time ? digits : 0)} ${name}`
                                  : timeOfDay(Math.round(time), digits), x + 3, axisHeight / 2);
    }
  }
}

function drawLane(context, lane, top, width, scale, ink, mark) {
  const seen = [];  // of each level the pixel up to which it is drawn already
  const marked = [];
  let drawn = 0;
  const labelWidth = labels();
  for (let place = firstVisible(lane); place < lane.rows.length; ++place) {
    const index = lane.rows[place], begin = columns.begin[index], level = columns.level[index];
    if (begin > view.to) break;
    const x = labelWidth + (begin - view.from) * scale, wide = columns.length[index] * scale;
    const isMarked = index === chosen || found.has(index), state = columns.state[index];
    // Where many share a pixel the first is drawn, and each that failed.
    if (!isMarked && state !== 1 && x + wide < (seen[level] ?? -1e9)) continue;
    seen[level] = x + Math.max(wide, 1);
    const row = rows[index];
    const left = Math.max(x, labelWidth), right = Math.min(x + wide, width);
    const y = top + level * rowHeight;
    box(context, left, y, right - left, rowHeight, row.name,
        colour(row.name, state, wide < 4), state === 1 ? "#fff" : ink);
    if (state > 1 && right - left > 3) hatch(context, left, y, right - left, state, ink);
    if (isMarked) marked.push([index === chosen ? ink : mark, left, y, right - left]);
    ++drawn;
  }
  for (const [stroke, x, y, wide] of marked) {
    context.strokeStyle = stroke;
    context.lineWidth = 2;
    context.strokeRect(x + 1, y + 1, Math.max(wide - 2, 1), rowHeight - 3);
  }
  return drawn;
}

// What terminated early has a dashed edge, what never ended an open one: not told by colour alone.
function hatch(context, x, y, width, state, ink) {
  context.strokeStyle = ink;
  context.lineWidth = 1;
  context.setLineDash(state === 2 ? [4, 3] : []);
  context.beginPath();
  if (state === 2) {
    context.rect(x + 0.5, y + 0.5, width - 1, rowHeight - 2);
  } else {
    for (const top of [y + 0.5, y + rowHeight - 1.5]) { context.moveTo(x, top); context.lineTo(x + width, top); }
    context.moveTo(x + width - 5, y + 3);
    context.lineTo(x + width - 1, y + rowHeight / 2);
    context.lineTo(x + width - 5, y + rowHeight - 4);
  }
  context.stroke();
  context.setLineDash([]);
}

function drawTimeline() {
  const width = scroller.clientWidth, height = scroller.clientHeight, scroll = scroller.scrollTop;
  const context = prepare(canvas, width, height);
  const labelWidth = labels(), scale = (width - labelWidth) / (view.to - view.from);
  const ink = style("--text"), mark = style("--mark"), line = style("--line");
  drawAxis(context, width, height);
  context.save();
  context.beginPath();
  context.rect(0, axisHeight, width, height - axisHeight);
  context.clip();
  let drawn = 0, process = null;
  for (const lane of lanes) {
    const top = lane.top - scroll;
    const its = lane.name.slice(0, lane.name.indexOf(":"));
    const isNewProcess = process !== null && its !== process;
    process = its;
    if (top > height || top + lane.depth * rowHeight < axisHeight) continue;
    if (isNewProcess) {
      context.fillStyle = line;
      context.fillRect(0, top - laneGap / 2, width, 1);
    }
    context.fillStyle = ink;
    context.fillText(lane.name, 4, top + rowHeight / 2, labelWidth - 8);
    drawn += drawLane(context, lane, top, width, scale, ink, mark);
  }
  context.restore();
  canvas.dataset.drawn = drawn;
  drawOverview();
  followView();
  canvas.dataset.from = view.from;
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
function showAll() { view = {from: 0, to: end}; clampView(); }

/** Brings an activity into view, with some time around it. */
function reveal(row) {
  const span = Math.max(row.length * 1.6, 20);
  view = {from: row.begin - (span - row.length) / 2, to: row.begin - (span - row.length) / 2 + span};
  const top = lanes[row.lane].top + row.level * rowHeight;
  if (top - scroller.scrollTop < axisHeight || top + rowHeight > scroller.scrollTop + scroller.clientHeight) {
    scroller.scrollTop = top - scroller.clientHeight / 3;
  }
  clampView();
}
function rowAt(x, y) {
  const labelWidth = labels();
  const inside = y + scroller.scrollTop;
  const lane = lanes.find(it => inside >= it.top && inside < it.top + it.depth * rowHeight);
  if (!lane || x < labelWidth || y < axisHeight) return -1;
  const level = Math.floor((inside - lane.top) / rowHeight);
  const span = view.to - view.from, width = scroller.clientWidth - labelWidth;
  const time = view.from + (x - labelWidth) / width * span, slack = 2 * span / width;
  let best = -1, distance = Infinity;
  for (let place = firstVisible(lane); place < lane.rows.length; ++place) {
    const row = rows[lane.rows[place]];
    if (row.begin > time + slack) break;
    const away = Math.max(row.begin - time, time - row.begin - row.length, 0);
    if (row.level === level && away <= slack && away <= distance) { best = row.index; distance = away; }
  }
  return best;
}

scroller.addEventListener("scroll", drawTimeline);
canvas.addEventListener("wheel", event => {
  const sideways = event.shiftKey ? event.deltaY || event.deltaX : event.deltaX;
  if (event.ctrlKey) {
    zoom(event.deltaY > 0 ? 1.25 : 0.8,
         Math.max(0, (event.offsetX - labels()) / (scroller.clientWidth - labels())));
  } else if (Math.abs(sideways) > 0 && (event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY))) {
    move(sideways / 800);
  } else {
    return;  // the lanes scroll, or the page
  }
  event.preventDefault();
}, {passive: false});

let drag = null;
canvas.addEventListener("pointerdown", event => {
  drag = {x: event.offsetX, y: event.clientY, from: view.from, scroll: scroller.scrollTop, moved: false};
  canvas.setPointerCapture(event.pointerId);
});
canvas.addEventListener("pointermove", event => {
  if (!drag) {
    const hit = rowAt(event.offsetX, event.offsetY);
    canvas.title = hit < 0 ? "" : `${rows[hit].name}: ${duration(rows[hit].length)}` +
      (rows[hit].state ? `, ${rows[hit].result}` : "");
    return;
  }
  if (Math.abs(event.offsetX - drag.x) + Math.abs(event.clientY - drag.y) < 4 && !drag.moved) return;
  drag.moved = true;
  const span = view.to - view.from;
  const from = drag.from - (event.offsetX - drag.x) / (scroller.clientWidth - labels()) * span;
  view = {from, to: from + span};
  scroller.scrollTop = drag.scroll - (event.clientY - drag.y);
  clampView();
});
canvas.addEventListener("pointerup", event => {
  const hit = drag && !drag.moved ? rowAt(event.offsetX, event.offsetY) : -1;
  drag = null;
  if (hit >= 0) choose(hit, false);
});
canvas.addEventListener("dblclick", event => {
  const hit = rowAt(event.offsetX, event.offsetY);
  if (hit >= 0) choose(hit, true);
});
