// Overview: how much began when, over all of the log, and what of it failed. A brush in it chooses the
// part of time that the timeline shows, and all panels with it.
const overview = element("overview"), overviewHeight = 40;
let heights = {width: 0};
function countBegins(width) {
  const all = new Uint32Array(width), failed = new Uint32Array(width), scale = (width - 1) / end;
  columns.begin.forEach((begin, index) => {
    const x = Math.floor(begin * scale);
    ++all[x];
    if (columns.state[index] === 1) ++failed[x];
  });
  const most = all.reduce((a, b) => Math.max(a, b), 1);
  return {width, all, failed, most};
}
function drawOverview() {
  const width = overview.clientWidth;
  if (!width) return;
  if (heights.width !== width) heights = countBegins(width);
  const context = prepare(overview, width, overviewHeight);
  // What is rare is to be seen beside what is not.
  const heightOf = count => count && 1 + (overviewHeight - 3) * Math.log1p(count) / Math.log1p(heights.most);
  for (const [counts, fill] of [[heights.all, style("--faint")], [heights.failed, style("--bad")]]) {
    context.fillStyle = fill;
    counts.forEach((count, x) => {
      if (count) context.fillRect(x, overviewHeight - heightOf(count), 1, heightOf(count));
    });
  }
  if (view.from <= 0 && view.to >= end) return;
  const left = view.from / end * width, right = Math.max(view.to / end * width, left + 2);
  context.fillStyle = style("--back");
  context.globalAlpha = 0.6;
  context.fillRect(0, 0, left, overviewHeight);
  context.fillRect(right, 0, width - right, overviewHeight);
  context.globalAlpha = 1;
  context.strokeStyle = style("--mark");
  context.lineWidth = 2;
  context.strokeRect(left + 1, 1, Math.max(right - left - 2, 1), overviewHeight - 2);
}
let brush = null;
const timeAt = event => Math.min(Math.max(event.offsetX / overview.clientWidth, 0), 1) * end;
overview.addEventListener("pointerdown", event => {
  brush = {from: timeAt(event), x: event.offsetX};
  overview.setPointerCapture(event.pointerId);
});
overview.addEventListener("pointermove", event => {
  if (!brush || Math.abs(event.offsetX - brush.x) < 4) return;
  const to = timeAt(event);
  element("inView").checked = true;
  view = {from: Math.min(brush.from, to), to: Math.max(brush.from, to)};
  clampView();
});
// A click brings that moment into the middle of what is shown.
overview.addEventListener("pointerup", event => {
  if (brush && Math.abs(event.offsetX - brush.x) < 4) {
    const half = (view.to - view.from) / 2;
    view = {from: brush.from - half, to: brush.from + half};
    clampView();
  }
  brush = null;
});
overview.addEventListener("dblclick", () => { element("inView").checked = false; showAll(); drawTables(); });
