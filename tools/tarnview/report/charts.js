// Flame chart: stacks of names, as wide as their exclusive figures together.
let flameBoxes = [], flameRoot = null;
function buildFlame(weight) {
  const root = {name: "all", own: 0, total: 0, children: new Map(), parent: null};
  const nodes = new Array(rows.length);
  const nodeOf = index => {
    const waiting = [];
    let next = index;
    while (next >= 0 && !nodes[next]) { waiting.push(next); next = rows[next].parent; }
    while (waiting.length) {
      const row = rows[waiting.pop()];
      const parent = row.parent >= 0 ? nodes[row.parent] : root;
      if (!parent.children.has(row.name)) {
        parent.children.set(row.name, {name: row.name, own: 0, total: 0, children: new Map(), parent});
      }
      nodes[row.index] = parent.children.get(row.name);
    }
    return nodes[index];
  };
  for (const row of rows) {
    const value = Math.max(row[weight], 0), node = nodeOf(row.index);
    node.own += value;
    for (let next = node; next; next = next.parent) next.total += value;
  }
  return root;
}
function depthOf(node) {
  let depth = 0, level = [node];
  while (level.length) { ++depth; level = level.flatMap(it => [...it.children.values()]); }
  return depth;
}
function drawFlame() {
  const weight = element("weight").value;
  const {context, width} = prepare(element("flame"), depthOf(flameRoot) * 18);
  flameBoxes = [];
  const waiting = [[flameRoot, 0, 0]];
  while (waiting.length) {
    const [node, x, level] = waiting.pop();
    const wide = flameRoot.total ? node.total / flameRoot.total * width : 0;
    if (wide < 0.5) continue;
    box(context, x, level * 18, wide, 18, node.name, colour(node.name, false), false);
    flameBoxes.push({node, x, y: level * 18, wide});
    let offset = x;
    for (const child of [...node.children.values()].sort((a, b) => b.total - a.total)) {
      waiting.push([child, offset, level + 1]);
      offset += flameRoot.total ? child.total / flameRoot.total * width : 0;
    }
  }
  const text = weight === "memory" ? bytes : duration;
  element("flameInfo").textContent = `${flameRoot.name}: ${text(flameRoot.total)}` +
    (flameRoot.parent ? " (click the lowest box, or Backspace, to go back)" : "");
}
function startFlame() { flameRoot = buildFlame(element("weight").value); drawFlame(); }
const flameHit = event => flameBoxes.find(it => event.offsetX >= it.x && event.offsetX < it.x + it.wide &&
                                                event.offsetY >= it.y && event.offsetY < it.y + 18);
element("flame").addEventListener("click", event => {
  const hit = flameHit(event);
  if (!hit) return;
  flameRoot = hit.node === flameRoot && flameRoot.parent ? flameRoot.parent : hit.node;
  drawFlame();
});
element("flame").addEventListener("mousemove", event => {
  const hit = flameHit(event), text = element("weight").value === "memory" ? bytes : duration;
  if (hit) element("flame").title = `${hit.node.name}: ${text(hit.node.total)}, own ${text(hit.node.own)}`;
});
element("flame").addEventListener("keydown", event => {
  if (event.key === "Backspace" && flameRoot.parent) { flameRoot = flameRoot.parent; drawFlame(); }
  if (event.key === "Enter" && flameRoot.children.size) {
    flameRoot = [...flameRoot.children.values()].sort((a, b) => b.total - a.total)[0];
    drawFlame();
  }
});
element("weight").onchange = startFlame;

// Tables. Texts of the log are only ever set as text, never as markup.
function cell(row, text, name) {
  const it = row.insertCell();
  it.textContent = text;
  if (name) it.className = name;
}
const groups = new Map();
for (const row of rows) {
  if (!groups.has(row.name)) groups.set(row.name, {name: row.name, count: 0, failed: 0, total: 0, max: 0,
                                                   exclusive: 0, cpu: 0, memory: 0});
  const group = groups.get(row.name);
  ++group.count;
  group.failed += row.failed ? 1 : 0;
  group.total += row.length;
  group.max = Math.max(group.max, row.length);
  group.exclusive += row.exclusive; group.cpu += row.cpu; group.memory += row.memory;
}
const columns = [["name"], ["count"], ["failed"], ["total", duration], ["max", duration],
                 ["exclusive", duration], ["cpu", duration], ["memory", bytes]];
function drawTop(sortBy) {
  const table = element("top");
  table.textContent = "";
  const head = table.createTHead().insertRow();
  for (const [name] of columns) {
    const heading = document.createElement("th"), button = document.createElement("button");
    button.textContent = name;
    button.onclick = () => drawTop(name);
    if (name === sortBy) heading.ariaSort = name === "name" ? "ascending" : "descending";
    heading.append(button);
    head.append(heading);
  }
  const body = table.createTBody();
  const order = (a, b) => sortBy === "name" ? a.name.localeCompare(b.name) : b[sortBy] - a[sortBy];
  for (const group of [...groups.values()].sort(order)) {
    const line = body.insertRow();
    for (const [name, format] of columns) {
      cell(line, format ? format(group[name]) : group[name], name === "failed" && group.failed ? "bad" : "");
    }
  }
}
function drawFailures() {
  const table = element("failures"), most = 1000;
  const failed = rows.filter(row => row.failed).sort((a, b) => a.begin - b.begin);
  for (const row of failed.slice(0, most)) {
    const line = table.insertRow();
    line.tabIndex = 0;
    line.dataset.index = row.index;
    line.onclick = () => choose(row.index, true);
    line.onkeydown = event => { if (event.key === "Enter") choose(row.index, true); };
    cell(line, row.name);
    cell(line, row.result, "left bad");
    cell(line, row.detail, "left");
    cell(line, duration(row.length));
    cell(line, lanes[row.lane].name, "left");
  }
  if (!failed.length) cell(table.insertRow(), "None.");
  if (failed.length > most) cell(table.insertRow(), `and ${failed.length - most} more`);
}
element("summary").textContent = `${rows.length} activities on ${lanes.length} lanes, ` +
  `${rows.filter(row => row.failed).length} not ok, ${duration(end)} from ${data.base}`;
function drawAll() { hues.clear(); drawTimeline(); drawFlame(); }
flameRoot = buildFlame("exclusive");
drawAll(); drawTop("total"); drawFailures();
addEventListener("resize", drawAll);
dark.addEventListener("change", drawAll);
