// Flame chart of what the tables are of: stacks of names, as wide as their own figures together. Own time
// is the time in which no child ran, on any thread: waiting for a child is not counted beside it.
const flameRow = 18, deepestFlame = 100;
let flameBoxes = [], flameRoot = null;
const flameText = value => (element("weight").value === "memory" ? bytes : duration)(value);
function newNode(name, parent) { return {name, own: 0, total: 0, children: new Map(), parent}; }
function buildFlame(weight) {
  const root = newNode("all", null), nodes = new Array(rows.length);
  const nodeOf = index => {
    const waiting = [];
    for (let next = index; next >= 0 && !nodes[next]; next = rows[next].parent) waiting.push(next);
    while (waiting.length) {
      const row = rows[waiting.pop()], parent = row.parent >= 0 ? nodes[row.parent] : root;
      if (!parent.children.has(row.name)) parent.children.set(row.name, newNode(row.name, parent));
      nodes[row.index] = parent.children.get(row.name);
    }
    return nodes[index];
  };
  for (const row of shownRows) nodeOf(row.index).own += Math.max(row[weight], 0);
  // Each node comes after its parent, so that sums go up from the last one.
  const order = [root];
  for (let place = 0; place < order.length; ++place) order.push(...order[place].children.values());
  for (const node of order.reverse()) {
    node.total += node.own;
    if (node.parent) node.parent.total += node.total;
  }
  return root;
}
const widestFirst = node => [...node.children.values()].sort((a, b) => b.total - a.total);
function drawFlame() {
  if (!flameRoot) return;
  const canvas = element("flame"), width = canvas.clientWidth;
  flameBoxes = [];
  const waiting = [[flameRoot, 0, 0]];
  while (waiting.length) {
    const [node, x, level] = waiting.pop();
    const wide = flameRoot.total ? node.total / flameRoot.total * width : 0;
    if (wide < 0.5 && level > 0 || level === deepestFlame) continue;
    flameBoxes.push({node, x, y: level * flameRow, wide: level ? wide : width});
    let offset = x;
    for (const child of widestFirst(node)) {
      waiting.push([child, offset, level + 1]);
      offset += flameRoot.total ? child.total / flameRoot.total * width : 0;
    }
  }
  const depth = flameBoxes.reduce((most, it) => Math.max(most, it.y + flameRow), flameRow);
  const context = prepare(canvas, width, depth), ink = style("--text");
  for (const {node, x, y, wide} of flameBoxes) {
    const share = flameRoot.total ? ` ${flameText(node.total)}` : "";
    box(context, x, y, wide - 1, flameRow, node.name + (wide > 160 ? share : ""),
        node.parent ? colour(node.name, 0, wide < 4) : style("--panel"), ink);
  }
  const chain = [];
  for (let next = flameRoot; next; next = next.parent) chain.unshift(next.name);
  element("flameInfo").textContent = `${chain.join(" > ")}: ${flameText(flameRoot.total)}` +
    (flameRoot.parent ? " (Backspace, or click the topmost box, to go back)" : "");
}
// Where one had gone into it, one stays, as far as that is there.
function startFlame() {
  const chain = [];
  for (let next = flameRoot; next?.parent; next = next.parent) chain.unshift(next.name);
  flameRoot = buildFlame(element("weight").value);
  for (const name of chain) flameRoot = flameRoot.children.get(name) ?? flameRoot;
  drawFlame();
}
const flameHit = event => flameBoxes.find(
  it => event.offsetX >= it.x && event.offsetX < it.x + it.wide &&
        event.offsetY >= it.y && event.offsetY < it.y + flameRow);
function enterFlame(node) {
  if (node) flameRoot = node;
  drawFlame();
}
element("flame").addEventListener("click", event => {
  const hit = flameHit(event);
  if (hit) enterFlame(hit.node === flameRoot ? flameRoot.parent : hit.node);
});
element("flame").addEventListener("mousemove", event => {
  const hit = flameHit(event);
  element("flame").title =
    hit ? `${hit.node.name}: ${flameText(hit.node.total)}, itself ${flameText(hit.node.own)}` : "";
});
element("flame").addEventListener("keydown", event => {
  if (event.key === "Backspace") enterFlame(flameRoot.parent);
  if (event.key === "Enter") enterFlame(widestFirst(flameRoot)[0]);
});
element("weight").onchange = startFlame;
