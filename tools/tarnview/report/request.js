// The request of the chosen activity by itself: a row for each, callers above callees, over all
// threads and processes; an arrow where work was handed over.
const requestRows = 400;
let request = [];
function treeOf(row) {
  let top = row.index;
  while (rows[top].parent >= 0) top = rows[top].parent;
  const list = [], waiting = [[top, 0]];
  while (waiting.length) {
    const [index, level] = waiting.pop();
    list.push({row: rows[index], level});
    for (const child of rows[index].children.reverse()) waiting.push([child, level + 1]);
  }
  return list;
}
function drawRequest(row) {
  if (row) request = treeOf(row);
  const canvas = element("request"), width = canvas.clientWidth;
  const shown = request.slice(0, requestRows);
  element("requestInfo").textContent = request.length
    ? `${request[0].row.name}, ${request.length} activities` +
      (request.length > requestRows ? `, the first ${requestRows} of them` : "") : "Choose an activity.";
  listRequest(shown);
  const requestLabel = isNarrow.matches ? 120 : 190;
  const context = prepare(canvas, width, Math.max(shown.length, 1) * rowHeight + 4);
  if (!shown.length) return;
  const from = shown[0].row.begin;
  const to = shown.reduce((last, it) => Math.max(last, it.row.begin + it.row.length), from + 1);
  const room = Math.max(width - requestLabel - 4, 40), scale = room / (to - from);
  const at = time => requestLabel + Math.max(0, time - from) * scale;
  const ink = style("--text"), faint = style("--faint"), places = new Map();
  shown.forEach(({row: it, level}, place) => {
    const y = place * rowHeight, x = at(it.begin);
    places.set(it.index, place);
    context.fillStyle = it.index === chosen ? style("--mark") : ink;
    const name = " ".repeat(Math.min(level, 12) * 2) + it.name + (["", " \u2717", " \u2504", " \u2192"][it.state]);
    context.fillText(name, 4, y + rowHeight / 2, requestLabel - 8);
    const wide = Math.max(it.length * scale, 1);
    box(context, x, y, Math.min(wide, width - x), rowHeight, duration(it.length),
        colour(it.name, it.state, wide < 4), it.state === 1 ? "#fff" : ink);
    if (it.state > 1 && wide > 3) hatch(context, x, y, wide, it.state, ink);
    const parent = places.get(it.parent);
    if (parent !== undefined && rows[it.parent].lane !== it.lane) arrow(context, x, parent, place, faint);
  });
}
// The same for who cannot see the picture.
const stateNames = ["", ", failed", ", terminated early", ", never ended"];
function listRequest(shown) {
  element("requestTree").replaceChildren(...shown.map(({row, level}) => {
    const item = document.createElement("li");
    item.role = "treeitem";
    item.ariaLevel = String(level + 1);
    item.ariaSelected = String(row.index === chosen);
    item.textContent = `${row.name}, ${duration(row.length)}${stateNames[row.state]}`;
    return item;
  }));
}
// From the caller's row down to where the callee begins.
function arrow(context, x, from, to, ink) {
  const top = from * rowHeight + rowHeight - 2, end = to * rowHeight + rowHeight / 2;
  context.strokeStyle = context.fillStyle = ink;
  context.lineWidth = 1;
  context.beginPath();
  context.moveTo(x - 4.5, top);
  context.lineTo(x - 4.5, end);
  context.lineTo(x - 1, end);
  context.stroke();
  context.beginPath();
  context.moveTo(x, end);
  context.lineTo(x - 5, end - 3);
  context.lineTo(x - 5, end + 3);
  context.fill();
}
element("request").addEventListener("click", event => {
  const hit = request[Math.floor(event.offsetY / rowHeight)];
  if (hit) choose(hit.row.index, true);
});
